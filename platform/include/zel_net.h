/** The network side of a unit's configuration: whether UDP commands drive its ports, its friendly name, its interface. */
#ifndef ZEL_NET_H
#define ZEL_NET_H

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

typedef struct zel_net_config zel_net_config_t;

/** 1 if UDP commands drive the GPI ports, else 0; 0 for a null handle. */
int zel_net_config_get_udp_commands_enabled(const zel_net_config_t *config);
/** The unit's friendly name; never null, "" for a null handle. Borrowed until the handle is freed. */
const char *zel_net_config_get_fname(const zel_net_config_t *config);
/** Index of the unit's network interface, asked of the kernel at each call; 0 if there is none such or for a null handle. */
int zel_net_config_ifindex(const zel_net_config_t *config);

/**
 * Read the unit's configuration ("/etc/zel/unit.json" below the unit's root). Null, with the cause in the log, if it cannot be
 * read. What the file does not say, or a missing file, leaves the machine's host name as the friendly name, the loopback
 * interface "lo", and UDP commands off.
 */
zel_net_config_t *zel_net_config_load(void);
/** Name of the unit's network interface; never null. Borrowed as the friendly name is. */
const char *zel_net_config_get_interface(const zel_net_config_t *config);
/** Release a handle; null is allowed. */
void zel_net_config_free(zel_net_config_t *config);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
#endif
