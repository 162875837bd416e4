// The C border of provider sessions.

#include <zel_debug.h>

#include <cstring>
#include <exception>

#include "provider.h"

using zel::ember::element;
using zel::ember::element_kind;
using zel::ember::provider;

namespace {

provider *as_provider(zel_ember_session_t *session)
{
    const bool is_provider = session != nullptr && session->what() == zel_ember_session::role::provider;
    return is_provider ? static_cast<provider *>(session) : nullptr;
}

struct parameter_start {
    element_kind kind;
    int access;
    int64_t integer;
    const char *text, *entries;
    void *user_data;
    zel_ember_set_cb_t callback;
};

std::unique_ptr<element> make_draft(const char *name, const char *description, const parameter_start &start)
{
    auto draft = std::make_unique<element>();
    draft->kind = start.kind;
    draft->access = start.access;
    draft->identifier = name;
    draft->description = description != nullptr ? description : "";
    draft->integer = start.kind == element_kind::boolean ? start.integer != 0 : start.integer;
    draft->text = start.text != nullptr ? start.text : "";
    draft->entries = start.entries != nullptr ? start.entries : "";
    while (draft->entries.ends_with('\n'))     // controllers would show one more, empty entry
        draft->entries.pop_back();
    draft->user_data = start.user_data;
    draft->callback = start.callback;
    return draft;
}

element *add(zel_ember_session_t *session, const char *name, const char *description, int32_t number, element *parent,
             const parameter_start &start) noexcept
{
    provider *to = as_provider(session);
    if (to == nullptr || name == nullptr || number < 0 || start.access < 0 || start.access > 3 ||
        (parent != nullptr && !to->owns(parent))) {
        log_message(0, "%s: Invalid argument for '%s'\n", __func__, name != nullptr ? name : "");
        return nullptr;
    }
    try {
        return to->add(make_draft(name, description, start), parent, number);
    } catch (const std::exception &) {
        log_message(0, "%s: Out of memory for '%s'\n", __func__, name);
        return nullptr;
    }
}

}  // namespace

zel_ember_element_t *zel_ember_add_node(zel_ember_session_t *session, const char *name, const char *description, int32_t number,
                                        zel_ember_element_t *parent)
{
    return add(session, name, description, number, parent, {element_kind::node, 1, 0, nullptr, nullptr, nullptr, nullptr});
}

zel_ember_element_t *zel_ember_add_string_param(zel_ember_session_t *session, const char *name, const char *description,
                                                int32_t number, int access, const char *value, void *user_data,
                                                zel_ember_set_cb_t callback, zel_ember_element_t *parent)
{
    return add(session, name, description, number, parent,
               {element_kind::string, access, 0, value, nullptr, user_data, callback});
}

zel_ember_element_t *zel_ember_add_enum_param(zel_ember_session_t *session, const char *name, const char *description,
                                              int32_t number, int access, int64_t value, const char *entries, void *user_data,
                                              zel_ember_set_cb_t callback, zel_ember_element_t *parent)
{
    return add(session, name, description, number, parent,
               {element_kind::enumeration, access, value, nullptr, entries, user_data, callback});
}

zel_ember_element_t *zel_ember_add_boolean_param(zel_ember_session_t *session, const char *name, const char *description,
                                                 int32_t number, int access, int value, void *user_data,
                                                 zel_ember_set_cb_t callback, zel_ember_element_t *parent)
{
    return add(session, name, description, number, parent,
               {element_kind::boolean, access, value, nullptr, nullptr, user_data, callback});
}

int zel_ember_remove_element(zel_ember_session_t *session, zel_ember_element_t *which)
{
    provider *to = as_provider(session);
    if (to == nullptr || which == nullptr || !to->owns(which))
        return -1;
    to->remove(*which);
    return 0;
}

int zel_ember_get_path(zel_ember_session_t *session, const zel_ember_element_t *which, char *buf, size_t size)
{
    provider *to = as_provider(session);
    if (to == nullptr || which == nullptr || buf == nullptr || !to->owns(which))
        return -1;
    try {
        const std::string path = zel::ember::identifier_path(*which);
        if (path.size() >= size)
            return -1;
        std::memcpy(buf, path.c_str(), path.size() + 1);
        return 0;
    } catch (const std::exception &) {
        return -1;
    }
}

uint16_t zel_ember_get_port(zel_ember_session_t *session)
{
    const provider *of = as_provider(session);
    return of != nullptr ? of->port() : 0;
}
