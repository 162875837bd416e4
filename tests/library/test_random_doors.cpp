// The browser, the agent, the tree and other units at random, with wild numbers and words among the good ones. After every step
// the counts, levels and pins of the grid are true, the documents are whole, and the lists that were saved are those that stand.
#include <gtest/gtest.h>

#include <random>

#include "child_process.h"
#include "grid_invariants.h"
#include "vgpo_units.h"
#include "zel_gpio/snmp_records.h"

using namespace vgpo_units;
using fake::unit;

namespace {

constexpr char grid[] = "/cgi/gpioGrid.cgi", conn[] = "/cgi/gpioConn.cgi";

const char *const numbers[] = {"0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11", "12", "13", "14", "15",
                               "16", "-1", "99", "199", "200", "201", "2147483647", "-2147483648", "4294967297", "x", "", "1x"};
const char *const words[] = {"event",   "event", "event",       "relay",    "relay", "physical",
                             "virtual", "cough", "user_button", "user_led", "",      "x"};
const char *const names[] = {"Door",   "Fire",   "!Door", " Fire", "Eth Link Down", "GPI 1", "vGPI 1", "User Button 1",
                             "Record", "Nobody", "",      "!"};
const char *const sources[] = {near, beside, far, "", "Nobody"};
const char *const form_sources[] = {"vGPO1%40Studio+2", "vGPO2%40Studio+2", "-", "", "Nobody", "%"};

class house {
public:
    explicit house(unsigned seed) : random_(seed)
    {
        u_.gpis(3).coughs(2).virtuals(3).buttons(2).relays(3).ember();
        u_.set("on_grid_handlers", "Record").set("physical/gpio_0/type", 1).set("physical/gpio_1/type", 2);
        u_.set("virtual/vgpio_0/type", 1).set("virtual/vgpio_0/vgpo_src", near).set("user_buttons/led_1/type", 2);
    }

    void live(int steps)
    {
        ASSERT_EQ(u_.start(), 0);
        for (const char *const name : {"Record", "Play", "Door"}) u_.handler(name);
        u_.led_handler(0), u_.led_handler(1), u_.trigger("Door"), u_.trigger("Fire");
        for (int i = 0; i < steps && !testing::Test::HasFailure(); ++i) {
            const std::string done = step();
            SCOPED_TRACE(std::to_string(i) + ": " + done);
            grid_test::expect_consistent(u_);
            check_saved();
            if (i % 50 == 0) u_.take(), u_.forget_sent();
        }
        check_document();
    }

private:
    unsigned any(unsigned end) { return random_() % end; }
    template <size_t count> const char *any(const char *const (&list)[count]) { return list[any(count)]; }

    std::string step()
    {
        switch (any(8)) {
            case 0:
            case 1: return post(grid, grid_form());
            case 2:
            case 3: return post(conn, cell_form());
            case 4: return ask();
            case 5: return happen();
            case 6: return write();
            default: return discover();
        }
    }

    std::string post(const char *path, const std::string &body)
    {
        const fake::web_reply reply = u_.request(path, nullptr, body.c_str());
        EXPECT_TRUE(reply.status == 200 || reply.status == 501) << reply.status;
        EXPECT_TRUE(!reply.has_text || reply.text == "{}") << reply.text;
        return path + (" " + body);
    }

    std::string grid_form()
    {
        std::string body = std::string("gpioType=") + any(words) + "&newState=" + any(numbers) + "&gpioPort=" + any(numbers);
        while (any(3) == 0) body += std::string(",") + any(numbers);
        if (any(2) == 0) body += std::string("&gpioInMode=") + any(numbers);
        if (any(2) == 0) body += std::string("&vgpoSrc=") + any(form_sources);
        return body;
    }

    std::string cell_form()
    {
        return std::string("action=") + (any(3) == 0 ? "0" : "1") + "&inputClass=" + any(words) + "&inputID=" + any(numbers) +
               "&outputClass=" + any(words) + "&outputID=" + any(numbers) + "&gpioInvert=" + any(numbers);
    }

