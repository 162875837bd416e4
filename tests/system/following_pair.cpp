#include "following_pair.h"

#include <poll.h>
#include <signal.h>

#include <cstdlib>
#include <iostream>
#include <sstream>

namespace zel::test {
namespace {

using clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds look_again{10};

std::string settings_of(const char *name)
{
    return std::string("{\"friendly_name\": \"") + name + R"(", "interface": "zel0",
        "pins": [{"in_pin": 1, "out_pin": 101}], "relays": {"base_pin": 201, "count": 1}, "virtual_count": 1,
        "servers": {"ember": {"address": "0.0.0.0"}}})";
}

constexpr const char *source_config = R"({"gpio": {
    "physical": {"phys_gpio_count": 1, "gpio_0": {"type": 1, "handler": "", "handler_invert": "", "input_mode": 1}},
    "relay": {"relay_count": 1, "relay_0": {"on_grid": true}},
    "virtual": {"virtual_gpio_count": 1, "vgpio_0": {"type": 2, "trigger": "GPI 1", "invert_trigger": "0"}}}})";

constexpr const char *follower_config = R"({"gpio": {
    "physical": {"phys_gpio_count": 1, "gpio_0": {"type": 0}},
    "relay": {"relay_count": 1, "relay_0": {"on_grid": true, "triggers": "vGPI 1", "trigger_invert": "0"}},
    "virtual": {"virtual_gpio_count": 1, "vgpio_0": {"type": 1, "handler": "", "handler_invert": "", "vgpo_src": "vGPO1@Studio A"}}}})";

template <typename condition> bool await(const condition &holds)
{
    const auto deadline = clock::now() + patience;
    while (!holds()) {
        if (clock::now() >= deadline) return false;
        (void)poll(nullptr, 0, static_cast<int>(look_again.count()));
    }
    return true;
}

// The daemon is a child of its unit; -1 while there is none.
pid_t child_called(pid_t parent, const std::string &name)
{
    const std::string of_parent = "/proc/" + std::to_string(parent);
    std::istringstream children(read_file(of_parent + "/task/" + std::to_string(parent) + "/children"));
    for (pid_t child; children >> child;) {
        if (read_file("/proc/" + std::to_string(child) + "/comm") == name + "\n") return child;
    }
    return -1;
}

bool flag(const json_handle &object, const char *key) { return json_is_true(json_object_get(object.get(), key)); }

}  // namespace

following_pair::following_pair(const two_hosts &hosts) : hosts_(hosts)
{
    write_file(source_root_.settings(), settings_of("Studio A"));
    write_file(source_root_.config(), source_config);
    write_file(follower_root_.settings(), settings_of("Studio B"));
    write_file(follower_root_.config(), follower_config);
}

bool following_pair::start(std::unique_ptr<running> &unit, const unit_root &root, two_hosts::host where)
{
    unit.reset();
    hosts_.stand_on(where);
    unit = std::make_unique<running>(root);
    if (unit->unit.ready() && unit->link.connected() && await([&] { return discovery_of(*unit) > 0; })) return true;
    (void)kill(unit->unit.process().pid(), SIGKILL);
    std::cerr << "the unit did not start (status " << unit->unit.process().wait() << "):\n" << unit->unit.process().err.seen() << unit->unit.process().err.rest();
    return false;
}

pid_t following_pair::discovery_of(running &unit)
{
    return child_called(unit.unit.process().pid(), "zel_sdiscd");
}

bool following_pair::start_source() { return start(source_, source_root_, two_hosts::a); }
bool following_pair::start_follower() { return start(follower_, follower_root_, two_hosts::b); }

bool following_pair::kill_discovery(running &unit)
{
    const pid_t before = discovery_of(unit);
    return before > 0 && kill(before, SIGKILL) == 0 && await([&] {
        const pid_t now = discovery_of(unit);
        return now > 0 && now != before;
    });
}

void following_pair::press(bool pressed)
{
    (void)source_->link.ask(pressed ? R"({"request":"press","pin":1})" : R"({"request":"release","pin":1})");
}

void following_pair::offer(bool offered)
{
    if (!offered) {
        (void)source_->link.ask(R"({"request":"set-port","port":"vGPO 1","type":"disabled"})");
        return;
    }
    (void)source_->link.ask(R"({"request":"set-port","port":"Virtual Port 1","type":"output"})");
    (void)source_->link.ask(R"({"request":"connect","input":"GPI 1","output":"vGPO 1"})");
}

json_handle following_pair::first_port_of_class(running &unit, const char *wanted)
{
    const json_handle answer = unit.link.ask(R"({"request":"ports"})");
    size_t i;
    json_t *port;
    json_array_foreach(json_object_get(answer.get(), "ports"), i, port)
    {
        const char *const word = json_string_value(json_object_get(port, "class"));
        if (word != nullptr && word == std::string(wanted)) return json_handle(json_incref(port));
    }
    return json_handle();
}

bool following_pair::follower_has(bool level)
{
    const json_handle port = first_port_of_class(*follower_, "virtual");
    if (!flag(port, "source_valid") || flag(port, "state") != level) return false;
    const json_handle answer = follower_->link.ask(R"({"request":"relays"})");
    return json_is_true(json_object_get(json_array_get(json_object_get(answer.get(), "relays"), 0), "state")) == level;
}

std::optional<std::chrono::milliseconds> following_pair::await_level(bool level)
{
    const auto begin = clock::now();
    if (!await([&] { return follower_has(level); })) return std::nullopt;
    return std::chrono::duration_cast<std::chrono::milliseconds>(clock::now() - begin);
}

bool following_pair::await_loss()
{
    return await([&] { return !flag(first_port_of_class(*follower_, "virtual"), "source_valid"); });
}

std::string following_pair::follower_report()
{
    const json_handle port = first_port_of_class(*follower_, "virtual");
    char *const text = json_dumps(port.get(), 0);
    const std::string report = text != nullptr ? text : "no answer";
    std::free(text);
    return report;
}

}  // namespace zel::test
