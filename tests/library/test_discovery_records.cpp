// Records of the discovery daemon whose contents other units chose: odd, hostile, cut short, and very many.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "child_process.h"
#include "grid_test.h"
#include "vgpo_units.h"
#include "zel_gpio/vgpo_discovery.h"

using namespace vgpo_units;
using fake::bytes;
using fake::unit;

namespace {

void put(bytes &record, size_t at, const std::string &text) { std::memcpy(&record[at], text.data(), text.size()); }

struct txt_case {
    const char *txt;
    int32_t result;
    const char *type_path, *status_path;   // null: unset
    int port;                              // 1 when it was left alone
};

const txt_case txt_cases[] = {
    {"\"path=/a/b\"", 1, "/a/b/type", "/a/b/status", 1},
    {"path=/a/b,altport=9001", 1, "/a/b/type", "/a/b/status", 9001},
    {"\"path=/a/b,altport=9001\"", 1, "/a/b/type", "/a/b/status", 9001},
    {"\"altport=9001,path=/a/b\"", 1, "/a/b/type", "/a/b/status", 9001},
    {"\"altport=9001\" \"path=/a/b\"", 1, "/a/b/type", "/a/b/status", 9001},
    {"\"path=/a/b\" \"altport=9001\"", 1, "/a/b/type", "/a/b/status", 9001},
    {"path=/a\"b,c\"", 1, "/a\"b/type", "/a\"b/status", 1},      // the first comma ends the path, whatever quotes come before it
    {"\"xpath=/a\"", 1, "/a/type", "/a/status", 1},             // the key may stand anywhere
    {"path=/a path=/b", 1, "/a path=/b/type", "/a path=/b/status", 1},
    {"path=,altport=7", 1, "/type", "/status", 7},
    {"path=\"", 1, "/type", "/status", 1},
    {"path=/", 1, "//type", "//status", 1},
    {"path=%s%n/\xFF", 1, "%s%n/\xFF/type", "%s%n/\xFF/status", 1},
    {"path=", 0, nullptr, nullptr, 1},
    {"PATH=/a", 0, nullptr, nullptr, 1},
    {"path", 0, nullptr, nullptr, 1},
    {"", 0, nullptr, nullptr, 1},
    {"\"\"", 0, nullptr, nullptr, 1},
    {"altport=", 0, nullptr, nullptr, 1},
    {"altport=9001x", 0, nullptr, nullptr, 9001},
    {"altport=09001", 0, nullptr, nullptr, 9001},
    {"altport=00000000000000000000000000000000042", 0, nullptr, nullptr, 42},
    {"altport=65535", 0, nullptr, nullptr, 65535},
    {"altport=65536", 0, nullptr, nullptr, 1},
    {"altport=4294967297", 0, nullptr, nullptr, 1},
    {"altport=18446744073709551617", 0, nullptr, nullptr, 1},
    {"altport=9001,altport=9002", 0, nullptr, nullptr, 9001},
    {"portalt=9001", 0, nullptr, nullptr, 1},
};

TEST(a_txt_text, is_read_key_by_key)
{
    const unit u;
    for (const txt_case &c : txt_cases) {
        vGPO_t vgpo{};
        uint16_t port = 1;
        EXPECT_EQ(zel::parse_strlist(&vgpo, &port, c.txt), c.result) << c.txt;
        EXPECT_STREQ(vgpo.type_path, c.type_path) << c.txt;
        EXPECT_STREQ(vgpo.status_path, c.status_path) << c.txt;
        EXPECT_EQ(port, c.port) << c.txt;
        std::free(vgpo.type_path);
        std::free(vgpo.status_path);
    }
}

TEST(a_txt_text, with_another_port_says_so)
{
    unit u;
    vGPO_t vgpo{};
    uint16_t port = 9000;
    (void)zel::parse_strlist(&vgpo, &port, "altport=9001,");
    EXPECT_LINES(u.take(), "log 4 parse_strlist: Got override for provider port: 9001");
    (void)zel::parse_strlist(&vgpo, &port, "altport=");
    EXPECT_TRUE(u.take().empty());
}

struct kept_path {
    const char *txt;
    int32_t result;
    const char *type_path, *status_path;
};

TEST(a_txt_text, keeps_each_path_that_begins_with_the_new_one)
{
    const unit u;
    for (const kept_path &c : {kept_path{"path=/near", 0, "/near/type", "/near/status"},
                               {"path=/ne", 0, "/near/type", "/near/status"},
                               {"path=/nearer", 1, "/nearer/type", "/nearer/status"},
                               {"path=", 0, "/near/type", "/near/status"},
                               {"path=\"", 0, "/near/type", "/near/status"},
                               {"path=/far", 1, "/far/type", "/far/status"},
                               {"path=/near/type", 1, "/near/type", "/near/type/status"},
                               {"path=/near/status", 1, "/near/status/type", "/near/status"},
                               {"path=/near/type/status", 1, "/near/type/status/type", "/near/type/status/status"}}) {
        vGPO_t vgpo{};
        uint16_t port = 1;
        ASSERT_EQ(zel::parse_strlist(&vgpo, &port, "path=/near"), 1);
        EXPECT_EQ(zel::parse_strlist(&vgpo, &port, c.txt), c.result) << c.txt;
        EXPECT_STREQ(vgpo.type_path, c.type_path) << c.txt;
        EXPECT_STREQ(vgpo.status_path, c.status_path) << c.txt;
        std::free(vgpo.type_path);
        std::free(vgpo.status_path);
    }
}

TEST(a_txt_text, stores_the_path_that_is_missing_beside_one_that_stays)
{
    const unit u;
    vGPO_t vgpo{};
    uint16_t port = 1;
    ASSERT_EQ(zel::parse_strlist(&vgpo, &port, "path=/near"), 1);
    zel::release_text(vgpo.type_path);
    EXPECT_EQ(zel::parse_strlist(&vgpo, &port, "path=/near"), 1);
    EXPECT_STREQ(vgpo.type_path, "/near/type");
    zel::release_text(vgpo.type_path);
    zel::release_text(vgpo.status_path);
}

struct null_call {
    const char *condition;
    void (*call)();
};
const null_call null_calls[] = {
    {"vgpo != NULL", [] { uint16_t port = 1; zel::parse_strlist(nullptr, &port, ""); }},
    {"port != NULL", [] { vGPO_t vgpo{}; zel::parse_strlist(&vgpo, nullptr, ""); }},
    {"strlist != NULL", [] { vGPO_t vgpo{}; uint16_t port = 1; zel::parse_strlist(&vgpo, &port, nullptr); }},
    {"name != NULL", [] { zel::add_remote_vgpo(nullptr, "10.0.0.2", 9000, ""); }},
};

TEST(discovery, stops_the_process_on_null_arguments)
{
    const unit u;
    for (const null_call &bad : null_calls) {
        const fake::child_result child = fake::in_child(bad.call);
        EXPECT_EQ(child.signal, SIGABRT) << bad.condition;
        EXPECT_NE(child.output.find(std::string("`") + bad.condition + "'"), std::string::npos) << child.output;
    }
}

class messages : public testing::Test {
protected:
    unit u;

