/**
 * libzelgpio: the general-purpose inputs and outputs of a networked audio unit.
 *
 * The library runs inside a host process with a select() loop. The host describes its pins to zel_gpio_init, registers
 * handlers (what the unit does when an input fires) and triggers (what happened), adds the library's descriptors to its wait
 * and reports events. Users join inputs and triggers to outputs, relays and handlers as a grid.
 *
 * Rules that hold for every call:
 * - All calls come from the thread that called zel_gpio_init; nothing is locked. Handler callbacks run on that thread, inside
 *   the call that caused them. They may call back into the library (events, handler states, registering other names), but may
 *   not rename or deregister the handler that is being called.
 * - An int32_t result is 0 or an id for success and -1 for failure, unless said otherwise; failures are logged. No call throws.
 * - Texts given to the library are copied. Numbers of ports, buttons and ids count from 0.
 */
#ifndef ZEL_GPIO_H
#define ZEL_GPIO_H

#include <stdint.h>
#include <sys/select.h>

#include "zel_ember.h"
#include "zel_ipc.h"
#include "zel_json.h"
#include "zel_net.h"
#include "zel_www.h"

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define ZEL_GPIO_API __attribute__((visibility("default")))
#else
#define ZEL_GPIO_API
#endif

/** Entries of every list of triggers or handlers, slots of the handler table, and slots of the trigger table. */
#define ZEL_GPIO_LIST_SIZE 200
#define ZEL_GPIO_HANDLER_COUNT 200
#define ZEL_GPIO_TRIGGER_COUNT 200

/** One physical port of the host. A port has two pins, of which the one that its type needs is opened. */
typedef struct gpio_phys_cfg {
    int32_t in_pin;           /* platform pin while the port is an input */
    uint32_t in_active_low;   /* boolean */
    int32_t out_pin;          /* platform pin while it is an output */
    uint32_t out_active_low;  /* boolean */
    uint8_t cough;            /* boolean: a cough port, an input that is always momentary. These come last in the table. */
} gpio_phys_cfg_t;

/**
 * Called whenever a handler's state is evaluated, changed or not. `source`: index of the input port that drives it, the
 * handler's own id when a trigger or a change of its list does, -1 when zel_gpio_set_handler_state does. `state`: 0 or 1.
 * `context`: the driving port's input mode (0 latching, 1 momentary), else 0. The result is ignored.
 */
typedef int (*zel_gpio_handler_func_t)(void *arg, int32_t source, uint8_t state, uintptr_t context);

/** A handler. A slot is free while its name is null. Read only for the host. 2048 bytes where pointers have 32 bits. */
typedef struct handler {
    int32_t id;        /* slot index; -1 in a slot never used */
    char *name;
    zel_json_obj_t *json_obj;
    zel_gpio_handler_func_t func;
    void *arg;
    uint8_t state;     /* 1 while a trigger of its list is active or an input port asserts it */
    uint64_t port_mask; /* bit n: input port n asserts the handler; ports from 64 on have no bit */
    zel_ember_element_t *ember_param;
    uint8_t led_handler; /* made by zel_gpio_register_user_led_handler */
    uint8_t on_grid;
    char *trigger_names[ZEL_GPIO_LIST_SIZE];
    int32_t trig_ids[ZEL_GPIO_LIST_SIZE]; /* -1: no trigger of that name is registered */
    uint8_t trig_inv[ZEL_GPIO_LIST_SIZE];
    uint8_t allow_invert[ZEL_GPIO_LIST_SIZE]; /* 0: the entry's invert is locked to that of its mirror */
    int32_t num_trigs;
    int32_t active_trigs;
} handler_t;

/** A trigger. A slot is free while its name is null. Read only for the host. 16 bytes where pointers have 32 bits. */
typedef struct trigger {
    int32_t id;           /* slot index */
    char *name;
    uint8_t state;
    uint8_t port_trigger; /* raised by an input port of the library's own */
    uint8_t on_grid;
    zel_ember_element_t *ember_param;
} trigger_t;

extern ZEL_GPIO_API handler_t handler_list[ZEL_GPIO_HANDLER_COUNT];
extern ZEL_GPIO_API trigger_t trigger_list[ZEL_GPIO_TRIGGER_COUNT];

/* ---- Lifecycle and event loop ---- */

