// The server's calls in a build without it: it does not open, and all else is as with a null server.
#include "zel_www.h"

#include "zel_debug.h"

zel_web_server_t *zel_web_server_open(const zel_web_server_config_t *)
{
    log_message(0, "%s: Built without the web server\n", __func__);
    return nullptr;
}

void zel_web_server_close(zel_web_server_t *) {}
void zel_web_server_set_fds(zel_web_server_t *, fd_set *, int *) {}
void zel_web_server_process_fds(zel_web_server_t *, fd_set *) {}
uint16_t zel_web_server_get_port(const zel_web_server_t *) { return 0; }
int zel_web_server_needs_login(zel_web_server_t *) { return 0; }
int zel_web_server_add_document(zel_web_server_t *, const char *, int, zel_web_document_cb_t, void *) { return -1; }
int zel_web_reply_text(zel_web_reply_t *, int, const char *, const void *, size_t) { return -1; }
int zel_web_server_set_event_stream(zel_web_server_t *, const char *, zel_web_greet_cb_t, void *) { return -1; }
int zel_web_server_listener_count(const zel_web_server_t *) { return 0; }
int zel_web_server_send_event(zel_web_server_t *, const char *, const char *) { return -1; }
int zel_web_listener_send(zel_web_listener_t *, const char *, const char *) { return -1; }

int zel_web_users_set(const char *, const char *, const char *)
{
    log_message(0, "%s: Built without the web server\n", __func__);
    return -1;
}
