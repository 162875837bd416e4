// The grid's documents of units of every kind, compared whole.
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

constexpr char grid[] = "/cgi/gpioGrid.cgi", conn[] = "/cgi/gpioConn.cgi";

std::string get(unit &u, const char *query) { return u.request(grid, query, nullptr, 1 << 18).text; }

void connect(unit &u, const char *form) { u.request(conn, nullptr, (std::string("action=1&") + form).c_str()); }

/// The whole document of a product "ZEL-SOFT" that knows these sources of other units.
std::string document(const std::string &inputs, const std::string &outputs, const std::string &connections,
                     std::initializer_list<const char *> sources = {})
{
    std::string text = "{\"prodid\":\"ZEL-SOFT\",\"vgpo_src_list\":[{\"name\":\"-\"}";
    for (const char *const name : sources) text += std::string(",{\"name\":\"") + name + "\"}";
    return text + "],\"inputs\":" + inputs + ",\"outputs\":" + outputs + ",\"connections\":" + connections + "}";
}

std::string mode(int number) { return ",\"input_mode\":" + std::to_string(number); }

std::string source(const char *name, bool valid)
{
    return std::string(",\"vgpo_src\":\"") + name + "\",\"vgpo_src_valid\":" + (valid ? "true" : "false");
}

TEST(the_grid, of_a_unit_with_nothing_is_empty)
{
    unit u;
    u.product("ZEL-SOFT");
    ASSERT_EQ(u.start(), 0);
    EXPECT_EQ(get(u, "all"), document("[]", "[]", "[]"));
    EXPECT_EQ(get(u, "getFreeGpio=1"), "{\"handlers\":[],\"gpio\":[]}");
    EXPECT_EQ(get(u, "getFreeGpio=-1"), "{\"gpio\":[]}");
    EXPECT_EQ(get(u, "getFreeGpio=0"), "{\"triggers\":" +
                                           list({item(0, "event", "Eth Link Down", 0), item(1, "event", "AoIP Link Down", 0),
                                                 item(2, "event", "AC Power Off", 0), item(3, "event", "DC Power Off", 0),
                                                 item(4, "event", "PTP Sync Lost", 0)}) +
                                           ",\"gpio\":[],\"vgpo_src_list\":[{\"name\":\"-\"}]}");
}

TEST(the_grid, of_a_unit_with_disabled_ports_offers_them_all)
{
    unit u;
    u.gpis(2).coughs(1).virtuals(1).buttons(2).relays(2).product("ZEL-SOFT");
    ASSERT_EQ(u.start(), 0);
    const std::string ports = item(0, "physical", "Physical Port 1", 0) + "," + item(1, "physical", "Physical Port 2", 0) + "," +
                              item(2, "cough", "Cough Port 1", 0) + "," + item(3, "virtual", "Virtual Port 1", 0) + "," +
                              item(4, "user_button", "User Button 1", 0) + "," + item(5, "user_led", "User LED 1", 0) + "," +
                              item(6, "user_button", "User Button 2", 0) + "," + item(7, "user_led", "User LED 2", 0);
    EXPECT_EQ(get(u, "all"), document("[]", "[]", "[]"));
    EXPECT_EQ(get(u, "getFreeGpio=3"), "{\"gpio\":[" + ports + "]}");
    EXPECT_EQ(get(u, "getFreeGpio=1"), "{\"handlers\":[],\"gpio\":[" + ports + "," + item(0, "relay", "Relay 1", 0) + "," +
                                           item(1, "relay", "Relay 2", 0) + "]}");
}