/**
 * Build everything from the host's description and the configuration file. Once per process. `phys_cfg`: `phys_count` entries
 * (0 to 20), copied. Relay r uses pin `relay_base_pin` + r. `udp_config`, `publish_config`: network configurations, borrowed
 * until zel_gpio_term. `ember_provider`, `ember_parent`: the tree's provider and the node to build it under, borrowed; either
 * null means no tree. `ember_port`: the provider's TCP port, announced with virtual outputs.
 * 0; -1 on a failure, which undoes nothing: the host calls zel_gpio_term. Without a configuration file, or with a null
 * `phys_cfg` for a count above 0, nothing is built and the result is 0.
 */
ZEL_GPIO_API int32_t zel_gpio_init(const gpio_phys_cfg_t *phys_cfg, int32_t phys_count, int32_t relay_base_pin,
                                   int32_t relay_count, int32_t virtual_count, int32_t user_button_count,
                                   zel_net_config_t *udp_config, zel_net_config_t *publish_config,
                                   zel_ember_session_t *ember_provider, uint16_t ember_port, zel_ember_element_t *ember_parent);
/** Release everything. No call but this header's counts is allowed afterwards. */
ZEL_GPIO_API void zel_gpio_term(void);
/** Add the library's descriptors to the sets before a wait. `maxfd` is raised as needed. `readfds` may be null, the others not. */
ZEL_GPIO_API void zel_gpio_set_fds(fd_set *readfds, fd_set *exceptfds, int *maxfd);
/** Handle what became ready, after every wait (with empty sets after a time-out). Handler callbacks run here. */
ZEL_GPIO_API void zel_gpio_process_fds(fd_set *readfds, fd_set *exceptfds);

/* ---- Pins ---- */

/** Give GPI port `index` a level (0 or 1) that came by a UDP command: an input takes it at the next zel_gpio_process_fds, an output
 *  at once. 1 if stored, 0 for a disabled port, -1 for an index that is no GPI port. */
ZEL_GPIO_API int32_t zel_gpio_set_udp_pin(int32_t index, uint8_t value);
/** The level last given. 0; -1 for an index that is no GPI port. */
ZEL_GPIO_API int32_t zel_gpio_get_udp_pin(int32_t index, uint8_t *value);
/** Make a GPI port an input (1), an output (2) or disabled (0). 1 if changed, 0 if it was so already, -1 if refused. */
ZEL_GPIO_API int32_t zel_gpio_set_pin_direction(int32_t index, uint32_t direction);
/** A GPI port's type: 0 disabled, 1 input, 2 output. 0; -1 for an index that is no GPI port. */
ZEL_GPIO_API int32_t zel_gpio_get_pin_direction(int32_t index, uint32_t *direction);
/** 1 if the LED of button/LED pair `number` is an output, else 0 (unknown numbers too, which are logged). */
ZEL_GPIO_API uint8_t zel_gpio_get_user_button_led_enabled(int32_t number);
/** Level of that LED, 0 or 1; 0 for unknown numbers, which are logged. */
ZEL_GPIO_API uint8_t zel_gpio_get_user_button_state(int32_t number);
/** Counts as the configuration file has them; 0 when it has none, -1 when it cannot be opened. */
ZEL_GPIO_API int32_t zel_gpio_get_phys_gpio_count(void);
ZEL_GPIO_API int32_t zel_gpio_get_virt_gpio_count(void);
ZEL_GPIO_API int32_t zel_gpio_get_relay_count(void);

/* ---- Handlers and triggers ---- */

/** Register a handler, and bind it to every saved connection that names it. Its id; -1 for null arguments, a name that is
 *  taken, or a full table. The callback may run at once. */
ZEL_GPIO_API int32_t zel_gpio_register_handler(const char *name, zel_gpio_handler_func_t func, void *arg);
/** Register the handler "User LED n" of LED `led_id` (0 to the number of buttons), n being `led_id` + 1. Its id, or -1. */
ZEL_GPIO_API int32_t zel_gpio_register_user_led_handler(int32_t led_id, zel_gpio_handler_func_t func, void *arg);
/** 0; -1 for null or unknown names, or a new name that a handler has already. Connections follow. */
ZEL_GPIO_API int32_t zel_gpio_rename_handler(const char *old_name, const char *new_name);
/** Take a handler out of all lists and free its slot. 0; -1 for a null or unknown name. */
ZEL_GPIO_API int32_t zel_gpio_deregister_handler(const char *name);
/** Register a trigger, and bind it as above. Its id, also when the name is registered already; -1 for a full table.
 *  `name` must not be null. */
