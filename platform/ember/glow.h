// Glow: what a message says about elements of a tree. A reader that reports elements and commands in the order in which
// they stand, whatever form the sender chose, and writers for the few forms that every peer understands.
#pragma once

#include "ber.h"

namespace zel::ember::glow {

constexpr size_t max_path = 32;

struct path {
    uint32_t count = 0;
    std::array<uint32_t, max_path> numbers{};

    std::span<const uint32_t> view() const { return {numbers.data(), count}; }
    bool push(uint32_t number);      // false: too deep
    path parent() const;             // of an empty path: itself
    bool operator==(const path &other) const;
};

enum class value_kind : uint8_t { absent, null, integer, real, text, boolean, octets };

// Borrowed from the message.
struct value {
    value_kind kind = value_kind::absent;
    int64_t integer = 0;             // of a boolean 0 or 1
    double real = 0;
    std::string_view text;           // of octets too
};

enum parameter_type : int64_t {
    type_null = 0, type_integer, type_real, type_string, type_boolean, type_trigger, type_enum, type_octets
};
enum access : int64_t { access_none = 0, access_read, access_write, access_read_write };
enum command : int64_t { command_subscribe = 30, command_unsubscribe = 31, command_get_directory = 32, command_invoke = 33 };

// What contents may say; borrowed from the message. An absent field leaves what is known as it is.
struct contents {
    std::optional<std::string_view> identifier, description, enumeration;
    value current;
    std::optional<int64_t> access, type;
    std::optional<bool> online;
    bool has_enum_map = false;
};

struct element {
    path where;
    bool is_parameter = false;
    bool has_contents = false;
    bool has_children = false;       // a collection of children is there, be it empty
    glow::contents contents;
};

class sink {
public:
    virtual ~sink() = default;
    // Contents are complete; children follow, then the element's end.
    virtual void element_begin(const element &) {}
    virtual void element_end(const element &, bool /*commanded*/) {}
    virtual void on_command(const path &, int64_t /*number*/) {}
};

// Report what stands in a message; false if it is broken. What stands before the break has been reported by then.
bool read_message(std::span<const uint8_t> message, sink &to);

// Writers: like everything that ber::writer does, these are called from the last part of a message to the first.

// Remember a mark, write elements, then close: Root { RootElementCollection { ... } }.
void close_root(ber::writer &w, size_t mark);
// Close one entry of a collection.
void close_entry(ber::writer &w, size_t mark);
// Close children [2] of an element.
void close_children(ber::writer &w, size_t mark);
// Close contents [1] of an element.
void close_contents(ber::writer &w, size_t mark);
// Close an element known by its path, or by its number below its parent, as one entry of a collection.
void close_qualified(ber::writer &w, bool is_parameter, std::span<const uint32_t> where, size_t mark);
void close_numbered(ber::writer &w, bool is_parameter, uint32_t number, size_t mark);

void put_integer(ber::writer &w, unsigned field, int64_t value);
void put_boolean(ber::writer &w, unsigned field, bool value);
void put_utf8(ber::writer &w, unsigned field, std::string_view value);

namespace node_field { enum : unsigned { identifier, description, is_root, is_online }; }
namespace parameter_field {
enum : unsigned {
    identifier, description, value, minimum, maximum, access, format, enumeration, factor, is_online, formula, step,
    default_value, type, stream_identifier, enum_map
};
}

// A whole message: one command on an element; an empty path is the root.
void write_command(ber::writer &w, std::span<const uint32_t> where, bool is_parameter, int64_t number);
// A whole message: an integer, a boolean or a text for a parameter.
void write_value(ber::writer &w, std::span<const uint32_t> where, const value &what);

}  // namespace zel::ember::glow