/// 0 GPI (input) drives Record plain and Play inverted; 1 GPI (output) on Door and, inverted, its neighbour; 2 cough drives Play;
/// 3 vGPI follows `near`; 4 vGPO on button 1 and vGPI 1; 5 button (latching) drives Record; 6 LED on Fire; relay 0 on all of
/// them.
void start_wired(unit &u)
{
    u.gpis(2).coughs(1).virtuals(2).buttons(1).relays(2).product("ZEL-SOFT");
    u.set("physical/gpio_0/type", 1).set("physical/gpio_0/input_mode", 1);
    u.set("physical/gpio_0/handler", "Record, Play").set("physical/gpio_0/handler_invert", "0, 1");
    u.set("physical/gpio_1/type", 2).set("physical/gpio_1/trigger", "Door, GPI 1").set("physical/gpio_1/invert_trigger", "0, 1");
    u.set("physical/gpio_2/type", 1).set("physical/gpio_2/handler", "Play").set("physical/gpio_2/handler_invert", "0");
    u.set("virtual/vgpio_0/type", 1).set("virtual/vgpio_0/vgpo_src", near).set("virtual/vgpio_0/handler_invert", "");
    u.set("virtual/vgpio_1/type", 2)
        .set("virtual/vgpio_1/trigger", "User Button 1, vGPI 1")
        .set("virtual/vgpio_1/invert_trigger", "0, 0");
    u.set("user_buttons/btn_1/type", 1).set("user_buttons/btn_1/handler", "Record").set("user_buttons/btn_1/handler_invert", "0");
    u.set("user_buttons/led_1/type", 2).set("user_buttons/led_1/trigger", "Fire").set("user_buttons/led_1/invert_trigger", "0");
    u.set("relay/relay_0/triggers", "Door, GPI 1, COUGH 1, vGPI 1, User Button 1")
        .set("relay/relay_0/trigger_invert", "1, 0, 0, 0, 0");
    u.set("on_grid_handlers", "Record").set("on_grid_triggers", "Door, Fire");
    ASSERT_EQ(u.start(), 0);
    u.handler("Record"), u.handler("Play"), u.led_handler(0);
    u.trigger("Door"), u.trigger("Fire");
    resolve(u, near);
    resolve(u, far, "10.0.0.3");
}

/// The document while everything is off (0) or on (1).
std::string wired(int on)
{
    const int off = 1 - on;
    return document(
        list({item(11, "event", "Door", on), item(12, "event", "Fire", on), item(0, "physical", "Physical Port 1", on, mode(1)),
              item(2, "cough", "Cough Port 1", on, mode(1)), item(3, "virtual", "Virtual Port 1", on, source(near, true)),
              item(5, "user_button", "User Button 1", on, mode(0))}),
        list({item(0, "event", "Record", on), item(1, "event", "Play", 1), item(1, "physical", "Physical Port 2", 1),
              item(4, "virtual", "Virtual Port 2", on), item(6, "user_led", "User LED 1", on), item(0, "relay", "Relay 1", 1)}),
        list({connection("physical", 0, "event", 0, 0, nullptr, on), connection("physical", 0, "event", 1, 1, nullptr, off),
              connection("event", 11, "physical", 1, 0, "true", on), connection("physical", 0, "physical", 1, 1, "true", off),
              connection("cough", 2, "event", 1, 0, nullptr, on), connection("user_button", 5, "virtual", 4, 0, "true", on),
              connection("virtual", 3, "virtual", 4, 0, "true", on), connection("user_button", 5, "event", 0, 0, nullptr, on),
              connection("event", 12, "user_led", 6, 0, "true", on), connection("event", 11, "relay", 0, 1, "true", off),
              connection("physical", 0, "relay", 0, 0, "true", on), connection("cough", 2, "relay", 0, 0, "true", on),
              connection("virtual", 3, "relay", 0, 0, "true", on), connection("user_button", 5, "relay", 0, 0, "true", on)}),
        {near, far});
}

TEST(the_grid, shows_the_level_of_every_input_output_and_connection)
{
    unit u;
    start_wired(u);
    connect(u, "inputClass=physical&inputID=0&outputClass=event&outputID=1&gpioInvert=1");   // puts Play on the grid
    EXPECT_EQ(get(u, "all"), wired(0));
    u.edge(1, 1), u.edge(3, 1);
    u.raise("Door"), u.raise("Fire");
    u.value(1, "/near/status", 1);
    zel_gpio_notify_user_button_event(0);
    EXPECT_EQ(get(u, "all"), wired(1));
}

