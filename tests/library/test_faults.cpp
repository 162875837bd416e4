// A day in the life of a unit in which one platform call, or one allocation, fails: each of them once, and whole kinds of them
// for good. Whatever fails, the process goes on, every handle and all memory are given back at the end, and the counts of active
// triggers stay true.
#include <gtest/gtest.h>

#include "child_process.h"
#include "fake_platform.h"
#include "library_allocations.h"
#include "lifecycle_units.h"

using fake::unit;

namespace {

enum class provider { absent, present };

void PrintTo(provider tree, std::ostream *out) { *out << (tree == provider::present ? "a provider" : "no provider"); }

fake::bytes service_record(const char *name, int host)
{
    fake::bytes record(238 + 100);
    const auto put = [&](size_t at, const std::string &text) { std::memcpy(&record[at], text.c_str(), text.size()); };
    put(4, name);
    put(132, "_zelvgpo._tcp");
    put(196, "10.0.0." + std::to_string(host));
    record[236] = 0x28, record[237] = 0x23;
    put(238, std::string("\"path=/unit/") + name + "\"");
    return record;
}

fake::bytes browse_record(const char *name)
{
    fake::bytes record(196 + 64);
    std::strcpy(reinterpret_cast<char *>(&record[68]), name);
    std::strcpy(reinterpret_cast<char *>(&record[132]), "_zelvgpo._tcp");
    return record;
}

fake::bytes agent_request(int32_t index, int32_t value, const char *text)
{
    struct [[gnu::packed]] { int32_t index, value; char text[64]; int32_t tag; } request{index, value, {}, 77};
    std::strcpy(request.text, text);
    fake::bytes bytes(sizeof request);
    std::memcpy(bytes.data(), &request, sizeof request);
    return bytes;
}

void host_registers(unit &unit)
{
    unit.handler("Record"), unit.handler("Mute"), unit.led_handler(0);
    unit.trigger("Door"), unit.trigger("Fire"), unit.handler("Door");
}

void edge_if_open(unit &unit, int32_t pin, int level)
{
    if (unit.is_open(pin))
        unit.edge(pin, level);
}

void raise_if_named(unit &unit, const char *name, bool on)
{
    if (unit.trigger_id(name) != -1)
        zel_gpio_notify_trigger_event(unit.trigger_id(name), on);
}

void events_happen(unit &unit)
{
    edge_if_open(unit, 1, 1), edge_if_open(unit, 3, 1);
    for (const char *const name : {"Eth Link Down", "AC Power Off", "Door", "Fire"})
        raise_if_named(unit, name, true);
    zel_gpio_notify_user_button_event(0);
    edge_if_open(unit, 1, 0), edge_if_open(unit, 3, 0);
    for (const char *const name : {"Eth Link Down", "Door"})
        raise_if_named(unit, name, false);
    for (const char *const name : {"Record", "Door"})
        if (unit.handler_id(name) != -1)
            zel_gpio_set_handler_state(unit.handler_id(name));
}

void values_arrive(unit &unit, const char *path, int64_t value)
{
    for (const int session : unit.consumers()) {
        if (unit.follows(session, path))
            unit.value(session, path, value);
        if (!unit.consumers().empty() && unit.follows(session, path))
            unit.no_value(session, path);
    }
}

void other_units_come_and_go(unit &unit)
{
    if (!unit.has_client("sdisc"))
        return;
    unit.deliver("sdisc", 2, browse_record("vGPO3@Studio 2"));
    unit.deliver("sdisc", 5, service_record("vGPO3@Studio 2", 2));
    unit.deliver("sdisc", 5, service_record("vGPO4@Studio 2", 2));
    for (const int session : unit.consumers())
        unit.connected(session, true);
    values_arrive(unit, "/unit/vGPO3@Studio 2/type", 2);
    values_arrive(unit, "/unit/vGPO3@Studio 2/status", 1);
    values_arrive(unit, "/unit/vGPO3@Studio 2/type", 1);   // no output any more
    values_arrive(unit, "/unit/vGPO3@Studio 2/type", 2);
    unit.deliver("sdisc", 5, service_record("vGPO3@Studio 2", 3));   // a new address
    for (const int session : unit.consumers())
        unit.connected(session, false);
    unit.deliver("sdisc", 3, browse_record("vGPO3@Studio 2"));
    unit.deliver("sdisc", 3, browse_record("vGPO4@Studio 2"));
}

void controllers_change_settings(unit &unit)
{
    unit.write("gpio/physical/gpio 2/output triggers", "Door,!Fire");
    unit.write("gpio/physical/relay 1/output triggers", "Door,GPI 1");
    unit.write("gpio/physical/gpio 1/input mode", 0);
    unit.write("gpio/physical/gpio 1/type", 2);
    unit.write("gpio/virtual/vgpio 2/vgpio source", "vGPO3@Studio 2");
    unit.write("gpio/virtual/vgpio 2/vgpio source", "");
    unit.write("gpio/virtual/vgpio 1/type", 1);
    unit.write("gpio/virtual/vgpio 1/type", 2);
    unit.write("gpio/virtual/vgpio 1/status", 1);
    unit.write("gpio/physical/gpio 1/type", 1);
    unit.write("gpio/user buttons/led 1/type", 0);
}

void the_agent_and_the_browser_change_settings(unit &unit)
{
    if (unit.has_client("snmp")) {
        unit.deliver("snmp", 1, fake::bytes(4));
        unit.deliver("snmp", 15, agent_request(0, 2, ""));
        unit.deliver("snmp", 17, agent_request(0, 0, "Fire,!Door"));
        unit.deliver("snmp", 35, agent_request(0, 0, "Fire"));
        unit.deliver("snmp", 27, agent_request(1, 0, "nobody"));
    }
    if (!unit.serves("/cgi/gpioConn.cgi"))
        return;
    unit.request("/cgi/gpioGrid.cgi", "a=b", nullptr);
    unit.request("/cgi/gpioGrid.cgi", "getFreeGpio=1", nullptr);
    unit.request("/cgi/gpioConn.cgi", nullptr, "action=1&inputClass=event&inputID=2&outputClass=event&outputID=0&gpioInvert=1");
    unit.request("/cgi/gpioConn.cgi", nullptr, "action=1&inputClass=physical&inputID=2&outputClass=event&outputID=1");
    unit.request("/cgi/gpioConn.cgi", nullptr, "action=0&inputClass=event&inputID=2&outputClass=event&outputID=0");
    unit.request("/cgi/gpioGrid.cgi", nullptr, "gpioType=relay&gpioPort=0&newState=0");
}

void the_host_changes_names_and_directions(unit &unit)
{
    zel_gpio_set_pin_direction(1, 1);
    zel_gpio_set_pin_direction(1, 0);
    zel_gpio_rename_handler("Record", "Record 2");
    zel_gpio_rename_trigger("Door", "Gate");
    zel_gpio_deregister_handler("Mute");
    zel_gpio_deregister_trigger("Fire");
    unit.handler("Mute"), unit.trigger("Fire");
}

void start(unit &unit, provider tree)
{
    fake::one_of_everything(unit);
    unit.set("on_grid_handlers", "Record, Mute")
        .set_json("handler_info/Record", R"({"triggers": "Door, Eth Link Down", "trigger_inverts": "0, 1"})");
    if (tree == provider::present)
        unit.ember();
    unit.udp(false);
}

/// Outputs, and relays whose pin is open, count exactly the active entries of their lists.
void expect_true_counts()
{
    for (int32_t i = 0; i < zel::total_gpio_count && zel::gpios != nullptr; ++i) {
        zel::gpio_port_t &port = zel::gpios[i];
        EXPECT_TRUE(port.type != 2 || port.active_trigs == zel::count_active(zel::triggers_of(port))) << "port " << i;
    }
    for (int32_t r = 0; r < zel::relay_count && zel::relays != nullptr; ++r) {
        zel::relay_t &relay = zel::relays[r];
        EXPECT_TRUE(relay.pin == nullptr || relay.active_trigs == zel::count_active(zel::triggers_of(relay))) << "relay " << r;
    }
}

void the_day(unit &unit)
{
    host_registers(unit);
    events_happen(unit);
    other_units_come_and_go(unit);
    controllers_change_settings(unit);
    the_agent_and_the_browser_change_settings(unit);
    events_happen(unit);
    the_host_changes_names_and_directions(unit);
    events_happen(unit);
    unit.udp(true);
    zel_gpio_set_udp_pin(0, 1);
    unit.loop();
    events_happen(unit);
    expect_true_counts();
}

void live(unit &unit)
{
    if (unit.start() == 0)
        the_day(unit);
    unit.stop();
    EXPECT_EQ(unit.open_pins(), 0);
    EXPECT_EQ(unit.consumers(), std::vector<int>{});
    EXPECT_FALSE(unit.has_client("sdisc"));
    EXPECT_FALSE(unit.has_client("snmp"));
    EXPECT_FALSE(unit.file_is_open());
    EXPECT_EQ(fake::allocations_held(), 0U);
}

struct cost {
    int calls = 0, allocations = 0;
};

/// How many calls and allocations the day has when nothing fails.
cost cost_of_a_day(provider tree)
{
    const fake::child_result day = fake::in_child([&] {
        unit unit;
        start(unit, tree);
        live(unit);
        std::printf("%d calls %d allocations\n", unit.calls(), fake::allocations());
    });
    EXPECT_EQ(day.exit_status, 0) << day.output;
    cost found;
    EXPECT_EQ(std::sscanf(day.output.c_str(), "%d calls %d allocations", &found.calls, &found.allocations), 2) << day.output;
    testing::Test::RecordProperty("calls", found.calls);
    testing::Test::RecordProperty("allocations", found.allocations);
    EXPECT_GT(found.calls, 400);
    EXPECT_GT(found.allocations, 60);
    return found;
}

/// The many runs are shared out, so that they run beside each other and within a test's time.
constexpr int shares = 8;

class each_failure : public testing::TestWithParam<std::tuple<provider, int>> {
protected:
    provider tree = std::get<0>(GetParam());
    int share = std::get<1>(GetParam());
};

std::string share_name(const testing::TestParamInfo<std::tuple<provider, int>> &info)
{
    return (std::get<0>(info.param) == provider::present ? "with_a_provider_" : "without_a_provider_") +
           std::to_string(std::get<1>(info.param));
}

}  // namespace

