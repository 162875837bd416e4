// Journals of changes of ports, put together from their parts: what a change does to pins, links and handlers is written out in
// the tests; the values that follow in the tree come from one table here.
#pragma once

#include <algorithm>
#include <utility>

#include "grid_test.h"

namespace port_steps {

using namespace grid_test;

/// A line or several of an expected journal.
struct part {
    lines list;
    part(const char *line) : list{line} {}
    part(std::string line) : list{std::move(line)} {}
    part(lines several) : list(std::move(several)) {}
};

inline lines steps(std::initializer_list<part> parts)
{
    lines all;
    for (const part &p : parts)
        all.insert(all.end(), p.list.begin(), p.list.end());
    return all;
}

inline bool ends_with(const std::string &text, const std::string &end)
{
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/// "save physical/gpio_0 1" for the line that sets the type of a saved port, "save relay/relay_0" for a relay's list; else "".
inline std::string saving_of(const std::string &line)
{
    const std::string begin = "json set gpio/";
    if (line.compare(0, begin.size(), begin) != 0)
        return "";
    const size_t end = line.rfind("/type ");
    if (end != std::string::npos)
        return "save " + line.substr(begin.size(), end - begin.size()) + line.substr(end + 5);
    const size_t list = line.find("/triggers \"");
    return list == std::string::npos ? "" : "save " + line.substr(begin.size(), list - begin.size());
}

/// The journal with one line for each port or relay that was saved.
inline lines changes(unit &u)
{
    lines result;
    for (const std::string &line : u.take()) {
        if (fake::begins_with(line, "log 4 update_gpio_json:"))
            continue;
        const std::string saving = saving_of(line);
        if (!saving.empty() || !fake::begins_with(line, "json"))
            result.push_back(saving.empty() ? line : saving);
    }
    return result;
}

/// What the tree shows of a port.
struct shown {
    int type;
    std::string functions, triggers, active;
    int mode;
    int status;
    const char *source = nullptr;   // null: not written
};

inline std::string text_set(const std::string &path, const std::string &text)
{
    return "ember set " + path + " \"" + text + "\" (" + std::to_string(text.size() + 1) + " bytes)";
}

inline std::string number_set(const std::string &path, int64_t number, int width)
{
    return "ember set " + path + " " + std::to_string(number) + " (" + std::to_string(width) + " bytes)";
}

/// All values of a port ("physical/gpio 1"), of the parameters that its kind has; "lists" false: without those a controller
/// writes.
inline lines published(const std::string &port, const shown &values, bool lists = true)
{
    const std::string node = "gpio/" + port + "/";
    const bool button = port.find("button ") != std::string::npos, led = port.find("/led ") != std::string::npos;
    const bool cough = port.find("cough ") != std::string::npos, is_virtual = port.find("/vgpio ") != std::string::npos;
    lines result{number_set(node + "type", values.type, 8)};
    if (!led && lists)
        result.push_back(text_set(node + "input functions", values.functions));
    if (!button && !cough && lists)
        result.push_back(text_set(node + "output triggers", values.triggers));
    if (!button && !cough)
        result.push_back(text_set(node + "active triggers", values.active));
    if (!is_virtual && !led)
        result.push_back(number_set(node + "input mode", values.mode, 8));
    result.push_back(number_set(node + "status", values.status, 4));
    if (is_virtual && values.source != nullptr)
        result.push_back(text_set(node + "vgpio source", values.source));
    return result;
}

inline lines published_relay(int number, const std::string &triggers, const std::string &active, int status, bool lists = true)
{
    const std::string node = "gpio/physical/relay " + std::to_string(number) + "/";
    lines result;
    if (lists)
        result.push_back(text_set(node + "output triggers", triggers));
    result.push_back(number_set(node + "status", status, 4));
    result.push_back(text_set(node + "active triggers", active));
    return result;
}

/// The agent is told of a port (7 physical, 8 virtual, 9 button, 10 LED) or a relay (11).
inline std::string sent(int type)
{
    return "ipc snmp send " + std::to_string(type) + (type == 11 ? " (416 bytes)" : " (696 bytes)");
}

inline std::string ended(const std::string &trigger)
{
    return "log 2 zel_gpio_notify_trigger_event: event '" + trigger + "' has ended";
}

inline std::string setting_up(int32_t index, uint32_t mode, int port_class)
{
    return fake::lines{"log 4 set_gpio_to_input: Setting up index " + std::to_string(index) + " as input (mode = " +
                       std::to_string(static_cast<int>(mode)) + ", class = " + std::to_string(port_class) + ")"}
        .front();
}

// ---- Other units

/// What the discovery daemon reports of another unit's virtual output: its name, host 10.0.0.<host>:9000 and path.
inline void discover(unit &u, const std::string &name, int host, const std::string &path)
{
    fake::bytes record(238 + 64 + path.size());
    const auto put = [&](size_t at, const std::string &text) { std::memcpy(&record[at], text.c_str(), text.size()); };
    put(4, name);
    put(132, "_zelvgpo._tcp");
    put(196, "10.0.0." + std::to_string(host));
    record[236] = 9000 % 256, record[237] = 9000 / 256;
    put(238, "\"path=" + path + "\"");
    u.deliver("sdisc", 5, record);
}

/// The service is withdrawn: a source that is followed stays in the list without its address.
inline void withdraw(unit &u, const std::string &name)
{
    fake::bytes record(196 + 64);
    std::memcpy(&record[68], name.c_str(), name.size());
    std::memcpy(&record[132], "_zelvgpo._tcp", 13);
    u.deliver("sdisc", 3, record);
}

/// A request of the SNMP agent; the result in its reply.
inline int32_t ask(unit &u, uint8_t type, int32_t index, int32_t value, const std::string &text = "")
{
    fake::bytes record(76);
    std::memcpy(&record[0], &index, sizeof index);
    std::memcpy(&record[4], &value, sizeof value);
    std::memcpy(&record[8], text.c_str(), std::min<size_t>(text.size(), 64));
    u.forget_sent();
    u.deliver("snmp", type, record);
    return u.sent("snmp", 36).at(0).int_at(4);
}

/// Entry 0 of a port's list of triggers, which may stand outside the count: "GPI 1#5".
inline std::string first_trigger(int32_t index)
{
    const zel::gpio_port_t &p = zel::gpios[index];
    return entry_text(p.trigger_names[0], p.trig_ids[0], p.trig_inv[0]);
}

inline std::string own_trigger(const std::string &name) { return name + "#" + std::to_string(unit::trigger_id(name)); }

}   // namespace port_steps
