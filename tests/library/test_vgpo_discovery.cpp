// Publishing virtual outputs, and hearing of those of other units.
#include <gtest/gtest.h>

#include "child_process.h"
#include "grid_test.h"
#include "vgpo_units.h"
#include "zel_gpio/vgpo_discovery.h"
#include "zel_gpio/vgpo_publishing.h"

using namespace vgpo_units;
using fake::unit;

namespace {

void describe_output(unit &u)
{
    u.virtuals(2).ember(9123).set("virtual/vgpio_1/type", 2).set("virtual/vgpio_1/trigger", "").set("virtual/vgpio_1/invert_trigger", "");
}

TEST(discovery_link, asks_for_services_on_the_configured_interface)
{
    unit u;
    u.virtuals(1).interface_index(7);
    ASSERT_EQ(u.start(), 0);
    const auto sent = u.sent("sdisc", 7);
    ASSERT_EQ(sent.size(), 1u);
    ASSERT_EQ(sent[0].payload.size(), 1084u);
    EXPECT_EQ(sent[0].int_at(0), 7);
    EXPECT_EQ(sent[0].text_at(4, 64), our_type);
    EXPECT_EQ(sent[0].text_at(68, 1016), "");
}

TEST(discovery_link, that_cannot_be_made_fails_start_up)
{
    unit u;
    u.fail("ipc sdisc init");
    EXPECT_EQ(u.start(), -1);
    EXPECT_TRUE(u.logged("0 sdisc_init: Failed to setup zel_sdiscd ipc client for zel_gpio"));
    EXPECT_TRUE(u.logged("0 zel_gpio_init: Failed to setup sdisc"));
}

TEST(discovery_link, whose_request_cannot_be_sent_fails_start_up_and_stays)
{
    unit u;
    u.fail("ipc sdisc send 7");
    EXPECT_EQ(u.start(), -1);
    EXPECT_TRUE(u.logged("0 sdisc_init: Failed to send lookup request to zel_sdiscd"));
    EXPECT_TRUE(u.has_client("sdisc"));
}

TEST(publishing, announces_a_virtual_output_with_its_path_and_port)
{
    unit u;
    describe_output(u);
    u.friendly_name("Studio 9").interface_index(4);
    ASSERT_EQ(u.start(), 0);
    const auto sent = u.sent("sdisc", 9);
    ASSERT_EQ(sent.size(), 1u);
    ASSERT_EQ(sent[0].payload.size(), 1224u);
    EXPECT_EQ(sent[0].int_at(0), 4);
    EXPECT_EQ(sent[0].text_at(4, 64), "vGPO2@Studio 9");
    EXPECT_EQ(sent[0].text_at(68, 64), our_type);
    EXPECT_EQ(sent[0].text_at(132, 64), "");
    EXPECT_EQ(sent[0].payload[196] | sent[0].payload[197] << 8, 9123);
    EXPECT_EQ(sent[0].text_at(198, 1024), "\"path=/unit/gpio/virtual/vgpio 2\"");
    EXPECT_TRUE(u.logged("2 publish_vgpo: Publishing service 'vGPO2@Studio 9' (strlist = '\"path=/unit/gpio/virtual/vgpio 2\"')"));
}

TEST(publishing, cuts_a_long_friendly_name)
{
    unit u;
    describe_output(u);
    u.friendly_name(std::string(80, 'x'));
    ASSERT_EQ(u.start(), 0);
    EXPECT_EQ(u.sent("sdisc", 9).at(0).text_at(4, 64), "vGPO2@" + std::string(57, 'x'));
}

TEST(publishing, withdraws_by_name_with_its_terminator)
{
    unit u;
    describe_output(u);
    ASSERT_EQ(u.start(), 0);
    const std::string name = u.sent("sdisc", 9).at(0).text_at(4, 64);
    u.forget_sent();
    zel::unpublish_vgpo(1);
    const auto sent = u.sent("sdisc", 10);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].payload.size(), name.size() + 1);
    EXPECT_EQ(sent[0].text_at(0, 64), name);
}

TEST(publishing, reports_a_failed_send)
{
    unit u;
    describe_output(u);
    u.friendly_name("Nine").fail("ipc sdisc send 9");
    ASSERT_EQ(u.start(), 0);
    EXPECT_TRUE(u.logged("0 publish_vgpo: Failed to send ZEL_SDISC_PUBLISH SERVICE_CMD message to zel_sdiscd for service 'vGPO2@Nine'"));
}

