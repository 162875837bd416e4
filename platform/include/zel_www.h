/** The unit's web server: URL handlers of its libraries, and the forms that they are sent. */
#ifndef ZEL_WWW_H
#define ZEL_WWW_H

#include <stddef.h>

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

#ifdef __cplusplus
}
#endif
#pragma GCC visibility pop
#endif
