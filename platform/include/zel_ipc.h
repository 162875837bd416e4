/**
 * Messages between the processes of one unit, over local sockets in "/run/zel" below the unit's root.
 *
 * A message is a type byte and a payload; messages are whole, ordered, never merged or split. Link events arrive as
 * messages too: type 1 when the link was made, type 0 when it was lost, each with a non-empty payload.
 * One thread per client or server.
 */
#ifndef ZEL_IPC_H
#define ZEL_IPC_H

#include <stdint.h>
#include <sys/select.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

typedef struct zel_ipc_client zel_ipc_client_t;

/** A message or link event. `payload` is borrowed for the call. May send, and may end its own client. */
typedef void (*zel_ipc_client_cb_t)(zel_ipc_client_t *client, uint8_t type, const void *payload, uint32_t length);

/**
 * Make a client of the server named `server`, known to it as `name`. The server need not run yet: messages sent before the
 * first connection are kept in order, within a bound, and delivered when the link comes up. After a lost link the client
 * reconnects by itself; meanwhile sends return -1. Null on failure.
 */
zel_ipc_client_t *zel_ipc_client_init(const char *server, const char *name, zel_ipc_client_cb_t callback, void *user_data);
/** Send one message; `payload` is copied. 0, or -1 (no link, full queue, too long, null client). */
int zel_ipc_client_send(zel_ipc_client_t *client, uint8_t type, const void *payload, uint32_t length);
/** Offer the client's one descriptor to the host's wait. */
void zel_ipc_client_set_fds(zel_ipc_client_t *client, fd_set *readfds, int *maxfd);
/** Do what is due: connecting, receiving (callbacks run here), writing what did not fit. */
void zel_ipc_client_process_fds(zel_ipc_client_t *client, fd_set *readfds);
/** Close the link and release the client; null is allowed. */
void zel_ipc_client_term(zel_ipc_client_t *client);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
#endif
