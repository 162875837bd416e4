/**
 * Messages between the processes of one unit, over local sockets in "/run/zel" below the unit's root.
 *
 * A message is a type byte and a payload; messages are whole, ordered, never merged or split. Link events arrive as
 * messages too: type 1 when the link was made, type 0 when it was lost, each with a non-empty payload (the server's name,
 * zero-terminated). One thread per client or server.
 *
 * A process trusts its own user and root, nobody else: sockets have mode 0600, and both ends check who is at the other.
 */
#ifndef ZEL_IPC_H
#define ZEL_IPC_H

#include <stdint.h>
#include <sys/select.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

#define ZEL_IPC_MAX_PAYLOAD 65536   /* bytes in one message */
#define ZEL_IPC_MAX_NAME 63         /* characters in the name of a server or client: letters, digits, '_', '-', '.'; the first no '.' */
#define ZEL_IPC_LINK_LOST 0         /* types of the link events; never sent or received as messages */
#define ZEL_IPC_LINK_MADE 1

typedef struct zel_ipc_client zel_ipc_client_t;

/** A message or link event. `payload` is borrowed for the call. May send, and may end its own client. */
typedef void (*zel_ipc_client_cb_t)(zel_ipc_client_t *client, uint8_t type, const void *payload, uint32_t length);

/**
 * Make a client of the server named `server`, known to it as `name`. The server need not run yet: messages sent before the
 * first connection are kept in order, within a bound, and delivered when the link comes up. After a lost link the client
 * reconnects by itself; meanwhile sends return -1. Null on failure.
 *
 * The callback is called from inside zel_ipc_client_process_fds() only. Type 1 comes before anything the server sent; what
 * was sent before is delivered before anything that is sent from inside that call. The bound is 4096 messages or 4 MiB,
 * once for what is sent before the first link and once for what a link has no room for. What is still kept when a link is
 * lost goes with it, except what was sent before the first link: that waits for the next one.
 */
zel_ipc_client_t *zel_ipc_client_init(const char *server, const char *name, zel_ipc_client_cb_t callback, void *user_data);
/** Send one message; `payload` is copied. 0, or -1 (no link, full queue, too long, null client). Types 2 to 255. Never waits. */
int zel_ipc_client_send(zel_ipc_client_t *client, uint8_t type, const void *payload, uint32_t length);
/** Offer the client's one descriptor to the host's wait. */
void zel_ipc_client_set_fds(zel_ipc_client_t *client, fd_set *readfds, int *maxfd);
/**
 * Do what is due: connecting, receiving (callbacks run here), writing what did not fit. Does nothing when the client's
 * descriptor is not in `readfds`; a null set looks for itself (for hosts that do not use select()). Never waits.
 */
void zel_ipc_client_process_fds(zel_ipc_client_t *client, fd_set *readfds);
/** Close the link and release the client; null is allowed. What the link has room for is still sent. */
void zel_ipc_client_term(zel_ipc_client_t *client);

/** The client's one descriptor, readable when something is due: for hosts that use poll() or epoll. -1 for a null client. */
int zel_ipc_client_fd(const zel_ipc_client_t *client);
/** The pointer given to zel_ipc_client_init(); null for a null client. */
void *zel_ipc_client_user_data(const zel_ipc_client_t *client);

/*
 * The other end: a server of one name has any number of clients within a bound.
 */
typedef struct zel_ipc_server zel_ipc_server_t;

/** A client as its server sees it. Borrowed in callbacks: valid for the call, also when the call disconnects the client. */
typedef struct zel_ipc_peer {
    uint32_t id;          /* never 0; not given again before some four million other clients came */
    int32_t pid;          /* the process and user that connected, as the kernel knows them */
    uint32_t uid;
    const char *name;     /* its own name for itself; valid characters only */
} zel_ipc_peer_t;

/** All zero is a working configuration. Callbacks may be null. */
typedef struct zel_ipc_server_config {
    void *user_data;
    /*
     * Called from inside zel_ipc_server_process_fds() only. Each may send to any client, disconnect any and end the server.
     * Each client has one `connected`, then its messages (`payload` is borrowed for the call, never null), then one
     * `disconnected`, whoever ended the link; only zel_ipc_server_term() ends links without a call.
     */
    void (*connected)(zel_ipc_server_t *server, void *user_data, const zel_ipc_peer_t *peer);
    void (*message)(zel_ipc_server_t *server, void *user_data, const zel_ipc_peer_t *peer, uint8_t type, const void *payload,
                    uint32_t length);
    void (*disconnected)(zel_ipc_server_t *server, void *user_data, const zel_ipc_peer_t *peer);
    uint32_t max_clients;           /* 0: 128; at most 1024. Further clients are turned away and try again */
    uint32_t max_queue_messages;    /* that may wait for one client; 0: 4096 */
    uint32_t max_queue_bytes;       /* that may wait for one client, some bytes per message included; 0: 1 MiB */
    uint32_t greeting_timeout_ms;   /* a connection that does not say who it is is closed after this; 0: 5000 */
    uint8_t pause_slow_clients;     /* 1: nothing is read from a client while more than half of its queue is used */
    uint8_t unique_names;           /* 1: a new client replaces an older one of the same name, whose last messages are
                                       read and whose `disconnected` comes first. 0: names may be used several times */
} zel_ipc_server_config_t;

/**
 * Serve clients under `name`. Null on failure (logged), so also when a server of this name runs already; the socket of one
 * that died is replaced. `config` is copied; null is all zero.
 */
zel_ipc_server_t *zel_ipc_server_init(const char *name, const zel_ipc_server_config_t *config);
/**
 * Send one message to one client; `payload` is copied. Types 2 to 255. 0, or -1: no such client, it is about to be
 * disconnected, or the message is refused. A client whose queue is full does not read: it is disconnected. Never waits.
 */
int zel_ipc_server_send(zel_ipc_server_t *server, uint32_t id, uint8_t type, const void *payload, uint32_t length);
/** End the link to one client: it is not heard any more, and its `disconnected` follows. 0, or -1 if there is no such client. */
int zel_ipc_server_disconnect(zel_ipc_server_t *server, uint32_t id);
/**
 * Walk over the connected clients: `*cursor` is 0 to begin. 1 with the next client in `*peer` (its name is borrowed until
 * process_fds), or 0 at the end. Sending and disconnecting during the walk are allowed.
 */
int zel_ipc_server_next_client(const zel_ipc_server_t *server, uint32_t *cursor, zel_ipc_peer_t *peer);
/** Offer the server's one descriptor to the host's wait. */
void zel_ipc_server_set_fds(zel_ipc_server_t *server, fd_set *readfds, int *maxfd);
/** Do what is due; callbacks run here. `readfds` as for zel_ipc_client_process_fds(). */
void zel_ipc_server_process_fds(zel_ipc_server_t *server, fd_set *readfds);
/** The server's one descriptor, readable when something is due; -1 for a null server. */
int zel_ipc_server_fd(const zel_ipc_server_t *server);
/** Close all links, remove the socket, release the server; null is allowed. What the links have room for is still sent. */
void zel_ipc_server_term(zel_ipc_server_t *server);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
#endif