TEST(publishing, needs_a_name_an_output_a_node_and_a_daemon)
{
    unit u;
    describe_output(u);
    ASSERT_EQ(u.start(), 0);
    u.take();
    zel::publish_vgpo(0);
    EXPECT_TRUE(u.logged("0 get_vgpo_service_name: Gpio at index 0 is invalid (either not virtual or not an output)"));
    EXPECT_TRUE(u.logged("0 publish_vgpo: Failed to get vgpo service name for index 0"));
    zel::unpublish_vgpo(0);
    EXPECT_TRUE(u.logged("0 unpublish_vgpo: Failed to get vgpo service name for index 0"));
    char text[1024];
    EXPECT_EQ(zel::get_vgpo_strlist(0, text, sizeof text), -1);
    EXPECT_TRUE(u.logged("0 get_vgpo_strlist: Gpio at index 0 is invalid (either not virtual or not an output)"));

    zel_ember_element_t *const node = port(1).ember_node;
    port(1).ember_node = nullptr;
    zel::publish_vgpo(1);
    EXPECT_TRUE(u.logged("0 get_vgpo_strlist: zel_ember node for gpio index 1 is NULL"));
    EXPECT_TRUE(u.logged("0 publish_vgpo: Failed to get vgpo service path for index 1"));
    port(1).ember_node = node;

    EXPECT_EQ(zel::get_vgpo_strlist(1, text, 12), -1);
    EXPECT_TRUE(u.logged("0 get_vgpo_strlist: Failed to get path for gpio index 1"));
    EXPECT_EQ(zel::get_vgpo_strlist(1, text, 28), -1);
    EXPECT_TRUE(u.logged("0 get_vgpo_strlist: Ran out of space for strlist"));

    zel_ipc_client_t *const client = zel::sdisc_client;
    zel::sdisc_client = nullptr;
    zel::publish_vgpo(1);
    zel::unpublish_vgpo(1);
    EXPECT_TRUE(u.logged("0 publish_vgpo: sdisc_client is NULL"));
    EXPECT_TRUE(u.logged("0 unpublish_vgpo: sdisc_client is NULL"));
    zel::sdisc_client = client;
}

TEST(publishing, without_a_network_configuration_has_no_name)
{
    unit u;
    describe_output(u);
    u.without_udp_config();
    ASSERT_EQ(u.start(), 0);
    EXPECT_TRUE(u.logged("0 get_vgpo_service_name: Unable to fetch friendly name for vGPO service name (net_cfg is NULL)"));
}

TEST(a_found_service, of_our_type_is_resolved_with_the_record_as_it_came)
{
    unit u;
    describe(u, {""});
    ASSERT_EQ(u.start(), 0);
    u.deliver("sdisc", 2, browsed(near));
    const auto sent = u.sent("sdisc", 8);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].payload, browsed(near));
    EXPECT_TRUE(u.logged(std::string("4 zel_sdisc_ipc_cb: Found new service: '") + near +
                         "' interface = 3, type = '_zelvgpo._tcp', domain = 'local'"));
    u.fail("ipc sdisc send 8");
    u.deliver("sdisc", 2, browsed(near));
    EXPECT_TRUE(u.logged(std::string("0 zel_sdisc_ipc_cb: Failed to send resolve request to zel_sdiscd for service '") + near + "'"));
}

TEST(a_message, of_another_service_type_is_ignored)
{
    unit u;
    describe(u, {near});
    ASSERT_EQ(u.start(), 0);
    u.forget_sent();
    u.deliver("sdisc", 2, browsed("printer", "_ipp._tcp"));
    u.deliver("sdisc", 3, browsed(near, "_ipp._tcp"));
    u.deliver("sdisc", 5, resolved("printer", "10.0.0.9", 1, "\"path=/a\"", "_ipp._tcp"));
    EXPECT_TRUE(u.sent("sdisc").empty());
    EXPECT_TRUE(u.logged("1 zel_sdisc_ipc_cb: Ignoring ZEL_SDISC_NEW_SERVICE_MSG for 'printer' as it is the incorrect type: '_ipp._tcp'"));
    EXPECT_TRUE(u.logged(std::string("1 zel_sdisc_ipc_cb: Ignoring ZEL_SDISC_SERVICE_REMOVED_MSG for '") + near +
                         "' as it is the incorrect type: '_ipp._tcp'"));
    EXPECT_TRUE(u.logged("1 zel_sdisc_ipc_cb: Ignoring ZEL_SDISC_SERVICE_RESOLVE_MSG for 'printer' as it is the incorrect type: '_ipp._tcp'"));
    EXPECT_NE(record(near), nullptr);
}

