// From a contact at a line of the machine to a relay at another, through the library and the kernel back end, in a host's own
// loop. Relays and outputs are looked at from outside. On real lines where there are some (scripts/kernel_test.sh).
#include "temp_folder.h"
#include "test_lines.h"
#include "zel_gpio.h"

#include <gtest/gtest.h>
#include <sys/select.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

// Port 0: momentary; port 1: latching, active low; port 2: momentary, active low; port 3: an active-low output.
constexpr gpio_phys_cfg_t ports[] = {{11, 0, 31, 0, 0}, {12, 1, 32, 0, 0}, {13, 1, 33, 0, 0}, {14, 0, 23, 1, 0}};
constexpr int relay_base = 21, relay_count = 2;
constexpr const char *configuration = R"({"gpio": {
    "physical": {
        "gpio_0": {"type": 1, "input_mode": 1, "handler": "Record", "handler_invert": "0"},
        "gpio_1": {"type": 1, "input_mode": 0, "handler": "Play", "handler_invert": "0"},
        "gpio_2": {"type": 1, "input_mode": 1, "handler": "Play", "handler_invert": "0"},
        "gpio_3": {"type": 2, "trigger": "GPI 1", "invert_trigger": "0"}},
    "relay": {
        "relay_0": {"triggers": "GPI 1, GPI 3", "trigger_invert": "0, 0", "on_grid": true},
        "relay_1": {"triggers": "GPI 2", "trigger_invert": "0", "on_grid": true}}}})";

// A unit with these ports and relays, in this process. The library starts once per process.
class unit_on_lines {
public:
    unit_on_lines()
    {
        const auto &o = lines_->offsets;
        contacts_ = {o.at(0), o.at(1), o.at(2)};
        relays_ = {o.at(3), o.at(4)};
        output_ = o.at(5);
        const std::string kernel_lines = kernel_lines_json(
            *lines_, {{11, o.at(0)}, {12, o.at(1)}, {13, o.at(2)}, {21, o.at(3)}, {22, o.at(4)}, {23, o.at(5)}});
        write_text(root_.file("etc/zel/unit.json"),
                   R"({"pin_backend": "kernel", "kernel_lines": )" + kernel_lines +
                       R"(, "pins": [{"in_pin": 14, "out_pin": 23, "out_active_low": true}]})");
        write_text(root_.file("mnt/data/config/config.json"), configuration);
        setenv("ZEL_ROOT", root_.path().c_str(), 1);
        for (int port = 0; port < 3; ++port) press(port, false);
        started_ = zel_gpio_init(ports, 4, relay_base, relay_count, 0, 0, nullptr, nullptr, nullptr, 0, nullptr);
        zel_gpio_register_handler("Record", record_call, this);
    }
    ~unit_on_lines() { zel_gpio_term(); }

    int32_t started() const { return started_; }
    // The contact at a port's line: closed, an active-low line is low.
    void press(int port, bool pressed) { lines_->set(contacts_.at(port), pressed != (ports[port].in_active_low != 0)); }
    bool relay(int number) { return lines_->get(relays_.at(number)) != 0; }
    bool output() { return lines_->get(output_) == 0; }
    const std::vector<int> &handler_states() const { return handler_states_; }

    // One turn of the host's loop; whether a pin was exceptional in it.
    bool turn(int within_ms)
    {
        fd_set readfds, exceptfds;
        FD_ZERO(&readfds);
        FD_ZERO(&exceptfds);
        int maxfd = -1;
        zel_gpio_set_fds(&readfds, &exceptfds, &maxfd);
        timeval limit = {within_ms / 1000, (within_ms % 1000) * 1000};
        if (select(maxfd + 1, &readfds, nullptr, &exceptfds, &limit) <= 0) {
            FD_ZERO(&readfds);
            FD_ZERO(&exceptfds);
        }
        bool exceptional = false;
        for (int fd = 0; fd <= maxfd; ++fd) exceptional = exceptional || FD_ISSET(fd, &exceptfds);
        zel_gpio_process_fds(&readfds, &exceptfds);
        return exceptional;
    }
    bool turn_until(const std::function<bool()> &done)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(patience_ms);
        while (!done()) {
            if (std::chrono::steady_clock::now() > end) return false;
            turn(200);
        }
        return true;
    }
    // Until no pin has anything to say.
    void settle()
    {
        for (int i = 0; i < 100 && turn(0); ++i) {}
    }