    std::string ask()
    {
        zel::snmp_request_record record{static_cast<int32_t>(any(10)) - 1, static_cast<int32_t>(any(5)) - 1, {}, 1};
        strcpy(record.text, any(3) == 0 ? any(sources) : any(names));
        if (any(2) == 0) strcat(strcat(record.text, ","), any(names));
        uint8_t type = static_cast<uint8_t>(any(40));
        // A level that is set by hand stands beside the count of the port's triggers, which is what is checked here.
        if (type == 20 || type == 28) type = 15;
        u_.deliver_record("snmp", type, record);
        return "request " + std::to_string(type) + " " + std::to_string(record.index) + " " + std::to_string(record.value) + " " +
               record.text;
    }

    std::string happen()
    {
        const int32_t trigger = static_cast<int32_t>(any(17)), pin = 1 + static_cast<int32_t>(any(5));
        const unsigned what = any(4), on = any(2);
        if (what == 0 && u_.is_open(pin)) u_.edge(pin, static_cast<int>(on));
        if (what == 1) zel_gpio_notify_user_button_event(static_cast<int32_t>(any(3)));
        if (what >= 2 && trigger_list[trigger].name != nullptr && trigger_list[trigger].port_trigger == 0)
            zel_gpio_notify_trigger_event(trigger, static_cast<uint8_t>(on));
        return "event " + std::to_string(what) + " trigger " + std::to_string(trigger) + " pin " + std::to_string(pin) + " " +
               std::to_string(on);
    }

    std::string write()
    {
        const std::string input = "gpio/virtual/vgpio " + std::to_string(1 + any(3)), source = any(sources);
        const int type = static_cast<int>(any(3));
        if (any(2) == 0) return u_.write(input + "/vgpio source", source.c_str()), input + " source " + source;
        return u_.write(input + "/type", type), input + " type " + std::to_string(type);
    }

    std::string discover()
    {
        const char *const name = sources[any(3)];
        const std::vector<int> sessions = u_.consumers();
        switch (any(4)) {
            case 0: remove(u_, name); break;
            case 1: resolve(u_, name, any(2) == 0 ? "10.0.0.2" : "10.0.0.3", 9000, std::string("path=/") + name); break;
            default:
                for (const int session : sessions) {
                    const int64_t value = any(3);
                    if (u_.requests_ever(session) > 0)
                        u_.late_value(session, any(static_cast<unsigned>(u_.requests_ever(session))), &value);
                    break;
                }
        }
        return std::string("news of ") + name;
    }

    void check_saved()
    {
        for (int32_t r = 0; r < 3; ++r) {
            std::string text;
            for (int32_t k = 0; k < zel::relays[r].num_trigs; ++k)
                text += (k > 0 ? ", " : "") + std::string(zel::relays[r].trigger_names[k]);
            const std::string saved = u_.json("gpio/relay/relay_" + std::to_string(r) + "/triggers");
            if (saved != "absent") { EXPECT_EQ(saved, "\"" + text + "\"") << r; }
        }
        for (int32_t i = 0; i < 5; ++i) {
            const std::string saved = u_.json("gpio/physical/gpio_" + std::to_string(i) + "/type");
            if (saved != "absent") { EXPECT_EQ(saved, std::to_string(zel::gpios[i].type)) << i; }
        }
    }

    void check_document()
    {
        const fake::web_reply reply = u_.request(grid, "all", nullptr, 1 << 20);
        EXPECT_EQ(reply.status, 200);
        EXPECT_EQ(reply.text.substr(reply.text.size() - 2), "]}");
    }

    unit u_;
    std::mt19937 random_;
};

void run(unsigned seed)
{
    std::printf("seed %u\n", seed);
    SCOPED_TRACE("seed " + std::to_string(seed) + ", repeated with ZEL_TEST_SEED");
    EXPECT_CHILD_SUCCEEDS(house(seed).live(1500));
}

TEST(random_doors, leave_the_grid_true)
{
    for (const unsigned seed : {1u, 2u, 3u, 4u}) run(seed);
}

TEST(random_doors, of_a_fresh_seed_leave_the_grid_true)
{
    const char *const wanted = std::getenv("ZEL_TEST_SEED");
    run(wanted != nullptr ? static_cast<unsigned>(std::strtoul(wanted, nullptr, 10)) : std::random_device{}());
}

}  // namespace