TEST(a_message, that_is_too_short_is_refused_with_a_warning)
{
    unit u;
    describe(u, {near});
    ASSERT_EQ(u.start(), 0);
    for (const auto &[type, whole] : {std::pair{2, browsed(near)}, {3, browsed(near)}, {5, resolved(near, "1.2.3.4", 1, "")}}) {
        for (size_t length : {size_t{1}, size_t{100}, size_t{type == 5 ? 238u : 196u}}) {
            u.take();
            u.forget_sent();
            fake::bytes cut = whole;
            cut.resize(length);
            u.deliver("sdisc", static_cast<uint8_t>(type), cut);
            EXPECT_EQ(u.count_of("log 1"), 1) << type << " " << length;
            EXPECT_TRUE(u.sent("sdisc").empty());
        }
        u.deliver_without_payload("sdisc", static_cast<uint8_t>(type), 1000);
    }
    EXPECT_EQ(record(near)->addr_port, nullptr);
}

TEST(a_message, with_fields_without_terminators_ends_them_at_their_size)
{
    unit u;
    describe(u, {""});
    ASSERT_EQ(u.start(), 0);
    fake::bytes full = resolved(std::string(64, 'n').c_str(), std::string(40, '9').c_str(), 9, std::string(2000, 't'));
    full.pop_back();
    u.deliver("sdisc", 5, full);
    const vGPO_t *const vgpo = record(std::string(64, 'n').c_str());
    ASSERT_NE(vgpo, nullptr);
    EXPECT_EQ(vgpo->addr_port, std::string(40, '9') + ":9");
    fake::bytes browse = browsed(std::string(64, 'm').c_str(), our_type, std::string(3000, 'd'));
    browse.pop_back();
    u.deliver("sdisc", 2, browse);
    EXPECT_EQ(u.sent("sdisc", 8).at(0).payload, browse);
}

TEST(a_message, of_collision_or_failure_or_unknown_type_is_only_logged)
{
    unit u;
    describe(u, {""});
    ASSERT_EQ(u.start(), 0);
    u.take();
    u.deliver_without_payload("sdisc", 4);
    u.deliver_without_payload("sdisc", 6);
    u.deliver("sdisc", 0, {1});
    u.deliver("sdisc", 1, {1});
    u.deliver("sdisc", 77, {1, 2});
    EXPECT_LINES(u.take(), "log 1 zel_sdisc_ipc_cb: ZEL_SDISC_SERVICE_NAME_COLLISION_MSG",
                 "log 0 zel_sdisc_ipc_cb: ZEL_SDISC_SERVICE_RESOLVE_FAILED_MSG");
}

TEST(a_resolved_service, is_listed_shown_in_the_tree_and_told_to_the_agent)
{
    unit u;
    describe(u, {""});
    ASSERT_EQ(u.start(), 0);
    u.take();
    u.forget_sent();
    resolve(u, near);
    EXPECT_LINES(u.take(),
                 std::string("log 4 zel_sdisc_ipc_cb: Service '") + near +
                     "' resolved: interface=3 type='_zelvgpo._tcp' host='host' addr='10.0.0.2' port=9000 txt='\"path=/near\"'",
                 "log 4 add_remote_vgpo: 1 Remote vGPOs currently in list",
                 std::string("log 2 add_remote_vgpo: Adding newly discovered remote vgpo '") + near + "' to list...",
                 std::string("ember add string gpio/vgpio sources/v-0 = ") + near + " r", "ipc snmp send 14 (68 bytes)");
    const vGPO_t *const vgpo = record(near);
    ASSERT_NE(vgpo, nullptr);
    EXPECT_STREQ(vgpo->addr_port, "10.0.0.2:9000");
    EXPECT_STREQ(vgpo->type_path, "/near/type");
    EXPECT_STREQ(vgpo->status_path, "/near/status");
    EXPECT_EQ(u.sent("snmp", 14).at(0).text_at(4, 64), near);
}

struct txt_case {
    const char *txt;
    const char *type_path, *addr_port;
};
const txt_case txt_cases[] = {
    {"\"path=/a/b\"", "/a/b/type", "10.0.0.2:9000"},
    {"path=/a/b,altport=9001", "/a/b/type", "10.0.0.2:9001"},
    {"path=/a/b", "/a/b/type", "10.0.0.2:9000"},
    {"path=", nullptr, "10.0.0.2:9000"},
    {"", nullptr, "10.0.0.2:9000"},
    {"altport=", nullptr, "10.0.0.2:9000"},
    {"altport=12x", nullptr, "10.0.0.2:12"},
    {"altport=70000", nullptr, "10.0.0.2:9000"},
    {"altport=99999999999999999999", nullptr, "10.0.0.2:9000"},
};

