// What the tests of registry, lists and propagation share: short texts for lists and messages, and the comparison of journals.
#pragma once

#include <gtest/gtest.h>

#include "fake_platform.h"
#include "zel_gpio/records.h"

/// Compares journals line by line, as one text so that a difference can be read.
#define EXPECT_LINES(actual, ...) EXPECT_EQ(fake::joined(actual), fake::joined(fake::lines{__VA_ARGS__}))

namespace grid_test {

using fake::lines;
using fake::unit;

inline std::string entry_text(const char *name, int32_t id, uint8_t invert)
{
    return (invert != 0 ? "!" : "") + std::string(name == nullptr ? "(null)" : name) + "#" + std::to_string(id);
}

/// "Door#9 !Fire#-1": names, ids and inverts of a list of triggers.
inline std::string list_of(const zel::trigger_view &list)
{
    std::string text;
    for (int32_t k = 0; k < *list.count; ++k)
        text += (k > 0 ? " " : "") + entry_text(list.names[k], list.ids[k], list.inverts[k]);
    return text;
}

inline std::string port_list(int32_t index) { return list_of(zel::triggers_of(zel::gpios[index])); }
inline std::string relay_list(int32_t index) { return list_of(zel::triggers_of(zel::relays[index])); }
inline std::string handler_triggers(int32_t id) { return list_of(zel::triggers_of(handler_list[id])); }

/// The same for the handlers of an input.
inline std::string port_handlers(int32_t index)
{
    const zel::gpio_port_t &port = zel::gpios[index];
    std::string text;
    for (int32_t k = 0; k < port.num_handlers; ++k) {
        const int32_t id = port.handlers[k] == nullptr ? -1 : port.handlers[k]->id;
        text += (k > 0 ? " " : "") + entry_text(port.handler_names[k], id, port.handler_inv[k]);
    }
    return text;
}

/// Messages to the agent since forget_sent(): "7 0" (type, index), "13 0 Record" (a name record).
inline lines told(const unit &u)
{
    lines result;
    for (const fake::message &m : u.sent("snmp")) {
        std::string line = std::to_string(m.type) + " " + std::to_string(m.int_at(0));
        if (m.type >= 12 && m.type <= 14)
            line += " " + m.text_at(4, 64);
        result.push_back(line);
    }
    return result;
}

/// What a value below "gpio" of the file is at present, as JSON.
inline std::string saved(const unit &u, const std::string &path) { return u.json("gpio/" + path); }

/// The journal without the lines about saving: pins, callbacks, the tree, messages, and the log but for its details.
inline lines effects(unit &u) { return fake::without(u.take(), {"json", "log 4"}); }

/// A name of exactly 64 characters.
inline std::string long_name(const std::string &stem, int number)
{
    std::string name = stem + " " + std::to_string(number) + " ";
    name.resize(64, 'x');
    return name;
}

/// An address as the log shows it.
inline std::string address(const void *pointer)
{
    char text[32];
    std::snprintf(text, sizeof text, "%p", pointer);
    return text;
}

}  // namespace grid_test