TEST_P(each_failure, of_a_platform_call_is_survived)
{
    const cost day = cost_of_a_day(tree);
    for (int nth = share; nth < day.calls; nth += shares) {
        SCOPED_TRACE(nth);
        EXPECT_CHILD_SUCCEEDS(
            unit unit;
            start(unit, tree);
            unit.fail_nth(nth);
            live(unit);
            EXPECT_TRUE(unit.fault_fired()));
    }
}

TEST_P(each_failure, of_an_allocation_is_survived)
{
    const cost day = cost_of_a_day(tree);
    for (int nth = share; nth < day.allocations; nth += shares) {
        SCOPED_TRACE(nth);
        EXPECT_CHILD_SUCCEEDS(
            unit unit;
            start(unit, tree);
            fake::fail_allocation(nth);
            live(unit);
            EXPECT_TRUE(fake::allocation_failed()));
    }
}

INSTANTIATE_TEST_SUITE_P(faults, each_failure,
                         testing::Combine(testing::Values(provider::absent, provider::present), testing::Range(0, shares)),
                         share_name);

TEST(a_whole_kind_of_calls, that_fails_for_good_is_survived)
{
    for (const char *const kind : {"json set",
                                   "json remove",
                                   "json load",
                                   "json open",
                                   "json load gpio/handler_info",
                                   "pin 1",
                                   "pin 3",
                                   "pin 102",
                                   "pin 101 open",
                                   "pin 201",
                                   "pin 201 write",
                                   "pin 102 write",
                                   "ember add",
                                   "ember set",
                                   "ember remove",
                                   "ember path",
                                   "ipc snmp",
                                   "ipc snmp send",
                                   "ipc sdisc",
                                   "ipc sdisc send",
                                   "ipc sdisc send 9",
                                   "consumer",
                                   "consumer 1 connect",
                                   "consumer 1 get",
                                   "consumer 1 clear",
                                   "web",
                                   "writer"}) {
        SCOPED_TRACE(kind);
        EXPECT_CHILD_SUCCEEDS(
            unit unit;
            start(unit, provider::present);
            unit.fail(kind);
            live(unit);
            EXPECT_TRUE(unit.fault_fired()));
    }
}

TEST(a_whole_kind_of_calls, that_fails_after_start_up_is_survived)
{
    for (const char *const kind : {"json set", "json remove", "json load", "pin", "ember set", "ember add", "ember remove",
                                   "ipc snmp send", "ipc sdisc send", "consumer", "consumer 1 get", "writer", "ember path"}) {
        SCOPED_TRACE(kind);
        EXPECT_CHILD_SUCCEEDS(
            unit unit;
            start(unit, provider::present);
            ASSERT_EQ(unit.start(), 0);
            unit.fail(kind);
            the_day(unit);
            unit.stop();
            EXPECT_TRUE(unit.fault_fired());
            EXPECT_EQ(unit.open_pins(), 0);
            EXPECT_EQ(fake::allocations_held(), 0U));
    }
}