    void SetUp() override
    {
        describe(u, {near});
        ASSERT_EQ(u.start(), 0);
        u.take();
        u.forget_sent();
    }
};

TEST_F(messages, of_every_length_below_the_shortest_are_refused_with_one_warning)
{
    const bytes browse = browsed(near), resolve_record = resolved(near, "10.0.0.2", 9000, "path=/a");
    for (const auto &[type, whole, shortest] : {std::tuple{uint8_t{2}, &browse, size_t{197}}, {uint8_t{3}, &browse, size_t{197}},
                                                {uint8_t{5}, &resolve_record, size_t{239}}}) {
        for (size_t length = 0; length < shortest; ++length) {
            u.deliver("sdisc", type, bytes(whole->begin(), whole->begin() + static_cast<std::ptrdiff_t>(length)));
            const fake::lines said = u.take();
            ASSERT_EQ(said.size(), 1u) << int{type} << " " << length;
            EXPECT_EQ(said[0].find("log 1 zel_sdisc_ipc_cb: Ignoring a message"), 0u) << said[0];
        }
    }
    EXPECT_TRUE(u.sent("sdisc").empty());
    EXPECT_EQ(record(near)->addr_port, nullptr);
}

TEST_F(messages, of_collision_and_failure_need_no_payload_and_read_none)
{
    for (const size_t length : {0u, 1u, 5u, 3000u}) {
        u.deliver("sdisc", 4, bytes(length, 0xFF));
        u.deliver("sdisc", 6, bytes(length, 0xFF));
        EXPECT_LINES(u.take(), "log 1 zel_sdisc_ipc_cb: ZEL_SDISC_SERVICE_NAME_COLLISION_MSG",
                     "log 0 zel_sdisc_ipc_cb: ZEL_SDISC_SERVICE_RESOLVE_FAILED_MSG");
    }
    EXPECT_TRUE(u.sent("sdisc").empty());
}

TEST_F(messages, of_any_other_type_are_passed_over_without_a_word)
{
    for (int type = 0; type < 256; ++type) {
        if (type >= 2 && type <= 6) continue;
        u.deliver("sdisc", static_cast<uint8_t>(type), browsed(near));
        u.deliver_without_payload("sdisc", static_cast<uint8_t>(type), 9);
    }
    EXPECT_TRUE(u.take().empty());
}

struct full_field {
    size_t offset, size;
};

TEST_F(messages, with_one_unterminated_field_each_read_that_field_alone)
{
    for (const full_field &f : {full_field{4, 64}, {68, 64}, {132, 64}, {196, 40}}) {
        bytes resolve_record = resolved(far, "10.0.0.3", 9000, "path=/far");
        put(resolve_record, f.offset, std::string(f.size, 'x'));
        u.deliver("sdisc", 5, resolve_record);
    }
    EXPECT_TRUE(u.logged("4 zel_sdisc_ipc_cb: Service '" + std::string(64, 'x') +
                         "' resolved: interface=3 type='_zelvgpo._tcp' host='host' addr='10.0.0.3' port=9000 txt='path=/far'"));
    EXPECT_TRUE(u.logged(std::string("4 zel_sdisc_ipc_cb: Service '") + far +
                         "' resolved: interface=3 type='_zelvgpo._tcp' host='" + std::string(64, 'x') +
                         "' addr='10.0.0.3' port=9000 txt='path=/far'"));
    EXPECT_TRUE(u.logged(std::string("1 zel_sdisc_ipc_cb: Ignoring ZEL_SDISC_SERVICE_RESOLVE_MSG for '") + far +
                         "' as it is the incorrect type: '" + std::string(64, 'x') + "'"));
    ASSERT_NE(record(far), nullptr);
    EXPECT_EQ(record(far)->addr_port, std::string(40, 'x') + ":9000");
    EXPECT_STREQ(record(std::string(64, 'x').c_str())->addr_port, "10.0.0.3:9000");
}

TEST_F(messages, with_an_unterminated_txt_end_it_at_the_message_or_at_1024_bytes)
{
    bytes cut = resolved(far, "10.0.0.3", 9000, "path=/far,altport=9001");
    cut.resize(cut.size() - 2);
    u.deliver("sdisc", 5, cut);
    EXPECT_STREQ(record(far)->addr_port, "10.0.0.3:900");
    bytes lengthy = resolved(beside, "10.0.0.3", 9000, "path=" + std::string(4000, 'p'));
    u.deliver("sdisc", 5, lengthy);
    EXPECT_EQ(std::string(record(beside)->type_path).size(), 1024u - 5 + 5) << "1019 characters of path, then /type";
}

TEST_F(messages, of_a_service_type_in_other_letters_are_of_another_type)
{
    for (const char *const type : {"_ZELVGPO._TCP", "_zelvgpo._tcp.", "_zelvgpo._tc", "", " _zelvgpo._tcp", "_zelvgpo._udp"}) {
        u.deliver("sdisc", 2, browsed(far, type));
        u.deliver("sdisc", 3, browsed(near, type));
        u.deliver("sdisc", 5, resolved(far, "10.0.0.3", 9000, "path=/far", type));
        EXPECT_EQ(fake::only(u.take(), {"log 1"}).size(), 3u) << type;
    }
    EXPECT_TRUE(u.sent("sdisc").empty());
    EXPECT_EQ(record(far), nullptr);
    EXPECT_NE(record(near), nullptr);
}

TEST_F(messages, that_are_longer_than_what_is_read_go_back_whole)
{
    bytes lengthy = browsed(far);
    lengthy.resize(5000, 0xAB);
    const int32_t interface = -4;
    std::memcpy(lengthy.data(), &interface, 4);
    u.deliver("sdisc", 2, lengthy);
    EXPECT_EQ(u.sent("sdisc", 8).at(0).payload, lengthy);
    EXPECT_TRUE(u.logged(std::string("4 zel_sdisc_ipc_cb: Found new service: '") + far +
                         "' interface = -4, type = '_zelvgpo._tcp', domain = 'local'"));
}

/// Names that mean something to somebody: to formats, paths, lists, JSON and terminals.
const char *const wild_names[] = {"%s%n%s%n",     "/a/b/../c", "a, b", "!a", "\"", "\\",
                                  "{\"name\":1}", "\xFF\xFE",  "a\nb", "-",  "  ", "null"};

TEST_F(messages, with_wild_names_are_entered_as_they_are)
{
    for (const char *const name : wild_names) {
        resolve(u, name, "%s%n", 9000, "path=%s%n");
        const vGPO_t *const vgpo = record(name);
        ASSERT_NE(vgpo, nullptr) << name;
        EXPECT_STREQ(vgpo->addr_port, "%s%n:9000");
        EXPECT_EQ(u.value_of("gpio/vgpio sources/v-" + std::to_string(vgpo->id)), name);
    }
    const std::string document = u.request("/cgi/gpioGrid.cgi", "getFreeGpio=0", nullptr).text;
    EXPECT_NE(document.find("{\"name\":\"%s%n%s%n\"},{\"name\":\"/a/b/../c\"},{\"name\":\"a, b\"}"), std::string::npos)
        << document;
    EXPECT_NE(document.find("{\"name\":\"\\\"\"},{\"name\":\"\\\\\"},{\"name\":\"{\\\"name\\\":1}\"}"), std::string::npos)
        << document;
    for (const char *const name : wild_names) remove(u, name);
    EXPECT_EQ(zel::remote_vgpos.count, 1u);
}

TEST_F(messages, of_1024_bytes_of_garbage_are_survived)
{
    std::mt19937 random(20261121);
    const auto garbage = [&] {
        bytes record(1024);
        for (uint8_t &byte : record) byte = static_cast<uint8_t>(random());
        return record;
    };
    for (int round = 0; round < 400; ++round) {
        bytes record = garbage();
        if (round % 2 == 0) put(record, 132, std::string(our_type) + '\0');
        u.deliver("sdisc", static_cast<uint8_t>(round % 7 == 0 ? round : 2 + round / 2 % 5), record);
        if (round % 10 == 0) u.deliver("sdisc", 3, browsed(near));
    }
    for (const vgpo_node_t *node = zel::remote_vgpos.head; node != nullptr; node = node->next) {
        EXPECT_LE(std::strlen(node->vgpo->name), 64u);
        EXPECT_LE(std::strlen(node->vgpo->addr_port != nullptr ? node->vgpo->addr_port : ""), 46u);
    }
    EXPECT_GT(zel::remote_vgpos.count, 20u);
    EXPECT_EQ(port(0).vgpo_src_valid, 0);
    resolve(u, near);
    EXPECT_EQ(port(0).vgpo_src_valid, 1) << "and the unit still works";
}

TEST_F(messages, of_four_thousand_units_are_all_entered_and_taken_out_again)
{
    const auto name = [](int i) { return "vGPO1@Studio number " + std::to_string(i) + " of this very large house"; };
    for (int i = 0; i < 4000; ++i) resolve(u, name(i).c_str(), "10.1.1.1", 9000, "path=/p");
    EXPECT_EQ(zel::remote_vgpos.count, 4001u);
    EXPECT_EQ(zel::remote_vgpos.tail->vgpo->id, 4000u);
    EXPECT_EQ(u.request("/cgi/gpioGrid.cgi", "all", nullptr, 65536).status, 501) << "no part of a list that does not fit";
    const fake::web_reply reply = u.request("/cgi/gpioGrid.cgi", "all", nullptr, 1 << 20);
    EXPECT_EQ(reply.status, 200);
    EXPECT_NE(reply.text.find("{\"name\":\"" + name(3999) + "\"}],\"inputs\":"), std::string::npos);
    u.forget_sent();
    u.deliver("snmp", 1, {1});
    EXPECT_EQ(u.sent("snmp", 14).size(), 4001u);
    for (int i = 0; i < 4000; ++i) remove(u, name(i).c_str());
    EXPECT_EQ(zel::remote_vgpos.count, 1u);
    EXPECT_EQ(u.value_of("gpio/vgpio sources/v-4000"), "absent");
}

}  // namespace
