// The C border of consumer sessions.

#include <zel_debug.h>

#include <exception>

#include "consumer.h"

using zel::ember::consumer;

namespace {

consumer *as_consumer(zel_ember_session_t *session)
{
    const bool is_consumer = session != nullptr && session->what() == zel_ember_session::role::consumer;
    return is_consumer ? static_cast<consumer *>(session) : nullptr;
}

}  // namespace

int zel_ember_get_param(zel_ember_session_t *session, const char *path, void *user_data, zel_ember_value_cb_t callback)
{
    consumer *from = as_consumer(session);
    if (from == nullptr || path == nullptr || callback == nullptr)
        return -1;
    try {
        return from->follow(path, user_data, callback) ? 0 : -1;
    } catch (const std::exception &) {
        log_message(0, "%s: Out of memory for '%s'\n", __func__, path);
        return -1;
    }
}

int zel_ember_clear_param_cb(zel_ember_session_t *session, const char *path)
{
    consumer *from = as_consumer(session);
    if (from == nullptr || path == nullptr)
        return -1;
    try {
        return from->stop_following(path) ? 0 : -1;
    } catch (const std::exception &) {
        return -1;
    }
}