private:
    static int record_call(void *self, int32_t source, uint8_t state, uintptr_t)
    {
        if (source == 0) static_cast<unit_on_lines *>(self)->handler_states_.push_back(state);
        return 0;
    }

    temp_folder root_;
    std::unique_ptr<test_lines> lines_ = make_test_lines();
    std::vector<int> contacts_, relays_;
    int output_ = -1;
    int32_t started_ = -1;
    std::vector<int> handler_states_;
};

class press_to_relay : public testing::TestWithParam<const char *> {
protected:
    static void SetUpTestSuite() { unit = std::make_unique<unit_on_lines>(); }
    static void TearDownTestSuite() { unit.reset(); }

    // Every test begins and ends with open contacts and nothing driven.
    void SetUp() override
    {
        ASSERT_EQ(unit->started(), 0);
        expect_rest();
    }
    void TearDown() override { expect_rest(); }
    static void expect_rest()
    {
        unit->settle();
        EXPECT_FALSE(unit->relay(0));
        EXPECT_FALSE(unit->relay(1));
        EXPECT_FALSE(unit->output());
    }

    static std::unique_ptr<unit_on_lines> unit;
};
std::unique_ptr<unit_on_lines> press_to_relay::unit;

TEST_P(press_to_relay, a_relay_follows_a_momentary_contact)
{
    for (int i = 0; i < 5; ++i) {
        unit->press(0, true);
        EXPECT_TRUE(unit->turn_until([] { return unit->relay(0); }));
        unit->press(0, false);
        EXPECT_TRUE(unit->turn_until([] { return !unit->relay(0); }));
        EXPECT_FALSE(unit->relay(1));
    }
}

TEST_P(press_to_relay, each_press_of_a_latching_contact_turns_its_relay_over)
{
    for (const bool on : {true, false, true, false}) {
        unit->press(1, true);
        EXPECT_TRUE(unit->turn_until([on] { return unit->relay(1) == on; }));
        unit->press(1, false);
        unit->settle();
        EXPECT_EQ(unit->relay(1), on) << "a release is no press";
    }
    EXPECT_FALSE(unit->relay(0));
}

TEST_P(press_to_relay, a_relay_stays_on_while_one_of_its_two_contacts_is_closed)
{
    unit->press(0, true);
    EXPECT_TRUE(unit->turn_until([] { return unit->relay(0); }));
    unit->press(2, true);
    unit->settle();
    unit->press(0, false);
    EXPECT_TRUE(unit->turn_until([] { return !unit->output(); })) << "the output has but the first contact";
    unit->settle();
    EXPECT_TRUE(unit->relay(0));
    unit->press(2, false);
    EXPECT_TRUE(unit->turn_until([] { return !unit->relay(0); }));
}

TEST_P(press_to_relay, an_active_low_output_pulls_its_line_down_while_its_contact_is_closed)
{
    unit->press(0, true);
    EXPECT_TRUE(unit->turn_until([] { return unit->output(); }));
    unit->press(0, false);
    EXPECT_TRUE(unit->turn_until([] { return !unit->output(); }));
}

TEST_P(press_to_relay, a_handler_is_told_of_its_contact)
{
    const size_t before = unit->handler_states().size();
    unit->press(0, true);
    EXPECT_TRUE(unit->turn_until([before] { return unit->handler_states().size() > before; }));
    EXPECT_EQ(unit->handler_states().back(), 1);
    const size_t pressed = unit->handler_states().size();
    unit->press(0, false);
    EXPECT_TRUE(unit->turn_until([pressed] { return unit->handler_states().size() > pressed; }));
    EXPECT_EQ(unit->handler_states().back(), 0);
    EXPECT_TRUE(unit->turn_until([] { return !unit->relay(0); }));
}

TEST_P(press_to_relay, nothing_moves_while_no_contact_does)
{
    for (int i = 0; i < 10; ++i) EXPECT_FALSE(unit->turn(10)) << "a pin is exceptional for nothing";
}

std::vector<const char *> lines_here()
{
    if (!test_lines_are_to_be_had()) return {};
    return {real_lines_are_given() ? "kernel_lines" : "kernel_fuse"};
}
INSTANTIATE_TEST_SUITE_P(on, press_to_relay, testing::ValuesIn(lines_here()), [](const auto &lines) { return lines.param; });
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(press_to_relay);

}  // namespace
