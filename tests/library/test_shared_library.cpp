// The delivered library in a program that defines the platform functions itself: every call must land here, not in the platform.
#include <gtest/gtest.h>

#include "fake_platform.h"

using fake::lines;
using fake::unit;

TEST(the_shared_library, calls_the_programs_own_platform_functions)
{
    unit unit;
    unit.ember().gpis(1).relays(1).virtuals(1).buttons(1);
    unit.set_json("physical/gpio_0", R"({"type": 1, "input_mode": 1, "handler": "Record", "handler_invert": "0"})");
    unit.set_json("relay/relay_0", R"({"triggers": "GPI 1", "trigger_invert": "0"})");
    ASSERT_EQ(unit.start(), 0);
    EXPECT_EQ(unit.handler("Record"), 0);
    EXPECT_STREQ(handler_list[0].name, "Record");   // the exported table is the library's own
    EXPECT_STREQ(trigger_list[5].name, "GPI 1");
    for (const char *const kind : {"log", "json", "pin", "ember add", "ipc sdisc", "ipc snmp", "web"})
        EXPECT_GT(unit.count_of(kind), 0) << kind;
    unit.edge(1, 1);
    EXPECT_EQ(unit.level(201), 1);
    EXPECT_EQ(unit.journal_of("callback"),
              (lines{"callback Record source 0 state 0 context 1", "callback Record source 0 state 1 context 1"}));
    EXPECT_GT(unit.udp_queries(), 0);
    const fake::web_reply grid = unit.request("/cgi/gpioGrid.cgi", "a=b", nullptr);
    EXPECT_EQ(grid.status, 200);
    EXPECT_NE(grid.text.find("ZEL-TEST"), std::string::npos);
    unit.stop();
    EXPECT_EQ(unit.open_pins(), 0);
    EXPECT_FALSE(unit.file_is_open());
}

TEST(the_shared_library, exports_the_key_tables_and_url_records)
{
    EXPECT_STREQ(url_handler_gpioGrid.path, "/cgi/gpioGrid.cgi");
    EXPECT_STREQ(url_handler_gpioConn.path, "/cgi/gpioConn.cgi");
    const char *const grid_keys[] = {"getFreeGpio", "gpioType", "gpioPort", "gpioInMode", "newState", "vgpoSrc"};
    const char *const connection_keys[] = {"action", "outputClass", "outputID", "inputClass", "inputID", "gpioInvert"};
    for (int i = 0; i < 6; ++i) {
        EXPECT_STREQ(gpio_grid_get_str[i], grid_keys[i]);
        EXPECT_STREQ(gpio_conn_str[i], connection_keys[i]);
    }
    EXPECT_EQ(gpio_grid_get_str[6], nullptr);
    EXPECT_EQ(gpio_conn_str[6], nullptr);
}
