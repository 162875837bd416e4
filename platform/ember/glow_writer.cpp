#include "glow.h"

namespace zel::ember::glow {

using ber::application;
using ber::context;

void close_root(ber::writer &w, size_t mark)
{
    w.header(application(11), mark);
    w.header(application(0), mark);
}

void close_entry(ber::writer &w, size_t mark)
{
    w.header(context(0), mark);
}

void close_children(ber::writer &w, size_t mark)
{
    w.header(application(4), mark);
    w.header(context(2), mark);
}

void close_contents(ber::writer &w, size_t mark)
{
    w.header(ber::tag_set, mark);
    w.header(context(1), mark);
}

void close_qualified(ber::writer &w, bool is_parameter, std::span<const uint32_t> where, size_t mark)
{
    const size_t field = w.mark();
    w.path(where);
    w.header(context(0), field);
    w.header(application(is_parameter ? 9 : 10), mark);
    close_entry(w, mark);
}

void close_numbered(ber::writer &w, bool is_parameter, uint32_t number, size_t mark)
{
    put_integer(w, 0, number);
    w.header(application(is_parameter ? 1 : 3), mark);
    close_entry(w, mark);
}

void put_integer(ber::writer &w, unsigned field, int64_t value)
{
    const size_t mark = w.mark();
    w.integer(value);
    w.header(context(field), mark);
}

void put_boolean(ber::writer &w, unsigned field, bool value)
{
    const size_t mark = w.mark();
    w.boolean(value);
    w.header(context(field), mark);
}

void put_utf8(ber::writer &w, unsigned field, std::string_view value)
{
    const size_t mark = w.mark();
    w.utf8(value);
    w.header(context(field), mark);
}

void write_command(ber::writer &w, std::span<const uint32_t> where, bool is_parameter, int64_t number)
{
    const size_t mark = w.mark();
    put_integer(w, 0, number);
    w.header(application(2), mark);
    close_entry(w, mark);
    if (!where.empty()) {
        close_children(w, mark);
        close_qualified(w, is_parameter, where, mark);
    }
    close_root(w, mark);
}

void write_value(ber::writer &w, std::span<const uint32_t> where, const value &what)
{
    const size_t mark = w.mark();
    if (what.kind == value_kind::text)
        put_utf8(w, parameter_field::value, what.text);
    else if (what.kind == value_kind::boolean)
        put_boolean(w, parameter_field::value, what.integer != 0);
    else
        put_integer(w, parameter_field::value, what.integer);
    close_contents(w, mark);
    close_qualified(w, true, where, mark);
    close_root(w, mark);
}

}  // namespace zel::ember::glow
