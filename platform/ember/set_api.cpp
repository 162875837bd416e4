// The C border of setting parameters, a provider's own and those of a consumer's provider.

#include <zel_debug.h>

#include <cstring>
#include <exception>

#include "consumer.h"
#include "native_value.h"
#include "provider.h"

using zel::ember::consumer;
using zel::ember::element;
using zel::ember::element_kind;
using zel::ember::load_integer;
using zel::ember::provider;

namespace {

int set_value(provider &session, element &parameter, const void *value, size_t length)
{
    if (parameter.is_text()) {
        const auto *text = static_cast<const char *>(value);
        const size_t size = strnlen(text, length);
        if (size == length)
            return -1;
        session.set_text(parameter, {text, size});
        return 0;
    }
    int64_t number = 0;
    if (!load_integer(value, length, number))
        return -1;
    session.set_integer(parameter, parameter.kind == element_kind::boolean ? number != 0 : number);
    return 0;
}

int set_own(provider &session, const char *path, element *parameter, const void *value, size_t length)
{
    if (path != nullptr || parameter == nullptr || !session.owns(parameter) || !parameter->is_parameter())
        return -1;
    return set_value(session, *parameter, value, length);
}

}  // namespace

int zel_ember_set_param(zel_ember_session_t *session, const char *path, uint32_t, uint32_t timeout_ms, zel_ember_element_t *param,
                        const void *value, size_t length, void *user_data, zel_ember_value_cb_t done)
{
    if (session == nullptr || value == nullptr)
        return -1;
    try {
        if (session->what() == zel_ember_session::role::provider)
            return set_own(static_cast<provider &>(*session), path, param, value, length);
        if (path == nullptr || param != nullptr)
            return -1;
        return static_cast<consumer *>(session)->set(path, timeout_ms, value, length, {user_data, done}) ? 0 : -1;
    } catch (const std::exception &) {
        log_message(0, "%s: Out of memory\n", __func__);
        return -1;
    }
}
