#include "glow.h"

#include <algorithm>

namespace zel::ember::glow {

namespace {

using ber::application;
using ber::context;

constexpr uint8_t tag_root = application(0);
constexpr uint8_t tag_command = application(2);
constexpr uint8_t tag_element_collection = application(4);
constexpr uint8_t tag_root_collection = application(11);

struct element_form { uint8_t tag; bool is_parameter; bool is_qualified; };
constexpr element_form element_forms[] = {
    {application(1), true, false},
    {application(3), false, false},
    {application(9), true, true},
    {application(10), false, true},
};

std::string_view as_text(std::span<const uint8_t> bytes)
{
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

// What cannot be read as a value is none.
value to_value(const ber::item &found)
{
    value v;
    v.kind = value_kind::null;
    switch (found.tag) {
    case ber::tag_boolean:
        if (found.contents.size() == 1)
            v = {value_kind::boolean, found.contents[0] != 0, 0, {}};
        break;
    case ber::tag_integer:
        if (const auto number = ber::to_integer(found.contents))
            v = {value_kind::integer, *number, 0, {}};
        break;
    case ber::tag_real:
        if (const auto number = ber::to_real(found.contents))
            v = {value_kind::real, 0, *number, {}};
        break;
    case ber::tag_utf8:
        v = {value_kind::text, 0, 0, as_text(found.contents)};
        break;
    case ber::tag_octets:
        v = {value_kind::octets, 0, 0, as_text(found.contents)};
        break;
    default:
        break;
    }
    return v;
}

void take_text(std::optional<std::string_view> &field, const ber::item &found)
{
    if (found.tag == ber::tag_utf8)
        field = as_text(found.contents);
}

void take_integer(std::optional<int64_t> &field, const ber::item &found)
{
    if (found.tag == ber::tag_integer)
        field = ber::to_integer(found.contents);
}

void take_boolean(std::optional<bool> &field, const ber::item &found)
{
    if (found.tag == ber::tag_boolean && found.contents.size() == 1)
        field = found.contents[0] != 0;
}

void take_node_field(contents &c, uint8_t tag, const ber::item &found)
{
    switch (tag) {
    case context(node_field::identifier): take_text(c.identifier, found); break;
    case context(node_field::description): take_text(c.description, found); break;
    case context(node_field::is_online): take_boolean(c.online, found); break;
    default: break;
    }
}

void take_parameter_field(contents &c, uint8_t tag, const ber::item &found)
{
    switch (tag) {
    case context(parameter_field::identifier): take_text(c.identifier, found); break;
    case context(parameter_field::description): take_text(c.description, found); break;
    case context(parameter_field::value): c.current = to_value(found); break;
    case context(parameter_field::access): take_integer(c.access, found); break;
    case context(parameter_field::enumeration): take_text(c.enumeration, found); break;
    case context(parameter_field::is_online): take_boolean(c.online, found); break;
    case context(parameter_field::type): take_integer(c.type, found); break;
    case context(parameter_field::enum_map): c.has_enum_map = true; break;
    default: break;
    }
}

// One message on its way to a sink. Depth of recursion is bounded by the reader's own bound on containers.
class message_reader {
public:
    message_reader(std::span<const uint8_t> message, sink &to) : in_(message), to_(to) {}

    bool read()
    {
        for (ber::item found; in_.next(found);)
            if (found.tag == tag_root && in_.enter()) {
                read_root();
                in_.leave();
            }
        return !in_.failed();
    }

private:
    void read_root()
    {
        for (ber::item found; in_.next(found);)
            if ((found.tag == tag_root_collection || found.tag == tag_element_collection) && in_.enter()) {
                read_collection({});
                in_.leave();
            }
    }

    // Each entry is explicitly tagged [0]. True if a command stands among them.
    bool read_collection(const path &above)
    {
        bool commanded = false;
        for (ber::item entry; in_.next(entry);) {
            if (entry.tag != context(0) || !in_.enter())
                continue;
            for (ber::item found; in_.next(found);)
                commanded |= read_entry(found, above);
            in_.leave();
        }
        return commanded;
    }

    bool read_entry(const ber::item &found, const path &above)
    {
        if (found.tag == tag_command) {
            read_command(above);
            return true;
        }
        const auto form = std::ranges::find(element_forms, found.tag, &element_form::tag);
        if (form != std::end(element_forms) && in_.enter()) {
            read_element(*form, above);
            in_.leave();
        }
        return false;
    }

    void read_command(const path &above)
    {
        std::optional<int64_t> number;
        if (!in_.enter())
            return;
        for (ber::item field; in_.next(field);)
            if (field.tag == context(0))
                with_inner([&](const ber::item &inner) { take_integer(number, inner); });
        in_.leave();
        if (number && !in_.failed())
            to_.on_command(above, *number);
    }

    // Number or path, contents, children: the standard fixes this order, and without the first the rest means nothing.
    void read_element(const element_form &form, const path &above)
    {
        element e;
        e.is_parameter = form.is_parameter;
        bool placed = false, begun = false, commanded = false;
        for (ber::item field; in_.next(field);) {
            if (field.tag == context(0)) {
                with_inner([&](const ber::item &inner) { placed = place(e, form, above, inner); });
            } else if (placed && field.tag == context(1)) {
                read_contents(e);
            } else if (placed && field.tag == context(2) && !begun) {
                e.has_children = begun = true;
                to_.element_begin(e);
                with_inner([&](const ber::item &inner) { commanded |= read_children(inner, e.where); });
            }
        }
        if (!placed || in_.failed())
            return;
        if (!begun)
            to_.element_begin(e);
        to_.element_end(e, commanded);
    }

    bool place(element &e, const element_form &form, const path &above, const ber::item &inner)
    {
        if (form.is_qualified) {
            const auto count = inner.tag == ber::tag_relative_oid ? ber::to_path(inner.contents, e.where.numbers) : std::nullopt;
            e.where.count = static_cast<uint32_t>(count.value_or(0));
            return count.value_or(0) > 0;
        }
        std::optional<int64_t> number;
        take_integer(number, inner);
        e.where = above;
        return number && *number >= 0 && *number <= UINT32_MAX && e.where.push(static_cast<uint32_t>(*number));
    }

    void read_contents(element &e)
    {
        e.has_contents = true;
        with_inner([&](const ber::item &inner) {
            if (inner.tag != ber::tag_set || !in_.enter())
                return;
            for (ber::item field; in_.next(field);)
                with_inner([&](const ber::item &found) {
                    (e.is_parameter ? take_parameter_field : take_node_field)(e.contents, field.tag, found);
                });
            in_.leave();
        });
    }

    bool read_children(const ber::item &inner, const path &where)
    {
        if (inner.tag != tag_element_collection || !in_.enter())
            return false;
        const bool commanded = read_collection(where);
        in_.leave();
        return commanded;
    }

    // The one value inside an explicitly tagged field.
    template <typename use> void with_inner(use &&with)
    {
        if (!in_.enter())
            return;
        ber::item inner;
        if (in_.next(inner))
            with(inner);
        in_.leave();
    }

    ber::reader in_;
    sink &to_;
};

}  // namespace

bool path::push(uint32_t number)
{
    if (count == max_path)
        return false;
    numbers[count++] = number;
    return true;
}

path path::parent() const
{
    path above = *this;
    if (above.count > 0)
        --above.count;
    return above;
}

bool path::operator==(const path &other) const
{
    return std::ranges::equal(view(), other.view());
}

bool read_message(std::span<const uint8_t> message, sink &to)
{
    return message_reader(message, to).read();
}

}  // namespace zel::ember::glow