TEST(the_grid, shows_only_what_is_on_it)
{
    unit u;
    u.gpis(1).relays(1).product("ZEL-SOFT").set("physical/gpio_0/type", 2);
    ASSERT_EQ(u.start(), 0);
    u.handler("Record"), u.trigger("Door");
    connect(u, "inputClass=event&inputID=0&outputClass=event&outputID=0");
    connect(u, "inputClass=event&inputID=0&outputClass=relay&outputID=0");
    const std::string output = item(0, "physical", "Physical Port 1", 0);
    // A connection puts its trigger on the grid, but neither its handler nor its relay.
    EXPECT_EQ(get(u, "all"), document(list({item(0, "event", "Eth Link Down", 0)}), list({output}), "[]"));
    u.request(grid, nullptr, "gpioType=relay&gpioPort=0&newState=2");
    const std::string relay = connection("event", 0, "relay", 0, 0, "true", 0);
    EXPECT_EQ(get(u, "all"), document(list({item(0, "event", "Eth Link Down", 0)}),
                                      list({output, item(0, "relay", "Relay 1", 0)}), list({relay})));
    u.request(grid, nullptr, "gpioType=event&gpioPort=0&newState=2");
    EXPECT_EQ(get(u, "all"), document(list({item(0, "event", "Eth Link Down", 0)}),
                                      list({item(0, "event", "Record", 0), output, item(0, "relay", "Relay 1", 0)}),
                                      list({relay, connection("event", 0, "event", 0, 0, "true", 0)})));
}

TEST(a_pair_of_handlers, that_mirror_each_other_shows_the_locked_inverts)
{
    unit u;
    u.product("ZEL-SOFT").set("on_grid_handlers", "Door, Fire").set("on_grid_triggers", "Door, Fire");
    ASSERT_EQ(u.start(), 0);
    u.handler("Door"), u.handler("Fire"), u.trigger("Door"), u.trigger("Fire");
    connect(u, "inputClass=event&inputID=6&outputClass=event&outputID=0&gpioInvert=1");
    connect(u, "inputClass=event&inputID=5&outputClass=event&outputID=1");
    connect(u, "inputClass=event&inputID=4&outputClass=event&outputID=1");
    const std::string text = get(u, "all");
    const std::string expected = "\"connections\":" + list({connection("event", 6, "event", 0, 1, "false", 1),
                                                            connection("event", 4, "event", 1, 0, "true", 0),
                                                            connection("event", 5, "event", 1, 1, "false", 1)}) + "}";
    EXPECT_EQ(text.substr(text.find("\"connections\"")), expected);
}

TEST(buttons_and_leds, are_numbered_in_pairs_and_found_by_their_triggers)
{
    unit u;
    u.gpis(1).virtuals(1).buttons(3).product("ZEL-SOFT");
    for (const char *const button : {"btn_1", "btn_2", "btn_3"}) u.set(std::string("user_buttons/") + button + "/type", 1);
    u.set("user_buttons/led_3/type", 2).set("user_buttons/led_3/invert_trigger", "0, 0, 0, 0, 0");
    u.set("user_buttons/led_3/trigger", "User Button 1, User Button 2, User Button 3, GPI 1, vGPI 1");
    ASSERT_EQ(u.start(), 0);
    const std::string text = get(u, "all");
    EXPECT_NE(text.find("\"outputs\":" + list({item(7, "user_led", "User LED 3", 0)})), std::string::npos) << text;
    EXPECT_NE(text.find("\"connections\":" + list({connection("user_button", 2, "user_led", 7, 0, "true", 0),
                                                   connection("user_button", 4, "user_led", 7, 0, "true", 0),
                                                   connection("user_button", 6, "user_led", 7, 0, "true", 0),
                                                   connection("physical", 0, "user_led", 7, 0, "true", 0),
                                                   connection("virtual", 1, "user_led", 7, 0, "true", 0)})),
              std::string::npos)
        << text;
}

TEST(a_connection, is_not_taken_for_one_of_another_kind_with_the_same_number)
{
    unit u;
    u.gpis(1).relays(2).product("ZEL-SOFT").set("physical/gpio_0/type", 1).set("physical/gpio_0/input_mode", 1);
    u.set("relay/relay_0/triggers", "Eth Link Down, GPI 1").set("relay/relay_0/trigger_invert", "0, 0");
    u.set("relay/relay_1/triggers", "Eth Link Down, GPI 1").set("relay/relay_1/trigger_invert", "1, 1");
    ASSERT_EQ(u.start(), 0);
    const std::string text = get(u, "all");
    const std::string expected = "\"connections\":" + list({connection("event", 0, "relay", 0, 0, "true", 0),
                                                            connection("physical", 0, "relay", 0, 0, "true", 0),
                                                            connection("event", 0, "relay", 1, 1, "true", 1),
                                                            connection("physical", 0, "relay", 1, 1, "true", 1)}) + "}";
    EXPECT_EQ(text.substr(text.find("\"connections\"")), expected);
}

