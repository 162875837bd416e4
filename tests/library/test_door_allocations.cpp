// Memory that runs out at the outer doors: while other units come, go and are followed, while the browser and the agent ask.
#include <gtest/gtest.h>

#include "child_process.h"
#include "grid_test.h"
#include "library_allocations.h"
#include "vgpo_units.h"
#include "zel_gpio/snmp_records.h"
#include "zel_gpio/vgpi_links.h"

using namespace vgpo_units;
using fake::unit;

namespace {

constexpr char grid[] = "/cgi/gpioGrid.cgi", conn[] = "/cgi/gpioConn.cgi";

void resolve_far(unit &u, const char *address = "10.0.0.3") { resolve(u, far, address, 9000, "path=/far"); }

/// 0 GPI (input), 1 GPI (output), 2 and 3 vGPIs on `near`, 4 vGPI without a source; relay 0. `near` is reachable.
void start(unit &u)
{
    u.gpis(2).relays(1).set("physical/gpio_0/type", 1).set("physical/gpio_1/type", 2).set("on_grid_handlers", "Record");
    describe(u, {near, near, ""});
    ASSERT_EQ(u.start(), 0);
    u.handler("Record"), u.trigger("Door");
    resolve(u, near);
    u.take();
}

void ask(unit &u, uint8_t type, int32_t index, int32_t value, const char *text)
{
    zel::snmp_request_record record{index, value, {}, 1};
    strncpy(record.text, text, sizeof record.text);
    u.deliver_record("snmp", type, record);
}

/// Every record has all its texts that it needs, or none and no place in the tree.
void expect_whole_records()
{
    uint32_t nodes = 0;
    for (const vgpo_node_t *node = zel::remote_vgpos.head; node != nullptr; node = node->next, ++nodes) {
        const vGPO_t &vgpo = *node->vgpo;
        if (vgpo.name == nullptr)
            EXPECT_TRUE(vgpo.addr_port == nullptr && vgpo.type_path == nullptr && vgpo.status_path == nullptr &&
                        vgpo.ember_param == nullptr);
        else
            EXPECT_EQ(find_vgpo_by_name(&zel::remote_vgpos, vgpo.name), &vgpo) << vgpo.name;
    }
    EXPECT_EQ(nodes, zel::remote_vgpos.count);
}

/// With memory again everything works, whatever was lost.
void expect_a_working_unit(unit &u)
{
    fake::fail_allocation(-1);
    expect_whole_records();
    EXPECT_EQ(u.request(grid, "all", nullptr).status, 200);
    resolve(u, near);
    resolve_far(u);
    EXPECT_EQ(u.request(grid, nullptr, "gpioType=virtual&gpioPort=2,3,4&newState=1&vgpoSrc=vGPO1%40Studio+3").status, 200);
    for (const int32_t index : {2, 3, 4}) {
        EXPECT_STREQ(port(index).vgpo_src, far);
        EXPECT_EQ(port(index).vgpo_src_valid, 1);
    }
    ASSERT_EQ(u.consumers().size(), 1u);
    u.value(u.consumers()[0], "/far/status", 1);
    EXPECT_EQ(port(2).state + port(3).state + port(4).state, 3);
    EXPECT_EQ(u.request(conn, nullptr, "action=1&inputClass=event&inputID=10&outputClass=relay&outputID=0").status, 200);
    EXPECT_EQ(grid_test::relay_list(0).substr(0, 5), "Door#");
    expect_whole_records();
}

struct scenario {
    const char *what;
    void (*happens)(unit &);
};

const scenario scenarios[] = {
    {"a unit is found", [](unit &u) { resolve_far(u); }},
    {"a unit is found, goes and is found", [](unit &u) { resolve_far(u), remove(u, far), resolve_far(u); }},
    {"the followed unit moves", [](unit &u) { resolve(u, near, "10.0.0.7"); }},
    {"the followed unit has another path", [](unit &u) { resolve(u, near, "10.0.0.2", 9000, "path=/elsewhere"); }},
    {"the followed unit goes and returns", [](unit &u) { remove(u, near), resolve(u, near); }},
    {"the tree chooses a source", [](unit &u) { resolve_far(u), u.write("gpio/virtual/vgpio 3/vgpio source", far); }},
    {"the tree changes a source", [](unit &u) { resolve_far(u), u.write("gpio/virtual/vgpio 1/vgpio source", far); }},
    {"the tree turns an input round",
     [](unit &u) { u.write("gpio/virtual/vgpio 1/type", 2), u.write("gpio/virtual/vgpio 1/type", 1); }},
    {"the browser looks", [](unit &u) { u.request(grid, "all", nullptr), u.request(grid, "getFreeGpio=0", nullptr); }},
    {"the browser chooses a source",
     [](unit &u) { resolve_far(u), u.request(grid, nullptr, "gpioType=v&gpioPort=4&newState=1&vgpoSrc=vGPO1%40Studio+3"); }},
    {"the browser turns ports round",
     [](unit &u) {
         u.request(grid, nullptr, "gpioType=p&gpioPort=0,1&newState=2");
         u.request(grid, nullptr, "gpioType=p&gpioPort=0,1&newState=1&gpioInMode=1");
     }},
    {"the browser puts things on the grid",
     [](unit &u) {
         u.request(grid, nullptr, "gpioType=relay&gpioPort=0&newState=2");
         u.request(grid, nullptr, "gpioType=event&gpioPort=0&newState=2");
         u.request(grid, nullptr, "gpioType=event&gpioPort=10&newState=1");
     }},
    {"the browser connects",
     [](unit &u) {
         for (const char *const output : {"event", "relay", "physical"})
             u.request(conn, nullptr,
                       (std::string("action=1&inputClass=event&inputID=10&outputID=0&outputClass=") + output).c_str());
         u.request(conn, nullptr, "action=1&inputClass=virtual&inputID=2&outputClass=event&outputID=0");
         u.request(conn, nullptr, "action=1&inputClass=virtual&inputID=2&outputClass=physical&outputID=1");
     }},
    {"the browser connects and disconnects",
     [](unit &u) {
         for (const char *const action : {"1", "0"}) {
             u.request(conn, nullptr,
                       (std::string("action=") + action + "&inputClass=event&inputID=10&outputID=0&outputClass=relay").c_str());
             u.request(conn, nullptr,
                       (std::string("action=") + action + "&inputClass=virtual&inputID=2&outputID=0&outputClass=event").c_str());
         }
     }},
    {"the browser takes things off",
     [](unit &u) {
         u.request(grid, nullptr, "gpioType=event&gpioPort=0&newState=0");
         u.request(grid, nullptr, "gpioType=event&gpioPort=10&newState=0&gpioInMode=0");
         u.request(grid, nullptr, "gpioType=relay&gpioPort=0&newState=0");
     }},
    {"the agent asks",
     [](unit &u) {
         resolve_far(u);
         ask(u, 17, 1, 0, "Door,!Eth Link Down"), ask(u, 16, 0, 0, "Record"), ask(u, 35, 0, 0, "Door"), ask(u, 27, 2, 0, far);
         ask(u, 15, 0, 2, ""), ask(u, 15, 0, 1, ""), ask(u, 23, 0, 2, ""), ask(u, 23, 0, 1, "");
         u.deliver("snmp", 1, {1});
     }},
};

/// Runs the scenario with its nth allocation failing. False when it had no nth one.
bool survives(const scenario &s, int nth)
{
    bool fired = true;
    const fake::child_result child = fake::in_child([&] {
        unit u;
        start(u);
        fake::fail_allocation(nth);
        s.happens(u);
        if (!fake::allocation_failed()) std::printf("not that many\n");
        expect_a_working_unit(u);
        u.stop();
        EXPECT_TRUE(u.consumers().empty());
        EXPECT_EQ(fake::allocations_held(), 0u);
    });
    EXPECT_TRUE(child.exit_status == 0 && child.signal == 0) << s.what << ", allocation " << nth << "\n" << child.output;
    fired = child.output.find("not that many") == std::string::npos;
    return fired && child.exit_status == 0;
}

class each_allocation : public testing::TestWithParam<size_t> {};

TEST_P(each_allocation, that_fails_is_survived)
{
    const scenario &s = scenarios[GetParam()];
    RecordProperty("scenario", s.what);
    int nth = 0;
    while (survives(s, nth)) ++nth;
    RecordProperty("allocations", nth);
    if (!HasFailure()) { EXPECT_GT(nth, 0) << "a scenario that allocates nothing tests nothing"; }
}

INSTANTIATE_TEST_SUITE_P(doors, each_allocation, testing::Range(size_t{0}, std::size(scenarios)));

// ---- What is said, and what is left

struct lost {
    int nth;
    fake::lines said;
    uint32_t nodes;   // in the list afterwards
    bool listed;      // by name
};

TEST(a_new_record, that_finds_no_memory_says_so_and_is_listed_whole_or_not_at_all)
{
    const std::string no_record = "log 0 add_remote_vgpo: Failed to allocate vGPO_t",
                      no_name = "log 0 add_remote_vgpo: Failed to allocate memory for vGPO name",
                      no_path = "log 0 parse_strlist: Failed to allocate memory for vGPO strlist",
                      no_parse = "log 0 add_remote_vgpo: Failed to parse strlist",
                      no_address = "log 0 add_remote_vgpo: Failed to allocate memory for IP address and port in vGPO list";
    // A type path that fails before a status path that does not leaves a record that is listed and waits for its type path.
    for (const lost &l : {lost{0, {no_record}, 1, false},
                          {1, {no_record}, 1, false},
                          {2, {no_name}, 2, false},
                          {3, {no_path}, 2, true},
                          {4, {no_path, no_parse}, 2, false},
                          {5, {no_address}, 2, false}}) {
        SCOPED_TRACE(l.nth);
        EXPECT_CHILD_SUCCEEDS({
            unit u;
            start(u);
            u.forget_sent();
            fake::fail_allocation(l.nth);
            resolve_far(u);
            ASSERT_TRUE(fake::allocation_failed());
            EXPECT_EQ(fake::joined(fake::only(u.take(), {"log 0"})), fake::joined(l.said));
            EXPECT_EQ(zel::remote_vgpos.count, l.nodes);
            EXPECT_EQ(record(far) != nullptr, l.listed);
            EXPECT_EQ(u.sent("snmp", 14).size(), l.listed ? 1u : 0u);
            EXPECT_EQ(u.value_of("gpio/vgpio sources/v-1"), l.listed ? far : "absent");
            EXPECT_EQ(u.request(grid, "getFreeGpio=0", nullptr).text.find(far) != std::string::npos, l.listed);
            resolve_far(u);
            ASSERT_NE(record(far), nullptr);
            EXPECT_EQ(record(far)->id, l.nodes == 2 && !l.listed ? 2u : 1u) << "the number of an emptied record is taken";
            EXPECT_STREQ(record(far)->type_path, "/far/type");
            EXPECT_EQ(u.value_of("gpio/vgpio sources/v-" + std::to_string(record(far)->id)), far);
            remove(u, far);
            expect_a_working_unit(u);
        });
    }
}

TEST(a_known_record, that_finds_no_memory_for_its_new_address_is_found_again_with_its_followers)
{
    unit u;
    start(u);
    u.value(1, "/near/status", 1);
    u.forget_sent();
    fake::fail_allocation(0);
    resolve(u, near, "10.0.0.7");
    ASSERT_TRUE(fake::allocation_failed());
    EXPECT_EQ(record(near), nullptr);
    ASSERT_EQ(u.sent("snmp", 14).size(), 1u);
    EXPECT_EQ(u.sent("snmp", 14).at(0).text_at(4, 64), "") << "the agent is told that its row is gone";
    EXPECT_EQ(port(2).state, 1) << "the level is held";
    EXPECT_STREQ(port(2).vgpo_src, near);
    u.value(1, "/near/status", 0);
    EXPECT_TRUE(u.logged(std::string("0 vgpo_state_cb: Failed to find vGPO named '") + near + "' in list"));
    u.connected(1, true);
    resolve(u, near, "10.0.0.7");
    EXPECT_EQ(u.consumers(), std::vector<int>{2});
    EXPECT_EQ(port(2).vgpi_session, port(3).vgpi_session);
    u.value(2, "/near/status", 1);
    EXPECT_EQ(port(2).state + port(3).state, 2);
}

TEST(a_source, whose_name_finds_no_memory_is_not_chosen)
{
    unit u;
    start(u);
    resolve_far(u);
    fake::fail_allocation(0);
    u.write("gpio/virtual/vgpio 1/vgpio source", far);
    ASSERT_TRUE(fake::allocation_failed());
    EXPECT_TRUE(u.logged(std::string("0 set_source_name: Failed to allocate memory for vGPO source '") + far + "'"));
    EXPECT_STREQ(port(2).vgpo_src, "");
    EXPECT_EQ(port(2).vgpi_session, nullptr);
    EXPECT_EQ(port(3).vgpo_src_valid, 1) << "its neighbour goes on";
    expect_a_working_unit(u);
}

TEST(a_link, whose_address_finds_no_memory_is_not_valid_and_tried_again_with_the_next_news)
{
    unit u;
    start(u);
    fake::fail_allocation(1);   // behind the record's own address
    resolve(u, near, "10.0.0.7");
    ASSERT_TRUE(fake::allocation_failed());
    EXPECT_TRUE(u.logged("0 connect_vgpi_to_vgpo: Get vGPO state param failed (src addr = '10.0.0.7:9000')"));
    EXPECT_EQ(port(2).vgpo_src_valid, 0);
    resolve(u, near, "10.0.0.7");
    EXPECT_EQ(port(2).vgpo_src_valid + port(3).vgpo_src_valid, 2);
    EXPECT_EQ(u.consumers().size(), 1u);
}

TEST(a_request, whose_text_cannot_be_copied_says_so)
{
    unit u;
    start(u);
    struct text_case {
        const char *path, *query, *body, *said, *text;
        int status;
    };
    for (const text_case &c :
         {text_case{grid, "all", nullptr, "0 gpio_grid_get_handler: strdup failed", nullptr, 501},
          {grid, nullptr, "gpioType=relay&gpioPort=0&newState=2", "0 gpio_grid_post_handler: strdup failed", "{}", 200},
          {conn, nullptr, "action=1&inputClass=event&inputID=1&outputClass=relay&outputID=0",
           "0 url_handler_func_gpioConn: strdup failed", nullptr, 501}}) {
        const std::string before = u.json("gpio");
        fake::fail_allocation(0);
        const fake::web_reply reply = u.request(c.path, c.query, c.body);
        ASSERT_TRUE(fake::allocation_failed()) << c.said;
        EXPECT_TRUE(u.logged(c.said)) << c.said;
        EXPECT_EQ(reply.status, c.status) << c.said;
        EXPECT_EQ(reply.has_text, c.text != nullptr);
        EXPECT_EQ(reply.text, c.text != nullptr ? c.text : "");
        EXPECT_EQ(u.json("gpio"), before);
    }
    fake::fail_allocation(1);
    EXPECT_EQ(u.request(grid, nullptr, "gpioType=virtual&gpioPort=4&newState=1&vgpoSrc=-").status, 501);
    EXPECT_TRUE(u.logged("0 gpio_grid_post_handler: Failed to allocate memory for a vgpo src"));
}

// ---- What is released

TEST(units, that_come_move_and_go_for_years_take_no_more_memory)
{
    unit u;
    start(u);
    const auto season = [&](int year) {
        for (int i = 0; i < 12; ++i) {
            const std::string name = "vGPO1@Year " + std::to_string(year) + "." + std::to_string(i);
            const std::string address = "10." + std::to_string(year % 250) + ".0." + std::to_string(i);
            resolve(u, name.c_str(), address.c_str(), 9000, "path=/" + name);
            u.write("gpio/virtual/vgpio 3/vgpio source", name.c_str());
            resolve(u, name.c_str(), ("1" + address).c_str(), 9000, "path=/" + name);
            remove(u, name.c_str());
            u.write("gpio/virtual/vgpio 3/vgpio source", "");
        }
    };
    u.write("gpio/virtual/vgpio 1/vgpio source", ""), u.write("gpio/virtual/vgpio 2/vgpio source", "");
    for (int year = 0; year < 5; ++year) season(year);
    const size_t early = fake::allocations_held();
    for (int year = 5; year < 40; ++year) season(year);
    EXPECT_LE(fake::allocations_held(), early + 4) << "a few texts may wait for the next choice";
    u.stop();
    EXPECT_EQ(fake::allocations_held(), 0u);
}

TEST(everything, is_released_at_the_end_whatever_is_followed)
{
    for (const scenario &s : scenarios) {
        SCOPED_TRACE(s.what);
        EXPECT_CHILD_SUCCEEDS({
            unit u;
            start(u);
            s.happens(u);
            u.stop();
            EXPECT_EQ(fake::allocations_held(), 0u);
        });
    }
}

}  // namespace
