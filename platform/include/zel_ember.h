/**
 * Ember+ sessions: a provider listens and offers a tree of parameters, a consumer connects to one and follows parameters.
 *
 * The protocol's rules are those of the Ember+ documentation, Glow 2.50. One thread per session; callbacks run inside
 * zel_ember_process_fds.
 */
#ifndef ZEL_EMBER_H
#define ZEL_EMBER_H

#include <stddef.h>
#include <stdint.h>
#include <sys/select.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

typedef struct zel_ember_session zel_ember_session_t;
typedef struct zel_ember_element zel_ember_element_t;   /* a node or a parameter of a provider's tree */

/**
 * A consumer set a parameter, which holds the value already. `value`, valid during the call: int64_t * (enumeration, boolean)
 * or text. The result does not undo it. The callback may set parameters (this one too), add and remove elements (this one
 * too), and end the session; whoever looks at the parameter is told afterwards of the value that stands then.
 */
typedef int (*zel_ember_set_cb_t)(void *user_data, const char *client_addr, uint16_t client_port, zel_ember_element_t *param,
                                  const void *value);
/**
 * A followed parameter's value; `path` as it was asked for. `value`, valid during the call: text for `kind` 3 (string), int64_t *
 * for 1 (integer), 4 (boolean, 0 or 1), 5 (trigger) and 6 (index of an enumeration); null, with `kind` 0, when there is none.
 */
typedef void (*zel_ember_value_cb_t)(void *user_data, const char *path, uint32_t kind, const void *value);
typedef void (*zel_ember_connect_cb_t)(void *user_data, uint8_t connected, const char *address, uint16_t port);

typedef struct zel_ember_session_config {
    const char *provider_addr;          /* consumer: "address:port" to connect to; null for a provider */
    void *user_data;
    zel_ember_connect_cb_t connect_cb;  /* consumer only */
    const int32_t *timeout_s;           /* a silent link is taken for dead after this many seconds; null for the default */
    const char *bind_addr;              /* provider only: address to listen on; null for 127.0.0.1 */
    uint16_t listen_port;               /* provider only */
} zel_ember_session_config_t;

/** Start a session. The configuration is copied. Null on failure. A consumer connects, and reconnects, by itself. */
zel_ember_session_t *zel_ember_session_init(const zel_ember_session_config_t *config);
/** Close all links and release the session with its tree; null is allowed. */
void zel_ember_session_term(zel_ember_session_t *session);
/** Offer the session's one descriptor to the host's wait. */
void zel_ember_set_fds(zel_ember_session_t *session, fd_set *readfds, int *maxfd);
/** Do what is due; callbacks run here. */
void zel_ember_process_fds(zel_ember_session_t *session, fd_set *readfds);

/* Elements of a provider's tree. `number` 0: next free; `parent` null: the root. `access`: 1 read, 3 read and write. Texts
 * are copied. Null on failure. */
zel_ember_element_t *zel_ember_add_node(zel_ember_session_t *provider, const char *name, const char *description, int32_t number,
                                        zel_ember_element_t *parent);
zel_ember_element_t *zel_ember_add_string_param(zel_ember_session_t *provider, const char *name, const char *description,
                                                int32_t number, int access, const char *value, void *user_data,
                                                zel_ember_set_cb_t callback, zel_ember_element_t *parent);
/** `entries`: the names joined by line feeds; the value is an entry's index. */
zel_ember_element_t *zel_ember_add_enum_param(zel_ember_session_t *provider, const char *name, const char *description,
                                              int32_t number, int access, int64_t value, const char *entries, void *user_data,
                                              zel_ember_set_cb_t callback, zel_ember_element_t *parent);
zel_ember_element_t *zel_ember_add_boolean_param(zel_ember_session_t *provider, const char *name, const char *description,
                                                 int32_t number, int access, int value, void *user_data,
                                                 zel_ember_set_cb_t callback, zel_ember_element_t *parent);
/**
 * Provider: give a parameter a value and tell its subscribers; path, flags, timeout_ms, user_data and done are 0. Enumeration
 * or boolean: a native integer of length 1, 2, 4 or 8; string: text with its terminating zero. 0, or -1 (null provider,
 * parameter or value, a path, value that does not fit the parameter).
 *
 * Consumer: ask the provider to give the parameter at `path` (as for zel_ember_get_param) a value; param is null, flags 0. The
 * value is copied: a native integer of length 1, 2, 4 or 8 for integers, enumerations and booleans (any but 0 is true), text
 * for strings, where `length`, at most 16384, counts the terminating zero. Which of both the bytes are is decided by the
 * parameter's kind once it is found. Without a connection the request waits for one. `done`, which may be null, is called
 * once, from inside zel_ember_process_fds, with `user_data` and `path`: with the kind and value (as zel_ember_value_cb_t has
 * them) that the provider reports for the parameter after it was sent the value, which is another than the one asked for if it
 * did not take that one; or with kind 0 and null if the parameter is not there, is not writable or of another kind than the
 * value, or if nothing is reported within `timeout_ms` (0: 3000) or before the connection is lost. It may call every function
 * of the session and end it. It is not called any more once the session is ended. Values for one parameter are sent one after
 * the other. 0 if the request is under way, -1 if not: null path or value, no path, a parameter given, a length that is none
 * of these, 64 requests under way already, no memory.
 */
int zel_ember_set_param(zel_ember_session_t *session, const char *path, uint32_t flags, uint32_t timeout_ms,
                        zel_ember_element_t *param, const void *value, size_t length, void *user_data, zel_ember_value_cb_t done);
/**
 * Consumer: follow the parameter at `path` (identifiers joined by "/"). Calls back with the present value and every later
 * change, again after a reconnection, and with null for a path that the provider lacks. Asking again for a path replaces its
 * callback. -1 on failure. The callback may call this function, zel_ember_clear_param_cb and zel_ember_session_term.
 */
int zel_ember_get_param(zel_ember_session_t *session, const char *path, void *user_data, zel_ember_value_cb_t callback);
/** Consumer: stop following a path. -1 if it was not followed. */
int zel_ember_clear_param_cb(zel_ember_session_t *session, const char *path);
/** Remove an element with all below it, and tell connected consumers. 0, or -1 for a null provider or element. */
int zel_ember_remove_element(zel_ember_session_t *provider, zel_ember_element_t *element);
/** Identifiers from the root joined by "/", with a leading "/". 0, or non-zero when it does not fit `size` bytes. */
int zel_ember_get_path(zel_ember_session_t *provider, const zel_ember_element_t *element, char *buf, size_t size);
/** Provider: the port it listens on, which the system chose if the configuration said 0. 0 for anything but a provider. */
uint16_t zel_ember_get_port(zel_ember_session_t *provider);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
#endif