TEST(a_trigger, that_is_not_registered_has_no_connection_until_it_is)
{
    unit u;
    u.relays(1).product("ZEL-SOFT").set("relay/relay_0/triggers", "Nobody, Door").set("relay/relay_0/trigger_invert", "1, 1");
    ASSERT_EQ(u.start(), 0);
    EXPECT_EQ(get(u, "all"), document("[]", list({item(0, "relay", "Relay 1", 0)}), "[]"));
    u.trigger("Door");
    EXPECT_EQ(get(u, "all"), document(list({item(5, "event", "Door", 0)}), list({item(0, "relay", "Relay 1", 1)}),
                                      list({connection("event", 5, "relay", 0, 1, "true", 1)})));
}

TEST(a_trigger, that_a_handler_waits_for_has_no_connection_either)
{
    unit u;
    u.product("ZEL-SOFT").set("on_grid_handlers", "Record").set("handler_info/Record/triggers", "Nobody, Eth Link Down");
    u.set("handler_info/Record/trigger_inverts", "0, 1");
    ASSERT_EQ(u.start(), 0);
    u.handler("Record");
    const std::string text = get(u, "all");
    EXPECT_NE(text.find("\"connections\":" + list({connection("event", 0, "event", 0, 1, "true", 1)}) + "}"), std::string::npos)
        << text;
}

TEST(names, are_written_as_json_texts)
{
    unit u;
    u.product("ZEL \"SOFT\"\\").set("on_grid_triggers", "\"Door\"\n\\");
    ASSERT_EQ(u.start(), 0);
    u.trigger("\"Door\"\n\\");
    const std::string text = get(u, "all");
    EXPECT_EQ(text.find("{\"prodid\":\"ZEL \\\"SOFT\\\"\\\\\","), 0u) << text;
    EXPECT_NE(text.find(item(5, "event", "\\\"Door\\\"\\u000a\\\\", 0)), std::string::npos) << text;
}

TEST(mains_supply, is_hidden_on_one_product_only_and_only_as_an_input)
{
    for (const char *const product : {"KRT-DX4", "KRT-DX40", "krt-dx4", "KRT-DX", " KRT-DX4", ""}) {
        SCOPED_TRACE(product);
        EXPECT_CHILD_SUCCEEDS({
            unit u;
            u.relays(1).product(product).set("on_grid_triggers", "AC Power Off");
            u.start();
            connect(u, "inputClass=event&inputID=2&outputClass=relay&outputID=0");
            u.request(grid, nullptr, "gpioType=relay&gpioPort=0&newState=2");
            const std::string text = get(u, "all");
            const bool hidden = product == std::string("KRT-DX4");
            EXPECT_EQ(text.find(item(2, "event", "AC Power Off", 0)) == std::string::npos, hidden) << text;
            EXPECT_NE(text.find(connection("event", 2, "relay", 0, 0, "true", 0)), std::string::npos) << text;
        });
    }
}

TEST(a_query, is_decoded_and_only_its_first_value_counts)
{
    unit u;
    u.gpis(1).product("ZEL-SOFT");
    ASSERT_EQ(u.start(), 0);
    const std::string only_ports = "{\"gpio\":" + list({item(0, "physical", "Physical Port 1", 0)}) + "}",
                      whole = document("[]", "[]", "[]");
    for (const char *const query : {"getFreeGpio=2", "getFreeGpio=%32", "%67etFreeGpio=2", "x=1&getFreeGpio=2&getFreeGpio=0",
                                    "getFreeGpio=-2147483648", "getFreeGpio=2147483647", "getFreeGpio=-1"})
        EXPECT_EQ(get(u, query), only_ports) << query;
    for (const char *const query : {"x", "x=1", "&", "=", "&&&", "getFreeGpio", "GETFREEGPIO=0", "%00", "all", "getFreeGpio%3D0"})
        EXPECT_EQ(get(u, query), whole) << query;
    for (const char *const query : {"getFreeGpio=", "getFreeGpio=x", "getFreeGpio=0x", "getFreeGpio= 0", "getFreeGpio=1e0",
                                    "getFreeGpio=99999999999999999999", "getFreeGpio=-99999999999999999999", "newState=0",
                                    "getFreeGpio=x&getFreeGpio=0"}) {
        const web_reply reply = u.request(grid, query, nullptr);
        EXPECT_EQ(reply.text, "") << query;
        EXPECT_EQ(reply.status, 200) << query;
        EXPECT_TRUE(reply.has_text) << query;
    }
}

