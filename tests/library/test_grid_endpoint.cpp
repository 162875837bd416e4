// "/cgi/gpioGrid.cgi": whole documents, and what forms do.
#include <gtest/gtest.h>

#include "child_process.h"
#include "grid_test.h"
#include "grid_texts.h"
#include "vgpo_units.h"
#include "zel_gpio/grid_documents.h"

using namespace vgpo_units;
using fake::unit;
using fake::web_reply;
using grid_texts::connection;
using grid_texts::item;
using grid_texts::list;

namespace {

constexpr char grid[] = "/cgi/gpioGrid.cgi";

web_reply get(unit &u, const char *query, size_t size = 65536) { return u.request(grid, query, nullptr, size); }
web_reply post(unit &u, const char *body, size_t size = 65536) { return u.request(grid, nullptr, body, size); }

/// GPI 0 (input, momentary, drives Record inverted), GPI 1 (output on "Door"), cough 2, vGPI 3, vGPO 4, disabled 5, button 6, LED 7,
/// relays 0 (on the grid) and 1.
void describe_all(unit &u)
{
    u.gpis(2).coughs(1).virtuals(3).buttons(1).relays(2).product("ZEL-SOFT");
    u.set("on_grid_handlers", "Record").set("on_grid_triggers", "Eth Link Down, Door");
    u.set("physical/gpio_0/type", 1).set("physical/gpio_0/input_mode", 1).set("physical/gpio_0/handler", "Record");
    u.set("physical/gpio_0/handler_invert", "1");
    u.set("physical/gpio_1/type", 2).set("physical/gpio_1/trigger", "Door, Nobody, GPI 1").set("physical/gpio_1/invert_trigger", "1, 0, 0");
    u.set("physical/gpio_2/type", 1).set("physical/gpio_2/handler", "Record").set("physical/gpio_2/handler_invert", "0");
    u.set("virtual/vgpio_0/type", 1).set("virtual/vgpio_0/vgpo_src", near).set("virtual/vgpio_0/handler_invert", "");
    u.set("virtual/vgpio_1/type", 2).set("virtual/vgpio_1/trigger", "User Button 1").set("virtual/vgpio_1/invert_trigger", "0");
    u.set("user_buttons/btn_1/type", 1).set("user_buttons/btn_1/handler_invert", "");
    u.set("user_buttons/led_1/type", 2).set("user_buttons/led_1/trigger", "COUGH 1").set("user_buttons/led_1/invert_trigger", "0");
    u.set("relay/relay_0/triggers", "vGPI 1").set("relay/relay_0/trigger_invert", "1");
    u.set("handler_info/Record/triggers", "Door").set("handler_info/Record/trigger_inverts", "0");
}

void start_all(unit &u)
{
    describe_all(u);
    ASSERT_EQ(u.start(), 0);
    u.handler("Record");
    u.handler("Play");
    u.led_handler(0);
    u.trigger("Door");
}

const std::string sources = std::string("\"vgpo_src_list\":[{\"name\":\"-\"},{\"name\":\"") + near + "\"}]";

TEST(the_grid, is_one_document_in_a_fixed_order)
{
    unit u;
    start_all(u);
    const web_reply reply = get(u, "all");
    EXPECT_EQ(reply.result, 1);
    EXPECT_EQ(reply.status, 200);
    EXPECT_EQ(reply.text,
              "{\"prodid\":\"ZEL-SOFT\"," + sources + ",\"inputs\":" +
                  list({item(0, "event", "Eth Link Down", 0), item(12, "event", "Door", 0),
                        item(0, "physical", "Physical Port 1", 0, ",\"input_mode\":1"),
                        item(2, "cough", "Cough Port 1", 0, ",\"input_mode\":1"),
                        item(3, "virtual", "Virtual Port 1", 0, std::string(",\"vgpo_src\":\"") + near + "\",\"vgpo_src_valid\":false"),
                        item(6, "user_button", "User Button 1", 0, ",\"input_mode\":0")}) +
                  ",\"outputs\":" +
                  list({item(0, "event", "Record", 1), item(1, "physical", "Physical Port 2", 1), item(4, "virtual", "Virtual Port 2", 0),
                        item(7, "user_led", "User LED 1", 0), item(0, "relay", "Relay 1", 1)}) +
                  ",\"connections\":" +
                  list({connection("physical", 0, "event", 0, 1, nullptr, 1), connection("event", 12, "physical", 1, 1, "true", 1),
                        connection("physical", 0, "physical", 1, 0, "true", 0), connection("cough", 2, "event", 0, 0, nullptr, 0),
                        connection("user_button", 6, "virtual", 4, 0, "true", 0), connection("cough", 2, "user_led", 7, 0, "true", 0),
                        connection("virtual", 3, "relay", 0, 1, "true", 1), connection("event", 12, "event", 0, 0, "true", 0)}) +
                  "}");
}

TEST(free_items, are_triggers_or_handlers_and_disabled_ports)
{
    unit u;
    start_all(u);
    const std::string disabled = item(5, "virtual", "Virtual Port 3", 0);
    EXPECT_EQ(get(u, "getFreeGpio=0").text,
              "{\"triggers\":" + list({item(1, "event", "AoIP Link Down", 0), item(2, "event", "AC Power Off", 0),
                                       item(3, "event", "DC Power Off", 0), item(4, "event", "PTP Sync Lost", 0)}) +
                  ",\"gpio\":" + list({disabled}) + "," + sources + "}");
    EXPECT_EQ(get(u, "getFreeGpio=1").text, "{\"handlers\":" + list({item(1, "event", "Play", 0)}) + ",\"gpio\":" +
                                                list({disabled, item(1, "relay", "Relay 2", 0)}) + "}");
    EXPECT_EQ(get(u, "getFreeGpio=2").text, "{\"gpio\":" + list({disabled}) + "}");
    // What is no number where a long has 32 bits is any other number elsewhere; it is never cut down to 0.
    EXPECT_EQ(get(u, "getFreeGpio=4294967296").text, sizeof(long) == 4 ? "" : "{\"gpio\":" + list({disabled}) + "}");
    EXPECT_EQ(get(u, "getFreeGpio=x").text, "");
    EXPECT_EQ(get(u, "gpioType=relay").text, "");
}

TEST(a_product, without_mains_supply_hides_its_trigger)
{
    unit u;
    u.product("KRT-DX4");
    ASSERT_EQ(u.start(), 0);
    EXPECT_EQ(get(u, "getFreeGpio=0").text.find("AC Power Off"), std::string::npos);
    EXPECT_NE(get(u, "getFreeGpio=0").text.find("DC Power Off"), std::string::npos);
}

TEST(a_document, that_does_not_fit_is_a_failure_and_not_a_part)
{
    unit u;
    start_all(u);
    const size_t whole = get(u, "all").text.size();
    EXPECT_EQ(get(u, "all", whole + 1).status, 200);
    for (size_t size : {whole, whole / 2, size_t{10}, size_t{1}}) {
        const web_reply reply = get(u, "all", size);
        EXPECT_EQ(reply.status, 501) << size;
        EXPECT_FALSE(reply.has_text);
    }
    EXPECT_EQ(post(u, "gpioType=relay&gpioPort=0&newState=2", 2).status, 501);
}

TEST(a_request, without_query_and_body_fails)
{
    unit u;
    start_all(u);
    EXPECT_EQ(u.request(grid, nullptr, nullptr).status, 501);
    EXPECT_EQ(u.request(grid, "", nullptr).status, 501);
    EXPECT_EQ(u.request(grid, "", "").status, 501);
    EXPECT_EQ(u.request(grid, "all", "gpioType=relay").status, 200) << "a query comes first";
}

struct bad_form {
    const char *body, *message;
};
const bad_form bad_forms[] = {
    {"nothing", "0 gpio_grid_post_handler: Invalid header string"},
    {"gpioType=relay", "0 gpio_grid_post_handler: Failed to get list of ports"},
    {"gpioPort=1", "0 gpio_grid_post_handler: Failed to get type string"},
    {"gpioType=physical&gpioPort=0&newState=1", "0 gpio_grid_post_handler: Failed to get new input mode"},
    {"gpioType=physical&gpioPort=0&newState=1&gpioInMode=x", "0 gpio_grid_post_handler: Failed to get new input mode"},
    {"gpioType=user_button&gpioPort=6&newState=1", "0 gpio_grid_post_handler: Failed to get new input mode"},
    {"gpioType=virtual&gpioPort=3&newState=1", "0 gpio_grid_post_handler: Failed to get new vgpo src"},
    {"gpioType=physical&gpioPort=0&newState=1&gpioInMode=2", "0 set_gpio_to_input: Invalid input mode 2"},
    {"gpioType=physical&gpioPort=0&newState=1&gpioInMode=4294967297", nullptr},
    {"gpioType=physical&gpioPort=0&newState=1&gpioInMode=-4294967296", nullptr},
    {"gpioType=user_led&gpioPort=7&newState=1", "0 set_gpio_to_input: Cannot set user button LED as an input"},
    {"gpioType=user_button&gpioPort=6&newState=2", "0 set_gpio_to_output: Cannot set user button as an output"},
    {"gpioType=event&gpioPort=200&newState=0", nullptr},
    {"gpioType=event&gpioPort=4294967296&newState=1", nullptr},
};

TEST(a_form, that_is_wrong_is_refused_with_an_empty_object)
{
    for (const bad_form &bad : bad_forms) {
        EXPECT_CHILD_SUCCEEDS({
            unit u;
            start_all(u);
            const web_reply reply = post(u, bad.body);
            EXPECT_EQ(reply.status, 501) << bad.body;
            EXPECT_EQ(reply.text, "{}");
            if (bad.message != nullptr) { EXPECT_TRUE(u.logged(bad.message)) << bad.body; }
        });
    }
}

TEST(a_form, with_numbers_outside_the_tables_changes_nothing)
{
    unit u;
    start_all(u);
    u.take();
    for (const char *body : {"gpioType=relay&gpioPort=2,-1,99999999999999999999&newState=0", "gpioType=event&gpioPort=-1&newState=1",
                             "gpioType=physical&gpioPort=8,-1,4294967296&newState=0", "gpioType=event&gpioPort=7&newState=3",
                             "gpioType=relay&gpioPort=,,&newState=0"}) {
        EXPECT_EQ(post(u, body).status, 200) << body;
        EXPECT_TRUE(u.take_of("json").empty()) << body;
    }
}

TEST(relays, go_on_and_off_the_grid)
{
    unit u;
    start_all(u);
    EXPECT_EQ(post(u, "gpioType=relay&gpioPort=0,1&newState=2").text, "{}");
    EXPECT_EQ(zel::relays[1].on_grid, 1);
    EXPECT_EQ(u.json("gpio/relay/relay_1/on_grid"), "true");
    EXPECT_EQ(post(u, "gpioType=relay&gpioPort=0,1&newState=1").status, 200);
    EXPECT_EQ(zel::relays[0].on_grid, 0);
    EXPECT_EQ(zel::relays[0].num_trigs, 1) << "off the grid with its list";
    EXPECT_EQ(post(u, "gpioType=relay&gpioPort=0&newState=0").status, 200);
    EXPECT_EQ(zel::relays[0].num_trigs, 0);
    EXPECT_EQ(u.level(201), 0);
}

TEST(relays, whose_settings_cannot_be_reached_are_reported)
{
    unit u;
    start_all(u);
    u.fail("json load gpio/relay/relay_0");
    EXPECT_EQ(post(u, "gpioType=relay&gpioPort=0&newState=2").status, 501);
    EXPECT_TRUE(u.logged("0 gpio_grid_post_handler: Failed to load json object: relays->relay_0"));
    u.heal();
    u.fail("json set gpio/relay/relay_1/on_grid");
    EXPECT_EQ(post(u, "gpioType=relay&gpioPort=1&newState=2").status, 501);
    EXPECT_TRUE(u.logged("0 gpio_grid_post_handler: Failed to set on_grid for json object: relay_1 to 1"));
}

TEST(events, go_on_and_off_the_grid)
{
    unit u;
    start_all(u);
    const std::string play = std::to_string(unit::handler_id("Play")), door = std::to_string(unit::trigger_id("Door"));
    EXPECT_EQ(post(u, ("gpioType=event&gpioPort=" + play + "&newState=2").c_str()).status, 200);
    EXPECT_EQ(u.json("gpio/on_grid_handlers"), "\"Record, Play\"");
    EXPECT_EQ(post(u, "gpioType=event&gpioPort=1&newState=1").status, 200);
    EXPECT_NE(u.json("gpio/on_grid_triggers").find("AoIP Link Down"), std::string::npos);
    EXPECT_EQ(post(u, ("gpioType=event&gpioPort=" + door + "&newState=0&gpioInMode=0").c_str()).status, 200);
    EXPECT_EQ(grid_test::port_list(1), "GPI 1#5");
    EXPECT_EQ(grid_test::handler_triggers(0), "");
    EXPECT_EQ(u.json("gpio/on_grid_triggers").find("Door"), std::string::npos);
    EXPECT_EQ(post(u, "gpioType=event&gpioPort=0&newState=0").status, 200);
    EXPECT_EQ(grid_test::port_handlers(0), "");
    EXPECT_EQ(u.json("gpio/on_grid_handlers"), "\"Play\"");
    const int32_t led = unit::handler_id("User LED 1");
    EXPECT_EQ(post(u, ("gpioType=event&gpioPort=" + std::to_string(led) + "&newState=2").c_str()).status, 200);
    EXPECT_EQ(handler_list[led].on_grid, 0);
}

TEST(ports, change_their_type)
{
    unit u;
    start_all(u);
    EXPECT_EQ(post(u, "gpioType=physical&gpioPort=0,1&newState=0").status, 200);
    EXPECT_EQ(zel::gpios[0].type + zel::gpios[1].type, 0u);
    EXPECT_EQ(post(u, "gpioType=physical&gpioPort=0,1&newState=1&gpioInMode=1").status, 200);
    EXPECT_EQ(zel::gpios[1].input_mode, 1u);
    EXPECT_EQ(post(u, "gpioType=physical&gpioPort=1&newState=2").status, 200);
    EXPECT_EQ(zel::gpios[1].type, 2u);
    resolve(u, near);
    EXPECT_EQ(post(u, "gpioType=virtual&gpioPort=5&newState=1&vgpoSrc=vGPO1%40Studio+2").status, 200);
    EXPECT_STREQ(zel::gpios[5].vgpo_src, near);
    EXPECT_EQ(post(u, "gpioType=virtual&gpioPort=5&newState=1&vgpoSrc=-").status, 200);
    EXPECT_STREQ(zel::gpios[5].vgpo_src, "");
    EXPECT_NE(get(u, "all").text.find("\"vgpo_src\":\"-\""), std::string::npos);
}

TEST(the_last_operation, decides_the_status)
{
    unit u;
    start_all(u);
    EXPECT_EQ(post(u, "gpioType=any&gpioPort=6,0&newState=2").status, 200);
    EXPECT_EQ(post(u, "gpioType=any&gpioPort=0,6&newState=2").status, 501);
}

TEST(triggers_and_ports, are_counted_into_one_another)
{
    unit u;
    u.gpis(12).virtuals(8).buttons(2);
    ASSERT_EQ(u.start(), 0);
    for (const auto &[port, trigger] : {std::pair{0, 5}, {19, 24}, {20, 25}, {21, 25}, {22, 26}, {23, 26}})
        EXPECT_EQ(zel::trigger_of_port(port), trigger) << port;
    for (const auto &[trigger, port] : {std::pair{5, 0}, {24, 19}, {25, 20}, {26, 22}})
        EXPECT_EQ(zel::port_of_trigger(trigger), port) << trigger;
}

TEST(the_documents, stop_the_process_without_a_buffer)
{
    for (const auto &call : {+[] { zel::get_gpio_grid_info(nullptr, 10, 0); }, +[] { zel::get_gpio_free_info(0, nullptr, 10, 0); }}) {
        const fake::child_result child = fake::in_child(call);
        EXPECT_EQ(child.signal, SIGABRT);
        EXPECT_NE(child.output.find("`buf != NULL'"), std::string::npos);
    }
}

}  // namespace
