#include "provider_messages.h"

namespace zel::ember {

namespace {

namespace node_field = glow::node_field;
namespace parameter_field = glow::parameter_field;

int64_t type_of(const element &parameter)
{
    switch (parameter.kind) {
    case element_kind::string: return glow::type_string;
    case element_kind::boolean: return glow::type_boolean;
    case element_kind::enumeration: return glow::type_enum;
    default: return glow::type_null;
    }
}

void put_value(ber::writer &w, const element &parameter)
{
    if (parameter.kind == element_kind::string)
        glow::put_utf8(w, parameter_field::value, parameter.text);
    else if (parameter.kind == element_kind::boolean)
        glow::put_boolean(w, parameter_field::value, parameter.integer != 0);
    else
        glow::put_integer(w, parameter_field::value, parameter.integer);
}

// Common consumers find an element by its description as well: one that equals the identifier says nothing and is left out.
void put_names(ber::writer &w, const element &e)
{
    static_assert(+node_field::description == +parameter_field::description);
    static_assert(+node_field::identifier == +parameter_field::identifier);
    if (!e.description.empty() && e.description != e.identifier)
        glow::put_utf8(w, node_field::description, e.description);
    glow::put_utf8(w, node_field::identifier, e.identifier);
}

// A controller that knows the element as offline believes so until it is told otherwise.
void put_contents(ber::writer &w, const element &e)
{
    const size_t mark = w.mark();
    if (!e.is_parameter() && e.has_come_back)
        glow::put_boolean(w, node_field::is_online, true);
    if (e.is_parameter()) {
        glow::put_integer(w, parameter_field::type, type_of(e));
        if (e.has_come_back)
            glow::put_boolean(w, parameter_field::is_online, true);
        if (!e.entries.empty())
            glow::put_utf8(w, parameter_field::enumeration, e.entries);
        glow::put_integer(w, parameter_field::access, e.access);
        put_value(w, e);
    }
    put_names(w, e);
    glow::close_contents(w, mark);
}

void put_numbered_children(ber::writer &w, const element &e)
{
    for (size_t i = e.children.size(); i-- > 0;) {
        const element &child = *e.children[i];
        const size_t mark = w.mark();
        put_contents(w, child);
        glow::close_numbered(w, child.is_parameter(), static_cast<uint32_t>(child.number), mark);
    }
}

}  // namespace

// The type is repeated because a common consumer forgets what an update does not say.
void write_notice(ber::writer &w, const element &parameter)
{
    const size_t mark = w.mark();
    glow::put_integer(w, parameter_field::type, type_of(parameter));
    put_value(w, parameter);
    glow::close_contents(w, mark);
    glow::close_qualified(w, true, tree::path_of(parameter).view(), mark);
    glow::close_root(w, mark);
}

// Children stand inside the element that was asked, because a consumer waits for an answer with that element's path. A node
// without children is answered bare: with contents, a common consumer would go on waiting.
void write_directory(ber::writer &w, const element &e)
{
    const size_t mark = w.mark();
    if (e.is_parameter()) {
        put_contents(w, e);
    } else {
        put_numbered_children(w, e);
        if (e.parent != nullptr && !e.children.empty())
            glow::close_children(w, mark);
    }
    if (e.parent != nullptr)
        glow::close_qualified(w, e.is_parameter(), tree::path_of(e).view(), mark);
    glow::close_root(w, mark);
}

void write_announcement(ber::writer &w, const element &e)
{
    const size_t mark = w.mark();
    put_contents(w, e);
    glow::close_qualified(w, e.is_parameter(), tree::path_of(e).view(), mark);
    glow::close_root(w, mark);
}

// More than "offline" alone, because a common consumer forgets what an update does not say.
void write_farewell(ber::writer &w, const element &e)
{
    const size_t mark = w.mark();
    if (e.is_parameter()) {
        glow::put_integer(w, parameter_field::type, type_of(e));
        glow::put_boolean(w, parameter_field::is_online, false);
        glow::put_integer(w, parameter_field::access, e.access);
        put_value(w, e);
        glow::put_utf8(w, parameter_field::identifier, e.identifier);
    } else {
        glow::put_boolean(w, node_field::is_online, false);
        glow::put_utf8(w, node_field::identifier, e.identifier);
    }
    glow::close_contents(w, mark);
    glow::close_qualified(w, e.is_parameter(), tree::path_of(e).view(), mark);
    glow::close_root(w, mark);
}

}  // namespace zel::ember