TEST(a_query, of_any_length_is_answered)
{
    unit u;
    u.product("ZEL-SOFT");
    ASSERT_EQ(u.start(), 0);
    const std::string filler(100000, 'a');
    EXPECT_EQ(get(u, filler.c_str()), document("[]", "[]", "[]"));
    EXPECT_EQ(get(u, (filler + "&getFreeGpio=5").c_str()), "{\"gpio\":[]}");
    EXPECT_EQ(get(u, ("getFreeGpio=" + filler).c_str()), "");
}

TEST(a_document, that_lacks_a_single_byte_is_refused_at_every_size)
{
    unit u;
    start_wired(u);
    for (const char *const query : {"all", "getFreeGpio=0", "getFreeGpio=1", "getFreeGpio=7"}) {
        const size_t whole = get(u, query).size() + 1;
        for (size_t size = 1; size < whole; size += size < 80 || size + 80 > whole ? 1 : 37) {
            const web_reply reply = u.request(grid, query, nullptr, size);
            ASSERT_EQ(reply.status, 501) << query << " " << size;
            ASSERT_FALSE(reply.has_text);
        }
        u.take();
        EXPECT_EQ(u.request(grid, query, nullptr, 1).status, 501);
        EXPECT_LINES(u.take(), "log 0 gpio_grid_get_handler: The document does not fit 1 bytes");
        EXPECT_EQ(u.request(grid, query, nullptr, whole).status, 200);
    }
}

TEST(a_document, of_full_tables_is_complete)
{
    unit u;
    u.gpis(18).coughs(2).virtuals(64).buttons(8).relays(16).product("ZEL-SOFT");
    std::string names, inverts;
    for (int i = 0; i < 100; ++i) names += (i > 0 ? ", T" : "T") + std::to_string(i), inverts += i > 0 ? ", 0" : "0";
    for (int i = 0; i < 18; ++i) {
        const std::string key = "physical/gpio_" + std::to_string(i);
        u.set(key + "/type", 2).set(key + "/trigger", names.c_str()).set(key + "/invert_trigger", inverts.c_str());
    }
    ASSERT_EQ(u.start(), 0);
    for (int i = 0; i < 100; ++i) ASSERT_GE(u.trigger("T" + std::to_string(i)), 0);
    const std::string text = u.request(grid, "all", nullptr, 1 << 20).text;
    size_t connections = 0;
    for (size_t at = 0; (at = text.find("\"output_class\":\"physical\"", at)) != std::string::npos; ++at) ++connections;
    EXPECT_EQ(connections, 1800u);
    EXPECT_EQ(u.request(grid, "all", nullptr, 65536).status, 501);
}

TEST(the_endpoints, are_found_at_their_paths_with_their_keys)
{
    unit u;
    ASSERT_EQ(u.start(), 0);
    EXPECT_STREQ(url_handler_gpioGrid.path, grid);
    EXPECT_STREQ(url_handler_gpioConn.path, conn);
    EXPECT_TRUE(u.serves(grid) && u.serves(conn));
    const auto joined = [](const char *const *keys) {
        std::string text;
        for (; *keys != nullptr; ++keys) text += std::string(*keys) + " ";
        return text;
    };
    EXPECT_EQ(joined(gpio_grid_get_str), "getFreeGpio gpioType gpioPort gpioInMode newState vgpoSrc ");
    EXPECT_EQ(joined(gpio_conn_str), "action outputClass outputID inputClass inputID gpioInvert ");
}

}  // namespace