TEST(a_txt_text, gives_path_and_port)
{
    for (const txt_case &c : txt_cases) {
        EXPECT_CHILD_SUCCEEDS({
            unit u;
            describe(u, {""});
            u.start();
            resolve(u, near, "10.0.0.2", 9000, c.txt);
            const vGPO_t *const vgpo = record(near);
            ASSERT_NE(vgpo, nullptr);
            EXPECT_STREQ(vgpo->type_path, c.type_path) << c.txt;
            EXPECT_STREQ(vgpo->addr_port, c.addr_port) << c.txt;
        });
    }
}

TEST(a_txt_text, replaces_paths_that_begin_otherwise)
{
    unit u;
    describe(u, {""});
    ASSERT_EQ(u.start(), 0);
    resolve(u, near);
    uint16_t number = 1;
    EXPECT_EQ(zel::parse_strlist(record(near), &number, "\"path=/near\""), 0);
    EXPECT_EQ(zel::parse_strlist(record(near), &number, "\"path=/other\""), 1);
    EXPECT_STREQ(record(near)->status_path, "/other/status");
    EXPECT_EQ(number, 1);
}

TEST(a_resolved_service, without_a_name_is_nothing)
{
    unit u;
    describe(u, {""});
    ASSERT_EQ(u.start(), 0);
    resolve(u, "");
    EXPECT_EQ(zel::remote_vgpos.count, 0u);
}

TEST(a_removed_service, that_nobody_follows_leaves_list_tree_and_agent)
{
    unit u;
    describe(u, {""});
    ASSERT_EQ(u.start(), 0);
    resolve(u, near);
    resolve(u, far, "10.0.0.3");
    u.take();
    u.forget_sent();
    remove(u, near);
    EXPECT_LINES(u.take(),
                 std::string("log 4 zel_sdisc_ipc_cb: Service removed: '") + near + "' interface = 3, type = '_zelvgpo._tcp', domain = 'local'",
                 "ember remove gpio/vgpio sources/v-0", "ipc snmp send 14 (68 bytes)",
                 std::string("log 2 remove_vgpo: Removing vgpo '") + near + "'");
    EXPECT_EQ(u.sent("snmp", 14).at(0).int_at(0), 0);
    EXPECT_EQ(u.sent("snmp", 14).at(0).text_at(4, 64), "");
    EXPECT_EQ(record(near), nullptr);
    remove(u, near);
    EXPECT_EQ(zel::remote_vgpos.count, 1u);
}

TEST(a_removed_service, that_is_followed_keeps_its_name_and_drops_the_level)
{
    unit u;
    describe(u, {near});
    u.relays(1).set("relay/relay_0/triggers", "vGPI 1").set("relay/relay_0/trigger_invert", "0");
    ASSERT_EQ(u.start(), 0);
    resolve(u, near);
    u.value(1, "/near/type", 2);
    u.value(1, "/near/status", 1);
    ASSERT_EQ(u.level(201), 1);
    u.take();
    remove(u, near);
    EXPECT_LINES(u.take_of("consumer"), "consumer 1 end");
    EXPECT_EQ(u.level(201), 0);
    EXPECT_EQ(port(0).state, 0);
    EXPECT_EQ(u.value_of("gpio/virtual/vgpio 1/status"), "0");
    ASSERT_NE(record(near), nullptr);
    EXPECT_EQ(record(near)->addr_port, nullptr);
    EXPECT_EQ(record(near)->type_path, nullptr);
    resolve(u, near);
    EXPECT_EQ(u.consumers().size(), 1u);
}

TEST(remote_units, that_come_and_go_reuse_numbers_and_records)
{
    unit u;
    describe(u, {""});
    ASSERT_EQ(u.start(), 0);
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 40; ++i) resolve(u, ("vGPO1@" + std::to_string(i)).c_str());
        EXPECT_EQ(zel::remote_vgpos.count, 40u);
        EXPECT_EQ(zel::remote_vgpos.tail->vgpo->id, 39u);
        for (int i = 0; i < 40; ++i) remove(u, ("vGPO1@" + std::to_string(i)).c_str());
        EXPECT_EQ(zel::remote_vgpos.count, 0u);
    }
}

}  // namespace
