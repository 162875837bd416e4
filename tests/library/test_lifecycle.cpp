// Start-up and shut-down of a unit with one of everything: every effect, in its order.
#include <gtest/gtest.h>

#include "fake_platform.h"
#include "lifecycle_units.h"
#include "zel_gpio/records.h"

using fake::joined;
using fake::lines;
using fake::unit;

namespace {

lines appended(std::initializer_list<lines> parts)
{
    lines all;
    for (const lines &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

/// What is sent to the agent when its client is made: the counts, then every port, relay, trigger, handler and remote output.
lines full_dump(int triggers, int remote_outputs)
{
    lines dump{"ipc snmp send 2 (4 bytes)", "ipc snmp send 3 (4 bytes)", "ipc snmp send 4 (4 bytes)", "ipc snmp send 5 (4 bytes)",
               "ipc snmp send 6 (4 bytes)"};
    for (const int type : {7, 7, 7, 8, 8, 9, 10})
        dump.push_back("ipc snmp send " + std::to_string(type) + " (696 bytes)");
    dump.push_back("ipc snmp send 11 (416 bytes)");
    dump.insert(dump.end(), static_cast<size_t>(triggers), "ipc snmp send 12 (68 bytes)");
    dump.insert(dump.end(), static_cast<size_t>(remote_outputs), "ipc snmp send 14 (68 bytes)");
    return dump;
}

const lines opened{"json init", "json open /mnt/data/config/config.json"};
const lines discovery{"ipc sdisc init zel_gpio", "ipc sdisc send 7 (1084 bytes)"};
const lines web_and_agent{"web add /cgi/gpioGrid.cgi", "web add /cgi/gpioConn.cgi", "ipc snmp init zel_gpio"};

// The turns of a start-up with a provider.
const lines nodes{
    "ember add node gpio",
    "ember add node gpio/physical",
    "ember add node gpio/virtual",
    "ember add node gpio/user buttons",
    "ember add node gpio/handlers",
    "ember add node gpio/triggers",
    "ember add node gpio/vgpio sources",
};
const lines triggers{
    "ember add string gpio/triggers/t-0 = Eth Link Down r",
    "ember add string gpio/triggers/t-1 = AoIP Link Down r",
    "ember add string gpio/triggers/t-2 = AC Power Off r",
    "ember add string gpio/triggers/t-3 = DC Power Off r",
    "ember add string gpio/triggers/t-4 = PTP Sync Lost r",
};
const lines input{
    "log 2 register_trigger: Registered trigger 'GPI 1' (id = 5)",
    "ember add string gpio/triggers/t-5 = GPI 1 r",
    "ember add node gpio/physical/gpio 1",
    "ember add enum gpio/physical/gpio 1/type = 1 [disabled|input|output] rw",
    "ember add string gpio/physical/gpio 1/input functions = Record rw",
    "ember add string gpio/physical/gpio 1/output triggers = GPI 1 rw",
    "ember add string gpio/physical/gpio 1/active triggers =  r",
    "ember add enum gpio/physical/gpio 1/input mode = 1 [latching|momentary] rw",
    "ember add boolean gpio/physical/gpio 1/status = 0 rw",
};
const lines output{
    "log 2 register_trigger: Registered trigger 'GPI 2' (id = 6)",
    "ember add string gpio/triggers/t-6 = GPI 2 r",
    "ember add node gpio/physical/gpio 2",
    "ember add enum gpio/physical/gpio 2/type = 2 [disabled|input|output] rw",
    "ember add string gpio/physical/gpio 2/input functions =  rw",
    "ember add string gpio/physical/gpio 2/output triggers = Eth Link Down, GPI 1 rw",
    "ember add string gpio/physical/gpio 2/active triggers =  r",
    "ember add enum gpio/physical/gpio 2/input mode = 0 [latching|momentary] rw",
    "ember add boolean gpio/physical/gpio 2/status = 0 rw",
    "ember set gpio/physical/gpio 2/type 2 (8 bytes)",
    "ember set gpio/physical/gpio 2/input functions \"\" (1 bytes)",
    "ember set gpio/physical/gpio 2/output triggers \"!Eth Link Down, GPI 1\" (22 bytes)",
    "ember set gpio/physical/gpio 2/active triggers \"!Eth Link Down\" (15 bytes)",
    "ember set gpio/physical/gpio 2/input mode 0 (8 bytes)",
    "ember set gpio/physical/gpio 2/status 1 (4 bytes)",
};
const lines cough{
    "log 2 register_trigger: Registered trigger 'COUGH 1' (id = 7)",
    "ember add string gpio/triggers/t-7 = COUGH 1 r",
    "ember add node gpio/physical/cough 1",
    "ember add enum gpio/physical/cough 1/type = 1 [disabled|input] rw",
    "ember add string gpio/physical/cough 1/input functions = Mute rw",
    "ember add enum gpio/physical/cough 1/input mode = 1 [latching|momentary] r",
    "ember add boolean gpio/physical/cough 1/status = 0 rw",
};
const lines relay{
    "ember add node gpio/physical/relay 1",
    "ember add string gpio/physical/relay 1/output triggers = AC Power Off rw",
    "ember add string gpio/physical/relay 1/active triggers =  r",
    "ember add boolean gpio/physical/relay 1/status = 0 r",
    "ember set gpio/physical/relay 1/output triggers \"AC Power Off\" (13 bytes)",
    "ember set gpio/physical/relay 1/status 0 (4 bytes)",
    "ember set gpio/physical/relay 1/active triggers \"\" (1 bytes)",
};
const lines virtual_output{
    "log 2 register_trigger: Registered trigger 'vGPI 1' (id = 8)",
    "ember add string gpio/triggers/t-8 = vGPI 1 r",
    "ember add node gpio/virtual/vgpio 1",
    "ember add enum gpio/virtual/vgpio 1/type = 2 [disabled|input|output] rw",
    "ember add string gpio/virtual/vgpio 1/input functions =  rw",
    "ember add string gpio/virtual/vgpio 1/output triggers = GPI 1, COUGH 1 rw",
    "ember add string gpio/virtual/vgpio 1/active triggers =  r",
    "ember add string gpio/virtual/vgpio 1/vgpio source =  rw",
    "ember add boolean gpio/virtual/vgpio 1/status = 0 rw",
    "log 2 publish_vgpo: Publishing service 'vGPO1@Studio 1' (strlist = '\"path=/unit/gpio/virtual/vgpio 1\"')",
    "ipc sdisc send 9 (1224 bytes)",
    "ember set gpio/virtual/vgpio 1/type 2 (8 bytes)",
    "ember set gpio/virtual/vgpio 1/input functions \"\" (1 bytes)",
    "ember set gpio/virtual/vgpio 1/output triggers \"GPI 1, COUGH 1\" (15 bytes)",
    "ember set gpio/virtual/vgpio 1/active triggers \"\" (1 bytes)",
    "ember set gpio/virtual/vgpio 1/status 0 (4 bytes)",
};
const lines virtual_input{
    "log 2 register_trigger: Registered trigger 'vGPI 2' (id = 9)",
    "ember add string gpio/triggers/t-9 = vGPI 2 r",
    "log 4 add_remote_vgpo: 1 Remote vGPOs currently in list",
    "log 2 add_remote_vgpo: Adding newly discovered remote vgpo 'vGPO3@Studio 2' to list...",
    "ember add string gpio/vgpio sources/v-0 = vGPO3@Studio 2 r",
    "ember add node gpio/virtual/vgpio 2",
    "ember add enum gpio/virtual/vgpio 2/type = 1 [disabled|input|output] rw",
    "ember add string gpio/virtual/vgpio 2/input functions = Record rw",
    "ember add string gpio/virtual/vgpio 2/output triggers = vGPI 2 rw",
    "ember add string gpio/virtual/vgpio 2/active triggers =  r",
    "ember add string gpio/virtual/vgpio 2/vgpio source = vGPO3@Studio 2 rw",
    "ember add boolean gpio/virtual/vgpio 2/status = 0 rw",
};
const lines button_and_led{
    "log 2 register_trigger: Registered trigger 'User Button 1' (id = 10)",
    "ember add string gpio/triggers/t-10 = User Button 1 r",
    "ember add node gpio/user buttons/button 1",
    "ember add enum gpio/user buttons/button 1/type = 1 [disabled|input|output] rw",
    "ember add string gpio/user buttons/button 1/input functions = Mute rw",
    "ember add enum gpio/user buttons/button 1/input mode = 0 [latching|momentary] rw",
    "ember add boolean gpio/user buttons/button 1/status = 0 rw",
    "ember add node gpio/user buttons/led 1",
    "ember add enum gpio/user buttons/led 1/type = 2 [disabled|input|output] rw",
    "ember add string gpio/user buttons/led 1/output triggers = Door rw",
    "ember add string gpio/user buttons/led 1/active triggers =  r",
    "ember add boolean gpio/user buttons/led 1/status = 0 rw",
};

}  // namespace

TEST(start_up, of_a_unit_without_a_provider)
{
    unit unit;
    fake::one_of_everything(unit);
    ASSERT_EQ(unit.start(), 0);
    const lines built{fake::calloc_line(7),
                      "log 2 register_trigger: Registered trigger 'GPI 1' (id = 5)",
                      "pin 1 open 0",
                      "pin 1 active_low 0",
                      "pin 1 edge 3",
                      "pin 1 read 0",
                      "log 2 register_trigger: Registered trigger 'GPI 2' (id = 6)",
                      "pin 102 open 2",
                      "pin 102 active_low 0",
                      "pin 102 write 1",
                      "log 2 register_trigger: Registered trigger 'COUGH 1' (id = 7)",
                      "pin 3 open 0",
                      "pin 3 active_low 0",
                      "pin 3 edge 3",
                      "pin 3 read 0",
                      "pin 201 open 2",
                      "pin 201 write 0",
                      "log 2 register_trigger: Registered trigger 'vGPI 1' (id = 8)",
                      "log 2 register_trigger: Registered trigger 'vGPI 2' (id = 9)",
                      "log 4 add_remote_vgpo: 1 Remote vGPOs currently in list",
                      "log 2 add_remote_vgpo: Adding newly discovered remote vgpo 'vGPO3@Studio 2' to list...",
                      "log 2 register_trigger: Registered trigger 'User Button 1' (id = 10)"};
    EXPECT_EQ(joined(unit.take()), joined(appended({opened, discovery, built, web_and_agent, full_dump(11, 1)})));
}

TEST(start_up, of_a_unit_with_a_provider)
{
    unit unit;
    fake::one_of_everything(unit);
    unit.ember();
    ASSERT_EQ(unit.start(), 0);
    // Reading a pin has no effect; where it falls among the additions of the same port is not fixed.
    EXPECT_EQ(joined(fake::without(unit.journal(), {"pin"})),
              joined(appended({opened, nodes, discovery, triggers, lines{fake::calloc_line(7)}, input, output, cough, relay,
                               virtual_output, virtual_input, button_and_led, web_and_agent, full_dump(11, 1)})));
    EXPECT_EQ(joined(unit.take_of("pin")),
              joined({"pin 1 open 0", "pin 1 active_low 0", "pin 1 edge 3", "pin 1 read 0", "pin 1 read 0", "pin 102 open 2",
                      "pin 102 active_low 0", "pin 102 read 0", "pin 102 write 1", "pin 3 open 0", "pin 3 active_low 0",
                      "pin 3 edge 3", "pin 3 read 0", "pin 3 read 0", "pin 201 open 2", "pin 201 read 0", "pin 201 write 0"}));
}

TEST(shut_down, of_a_unit_without_a_provider)
{
    unit unit;
    fake::one_of_everything(unit);
    ASSERT_EQ(unit.start(), 0);
    unit.handler("Record"), unit.led_handler(0), unit.trigger("Door");
    unit.take();
    unit.stop();
    EXPECT_EQ(joined(unit.take()), joined({"pin 201 close", "pin 1 close", "pin 102 close", "pin 3 close",
                                           "ipc sdisc send 10 (15 bytes)", "ipc sdisc end", "ipc snmp end", "json close"}));
    EXPECT_EQ(unit.sent("sdisc", 10).back().text_at(0, 15), "vGPO1@Studio 1");
}

TEST(shut_down, of_a_unit_with_a_provider_removes_the_tree_first)
{
    unit unit;
    fake::one_of_everything(unit);
    unit.ember();
    ASSERT_EQ(unit.start(), 0);
    unit.handler("Record"), unit.trigger("Door");
    unit.take();
    unit.stop();
    EXPECT_EQ(joined(unit.take()), joined({"ember remove gpio", "pin 201 close", "pin 1 close", "pin 102 close", "pin 3 close",
                                           "ipc sdisc send 10 (15 bytes)", "ipc sdisc end", "ipc snmp end", "json close"}));
    EXPECT_EQ(unit.tree(), lines{});
}

TEST(shut_down, ends_the_sessions_of_virtual_inputs_at_their_ports)
{
    unit unit;
    unit.ember().gpis(1).virtuals(3).set("physical/gpio_0/type", 1).set("physical/gpio_0/handler_invert", "");
    unit.set_json("virtual/vgpio_0", R"({"type": 1, "vgpo_src": "vGPO1@B", "handler_invert": ""})");
    unit.set_json("virtual/vgpio_1", R"({"type": 2, "trigger": "X", "invert_trigger": ""})");
    unit.set_json("virtual/vgpio_2", R"({"type": 1, "vgpo_src": "vGPO2@B", "handler_invert": ""})");
    ASSERT_EQ(unit.start(), 0);
    for (const char *const name : {"vGPO1@B", "vGPO2@B"}) {
        fake::bytes resolved(238 + 64);   // as the discovery daemon reports a service
        std::strcpy(reinterpret_cast<char *>(&resolved[4]), name);
        std::strcpy(reinterpret_cast<char *>(&resolved[132]), "_zelvgpo._tcp");
        std::strcpy(reinterpret_cast<char *>(&resolved[196]), "10.0.0.2");
        resolved[236] = 0x28, resolved[237] = 0x23;   // 9000
        std::strcpy(reinterpret_cast<char *>(&resolved[238]), (std::string("\"path=/b/") + name + "\"").c_str());
        unit.deliver("sdisc", 5, resolved);
    }
    ASSERT_EQ(unit.consumers(), std::vector<int>{1});
    unit.take();
    unit.stop();
    EXPECT_EQ(joined(unit.take()), joined({"ember remove gpio", "pin 1 close", "consumer 1 clear /b/vGPO1@B/type",
                                           "consumer 1 clear /b/vGPO1@B/status", "ipc sdisc send 10 (15 bytes)", "consumer 1 end",
                                           "ipc sdisc end", "ipc snmp end", "json close"}));
}

TEST(shut_down, of_a_unit_with_nothing)
{
    unit unit;
    ASSERT_EQ(unit.start(), 0);
    EXPECT_TRUE(unit.logged("2 init_phys_gpio: No physical gpio"));
    EXPECT_TRUE(unit.logged("2 init_user_buttons: No user buttons"));
    unit.take();
    unit.stop();
    EXPECT_EQ(unit.take(), (lines{"ipc sdisc end", "ipc snmp end", "json close"}));
}

TEST(shut_down, leaves_the_counts_of_ports_at_zero_but_the_total)
{
    unit unit;
    fake::one_of_everything(unit);
    ASSERT_EQ(unit.start(), 0);
    unit.stop();
    EXPECT_EQ(zel::gpi_count, 0);
    EXPECT_EQ(zel::cough_count, 0);
    EXPECT_EQ(zel::virtual_gpio_count, 0);
    EXPECT_EQ(zel::relay_count, 0);
    EXPECT_EQ(zel::total_gpio_count, 7);
    EXPECT_EQ(zel::gpios, nullptr);
    EXPECT_EQ(zel::relays, nullptr);
}

TEST(shut_down, frees_the_names_of_handlers_and_triggers_but_the_built_in_ones)
{
    unit unit;
    fake::one_of_everything(unit);
    ASSERT_EQ(unit.start(), 0);
    unit.handler("Record"), unit.trigger("Door");
    unit.stop();
    for (const handler_t &h : handler_list) {
        ASSERT_EQ(h.name, nullptr);
        ASSERT_TRUE(h.func == nullptr);
        ASSERT_EQ(h.arg, nullptr);
    }
    for (int i = 0; i < 5; ++i)
        EXPECT_NE(trigger_list[i].name, nullptr);
}
