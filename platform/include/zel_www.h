/** The unit's web server: URL handlers of its libraries, and the forms that they are sent. */
#ifndef ZEL_WWW_H
#define ZEL_WWW_H

#include <stddef.h>
#include <stdint.h>
#include <sys/select.h>

#pragma GCC visibility push(default)
#ifdef __cplusplus
extern "C" {
#endif

/**
 * Serves one request. `query` is the raw text behind '?', `body` the raw body; either may be null. On entry *status is 200
 * and *reply null; the handler points *reply at its text (usually in `buf`, which holds `size` bytes) and sets *reply_len.
 * Returns 1 if it handled the request.
 */
typedef int (*zel_web_handler_func_t)(void *context, const char *query, size_t query_len, const char *body, size_t body_len,
                                      int *status, char **reply, size_t *reply_len, void *reserved, char *buf, size_t size);
typedef struct zel_web_url_handler { const char *path; zel_web_handler_func_t func; } zel_web_url_handler_t;
typedef struct zel_web_kvp { int key; const char *value; } zel_web_kvp_t;

/**
 * Add a handler for its path; the record is kept by reference and must stay. 0, or -1 (logged): null record or function, path
 * that does not begin with '/', path that has a handler already, or the table is full (64). From the server's thread only.
 */
int zel_web_server_add_handler(const zel_web_url_handler_t *handler);
/**
 * Split form or query text into the pairs whose keys are in the null-terminated table `keys`. Decodes in place: values point
 * into `text`. Returns the number found, at most `max_pairs`, in the text's order; unused pairs become {-1, null}. A piece
 * without '=' is skipped; of a repeated key the first counts.
 *
 * '+' is a blank and %XX a byte, in keys and values. What is no such sequence stays as it is written, and so does %00: a
 * zero byte would end the value unseen. Bytes are not checked to be UTF-8.
 */
int zel_web_get_kvp(char *text, const char *const *keys, zel_web_kvp_t *pairs, int max_pairs);
/** Text of the key with this index, or null. */
const char *zel_web_key_val(int key, const zel_web_kvp_t *pairs, int max_pairs);
/**
 * Number of the key with this index: digits behind an optional sign, nothing else. 0, or -1 if it is absent, no such number
 * or beyond a long; *number is then left alone.
 */
int zel_web_key_valtol(int key, const zel_web_kvp_t *pairs, int max_pairs, long *number);
/** The handler whose path equals `path`, or null. */
const zel_web_url_handler_t *zel_web_server_find_handler(const char *path);

/* ---- The server: HTTP/1.1 on one port, for hosts with a select() loop. What follows is for the host, not for the library. ----
 *
 * One thread: all calls come from the thread that opened the server, and callbacks run inside zel_web_server_process_fds. The
 * host ignores SIGPIPE. The server gives the handlers of zel_web_server_add_handler, the host's own documents, one stream of
 * events and the files below a folder; it answers GET, HEAD and POST.
 *
 * Who may ask: the request's Host must name this server (an address or name of this machine, or one of `names`), and an Origin,
 * if there is one, must be the same host. A POST needs an Origin or a Referer. Everything else is refused with 403.
 */
typedef struct zel_web_server zel_web_server_t;
typedef struct zel_web_reply zel_web_reply_t;
typedef struct zel_web_listener zel_web_listener_t;

/** All texts are copied. */
typedef struct zel_web_server_config {
    const char *address;              /* numeric IPv4 or IPv6 address to listen on; null: 127.0.0.1 */
    uint16_t port;                    /* 0: one that the system chooses */
    const char *folder;               /* the files that are given to anybody who may ask; null: none */
    const char *const *names;         /* null-terminated: names besides the machine's own that a Host may have; null: none */
    const char *users_file;           /* who may log in; null: nobody needs to */
    void (*before_request)(void *user_data);   /* called before each request is answered; null: nothing */
    void *user_data;                  /* of before_request */
    uint32_t idle_ms;                 /* a silent connection is closed (rounded up to seconds); 0: 10000 */
    uint32_t request_ms;              /* a request that is not whole by then is given up; 0: 15000 */
    uint32_t reply_ms;                /* a reply that is not fetched by then is given up; 0: 60000 */
    uint32_t alive_ms;                /* listeners to events hear something at least this often; 0: 5000 */
    uint32_t connections_max;         /* further ones wait; 0: 64 */
    uint32_t listeners_max;           /* to events; further ones are refused with 503; 0: 16 */
} zel_web_server_config_t;

/** One request for a document. The texts are borrowed for the call and may hold zero bytes; `query` and `body` are raw. */
typedef struct zel_web_request {
    const char *method;               /* "GET" or "POST"; HEAD comes as GET */
    const char *path;                 /* decoded */
    const char *query;                /* the text behind '?', zero-terminated; "" for none */
    size_t query_len;
    const char *body;                 /* a form as it was sent, zero-terminated; at most 65536 bytes */
    size_t body_len;
} zel_web_request_t;

/** Answers a request by calling zel_web_reply_text once; if it does not, the answer is 500. It may send events. */
typedef void (*zel_web_document_cb_t)(void *user_data, const zel_web_request_t *request, zel_web_reply_t *reply);
/** A listener has come: what zel_web_listener_send gives it here is the first that it hears. It is borrowed for the call. */
typedef void (*zel_web_greet_cb_t)(void *user_data, zel_web_listener_t *listener);

enum { ZEL_WEB_GET = 1, ZEL_WEB_POST = 2 };

/** Listen. The configuration is copied. Null on failure (port taken, no memory, built without the server),
    with the cause in the log. */
zel_web_server_t *zel_web_server_open(const zel_web_server_config_t *config);
/** Close all connections and release the server; null is allowed. Not from a callback of its own. */
void zel_web_server_close(zel_web_server_t *server);
/** Offer the server's one descriptor to the host's wait. Its time-outs are behind the same descriptor. */
void zel_web_server_set_fds(zel_web_server_t *server, fd_set *readfds, int *maxfd);
/** Do what is due; callbacks run here. A null set means that the descriptor may be ready. */
void zel_web_server_process_fds(zel_web_server_t *server, fd_set *readfds);
/** The port it listens on; 0 for a null server. */
uint16_t zel_web_server_get_port(const zel_web_server_t *server);
/** 1 if its clients have to log in (the users file has a user, or cannot be read), else 0. */
int zel_web_server_needs_login(zel_web_server_t *server);

/**
 * Give a document at `path` (which begins with '/', and has none yet). `methods`: ZEL_WEB_GET, ZEL_WEB_POST or both. 0, or -1
 * (logged). Documents go before the handlers of zel_web_server_add_handler, and those before files.
 */
int zel_web_server_add_document(zel_web_server_t *server, const char *path, int methods, zel_web_document_cb_t callback,
                                void *user_data);
/** The answer: a status from 200 to 599, a content type, and `length` bytes, which are copied. 0, or -1 if it cannot be. */
int zel_web_reply_text(zel_web_reply_t *reply, int status, const char *content_type, const void *text, size_t length);

/** Give the stream of events at `path` (text/event-stream). `greet` may be null. One stream per server. 0, or -1 (logged). */
int zel_web_server_set_event_stream(zel_web_server_t *server, const char *path, zel_web_greet_cb_t greet, void *user_data);
/** How many listeners there are. */
int zel_web_server_listener_count(const zel_web_server_t *server);
/**
 * Send an event to all listeners, in the order of the calls. `event`: its name, without line feeds; `data`: its text. Nothing is
 * waited for: what a listener does not read is kept, up to 256 KiB, beyond which that listener is dropped. 0, or -1 for want of
 * memory (who could not be told is dropped, so that no listener misses an event unknowingly).
 */
int zel_web_server_send_event(zel_web_server_t *server, const char *event, const char *data);
/** Send an event to one listener. 0 or -1, as above. */
int zel_web_listener_send(zel_web_listener_t *listener, const char *event, const char *data);

/**
 * Add a user to a users file, or give a user another password; the file is made if it is not there, for its owner only. `user`:
 * 1 to 64 printable ASCII characters without ':'; `password`: 1 to 256 bytes. Only a salted hash is stored. 0, or -1 with the
 * cause in the log. Takes some ten milliseconds by design.
 */
int zel_web_users_set(const char *users_file, const char *user, const char *password);

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
#endif