ZEL_GPIO_API int32_t zel_gpio_register_trigger(const char *name);
/** 0; -1 for null or unknown names. The lists of ports follow; those of relays and handlers keep the old text and stay bound. */
ZEL_GPIO_API int32_t zel_gpio_rename_trigger(const char *old_name, const char *new_name);
/** Take a trigger out of all lists, end it and free its slot. 0; -1 for a null or unknown name. */
ZEL_GPIO_API int32_t zel_gpio_deregister_trigger(const char *name);
/** 1 if the handler is on, lists the trigger, and the trigger is active; else 0. */
ZEL_GPIO_API uint8_t zel_gpio_trig_id_active_for_handler(int32_t handler_id, int32_t trigger_id);

/* Ids of the well-known triggers; -1 for those that this unit does not have. */
ZEL_GPIO_API int32_t zel_gpio_primary_link_trig(void);
ZEL_GPIO_API int32_t zel_gpio_secondary_link_trig(void);
ZEL_GPIO_API int32_t zel_gpio_eth_link_trig(void);
ZEL_GPIO_API int32_t zel_gpio_aoip_link_trig(void);
ZEL_GPIO_API int32_t zel_gpio_ac_power_trig(void);
ZEL_GPIO_API int32_t zel_gpio_dc_power_trig(void);
ZEL_GPIO_API int32_t zel_gpio_poe1_power_trig(void);
ZEL_GPIO_API int32_t zel_gpio_poe2_power_trig(void);
ZEL_GPIO_API int32_t zel_gpio_ptp_clk_trig(void);

/* ---- Events ---- */

/** Report that a trigger's event began (1) or ended (0). Unknown ids and repeated states are ignored. */
ZEL_GPIO_API void zel_gpio_notify_trigger_event(int32_t trigger_id, uint8_t state);
/** Report a press of user button `button_id`, which flips its latched level. */
ZEL_GPIO_API void zel_gpio_notify_user_button_event(int32_t button_id);
/** Toggle a handler by hand, unless an input port asserts it, and drive the triggers of its list with its state. 0, or -1. */
ZEL_GPIO_API int32_t zel_gpio_set_handler_state(int32_t handler_id);

/* ---- Messages of the discovery daemon and the SNMP agent; called by the IPC library ---- */

ZEL_GPIO_API void zel_sdisc_ipc_cb(zel_ipc_client_t *client, uint8_t type, const void *payload, uint32_t length);
ZEL_GPIO_API void snmp_ipc_cb(zel_ipc_client_t *client, uint8_t type, const void *payload, uint32_t length);

/* ---- Web endpoints "/cgi/gpioGrid.cgi" and "/cgi/gpioConn.cgi", and their form keys ---- */

extern ZEL_GPIO_API const zel_web_url_handler_t url_handler_gpioGrid;
extern ZEL_GPIO_API const zel_web_url_handler_t url_handler_gpioConn;
extern ZEL_GPIO_API const char *const gpio_grid_get_str[7];  /* six keys, then a null */
extern ZEL_GPIO_API const char *const gpio_conn_str[7];

/* ---- The list of remote virtual outputs ---- */

/** A virtual output of another unit. Its strings belong to the list. */
typedef struct vGPO {
    uint32_t id;           /* lowest number free in the list, given by vgpo_list_add_last */
    char *name;            /* service name, the key of every lookup */
    char *addr_port;       /* "address:port" of its provider; null until resolved, as are the paths */
    char *type_path;
    char *status_path;
    int32_t type_retries;  /* consecutive empty answers */
    int32_t state_retries;
    zel_ember_element_t *ember_param;
} vGPO_t;

typedef struct vgpo_node {
    vGPO_t *vgpo;
    struct vgpo_node *next;
} vgpo_node_t;

typedef struct vgpo_list {
    vgpo_node_t *head;
    vgpo_node_t *tail;
    uint32_t count;
} vgpo_list_t;

/* Null arguments are programming errors and stop the process. */

/** Make the list empty, releasing nothing. */
ZEL_GPIO_API void vgpo_list_init(vgpo_list_t *list);
/** Give the record an id and append it; the list owns it and its strings from then on. Does nothing if memory is short. */
ZEL_GPIO_API void vgpo_list_add_last(vgpo_list_t *list, vGPO_t *vgpo);
/** Release all nodes, records and strings, removed records included; the list is then empty. */
ZEL_GPIO_API void vgpo_list_free(vgpo_list_t *list);
/** The first record of that name, or null. Borrowed until it is removed. */
ZEL_GPIO_API vGPO_t *find_vgpo_by_name(vgpo_list_t *list, const char *name);
/** Remove the first record of that name and release its strings; the emptied record itself is released with the list. */
ZEL_GPIO_API void remove_vgpo(vgpo_list_t *list, const char *name);

#ifdef __cplusplus
}
#endif
#endif
