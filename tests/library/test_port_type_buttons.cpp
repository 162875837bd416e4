// Changing the type of user buttons, which are inputs or disabled, and of their LEDs, which are outputs or disabled.
#include "port_steps.h"
#include "zel_gpio/port_type.h"

using namespace port_steps;
using zel::disable_gpio;
using zel::set_gpio_to_input;
using zel::set_gpio_to_output;

namespace {

enum { eth = 0, aoip = 1, disabled = 0, input = 1, output = 2, latching = 0, momentary = 1, no_handler = -1, no_trigger = -1 };
enum { listener = 0, button = 4, led = 5 };

}   // namespace

/// Ports: 0 an output that listens to the button, 1 virtual, 2 and 3 the first pair, 4 and 5 the second pair, which is changed.
class second_pair : public testing::Test {
protected:
    unit u;

    void start(int button_type, int led_type)
    {
        u.gpis(1)
            .virtuals(1)
            .buttons(2)
            .ember()
            .set("user_buttons/btn_2/type", button_type)
            .set("user_buttons/led_2/type", led_type);
        u.set("user_buttons/btn_2/input_mode", 1)
            .set("user_buttons/btn_2/handler", "Record")
            .set("user_buttons/btn_2/handler_invert", "0");
        u.set("user_buttons/led_2/trigger", "Eth Link Down, AoIP Link Down").set("user_buttons/led_2/invert_trigger", "0, 1");
        u.set("physical/gpio_0/type", 2)
            .set("physical/gpio_0/trigger", "User Button 2")
            .set("physical/gpio_0/invert_trigger", "0");
        ASSERT_EQ(u.start(), 0);
        u.handler("Record");
        u.led_handler(1);
        u.raise("Eth Link Down");
        u.take();
    }

    void press()
    {
        zel_gpio_notify_user_button_event(1);
        u.take();
    }

    static lines button_shows(const shown &values) { return published("user buttons/button 2", values); }
    static lines led_shows(const shown &values) { return published("user buttons/led 2", values); }
    static std::string button_saved(int type) { return "save user_buttons/btn_2 " + std::to_string(type); }
    static std::string led_saved(int type) { return "save user_buttons/led_2 " + std::to_string(type); }
    static std::string record(int state, int mode)
    {
        return "callback Record source 4 state " + std::to_string(state) + " context " + std::to_string(mode);
    }
    static std::string lamp(int state) { return "callback User LED 2 source 5 state " + std::to_string(state) + " context 0"; }
};

TEST_F(second_pair, button_from_disabled_to_disabled_clears_saves_and_tells)
{
    start(disabled, disabled);
    EXPECT_EQ(disable_gpio(button), 0);
    EXPECT_LINES(changes(u), steps({button_saved(disabled), button_shows({disabled, "", "", "", latching, 0}), sent(9)}));
}

TEST_F(second_pair, button_from_disabled_to_input_takes_its_trigger_without_counting_it)
{
    start(disabled, disabled);
    EXPECT_EQ(set_gpio_to_input(button, momentary, 0, nullptr, 0), 0);
    EXPECT_EQ(first_trigger(button), own_trigger("User Button 2"));
    EXPECT_EQ(zel::gpios[button].num_trigs, 0);
    EXPECT_EQ(port_handlers(button), "Record#0");
    const lines values = button_shows({input, "Record", "", "", latching, 0});
    EXPECT_LINES(changes(u), steps({setting_up(button, momentary, 2), button_saved(input), record(0, latching), values, sent(9),
                                    record(0, latching), button_saved(input), values, sent(9)}))
        << "a button's mode is not taken from the change";
}

TEST_F(second_pair, button_from_input_to_disabled_ends_its_trigger_and_takes_it_from_the_listeners)
{
    start(input, disabled);
    press();
    EXPECT_EQ(disable_gpio(button), 0);
    EXPECT_LINES(changes(u),
                 steps({ended("User Button 2"), "pin 101 write 0",
                        published("physical/gpio 1", {output, "", "User Button 2", "", 0, 0}), sent(7), record(0, momentary),
                        "save physical/gpio_0 2", "pin 101 write 0", published("physical/gpio 1", {output, "", "", "", 0, 0}),
                        sent(7), button_saved(disabled), button_shows({disabled, "", "", "", momentary, 0}), sent(9)}));
    EXPECT_EQ(port_list(listener), "");
    EXPECT_EQ(first_trigger(button), "(null)#-1");
    EXPECT_EQ(handler_list[0].port_mask, 0u);
}

TEST_F(second_pair, button_from_input_to_input_falls_to_0_and_keeps_its_handlers)
{
    start(input, disabled);
    press();
    ASSERT_EQ(zel::gpios[button].state, 1);
    EXPECT_EQ(set_gpio_to_input(button, latching, no_handler, nullptr, 0), 0);
    EXPECT_LINES(changes(u),
                 steps({setting_up(button, latching, 2), record(0, momentary), record(0, momentary), ended("User Button 2"),
                        "pin 101 write 0", published("physical/gpio 1", {output, "", "User Button 2", "", 0, 0}), sent(7),
                        button_saved(input), button_shows({input, "Record", "", "", momentary, 0}), sent(9)}));
    EXPECT_EQ(port_list(listener), own_trigger("User Button 2"));
}

TEST_F(second_pair, button_is_refused_as_an_output)
{
    start(input, disabled);
    EXPECT_EQ(set_gpio_to_output(button, eth, 0), -1);
    EXPECT_LINES(u.take(), "log 0 set_gpio_to_output: Cannot set user button as an output");
    EXPECT_EQ(zel::gpios[button].type, static_cast<uint32_t>(input));
    EXPECT_EQ(first_trigger(button), own_trigger("User Button 2"));
}

TEST_F(second_pair, button_that_came_back_is_pressed_as_before)
{
    start(input, disabled);
    ASSERT_EQ(disable_gpio(button), 0);
    ASSERT_EQ(set_gpio_to_input(button, momentary, 0, nullptr, 0), 0);
    zel_gpio_notify_user_button_event(1);
    EXPECT_EQ(zel::gpios[button].state, 1) << "its own trigger does not flip it back";
    EXPECT_EQ(handler_list[0].state, 1);
    EXPECT_EQ(trigger_list[u.trigger_id("User Button 2")].state, 1);
}

TEST_F(second_pair, led_from_disabled_to_disabled_lets_go_of_its_handler)
{
    start(disabled, disabled);
    EXPECT_EQ(disable_gpio(led), 0);
    EXPECT_LINES(changes(u), steps({lamp(0), led_saved(disabled), led_shows({disabled, "", "", "", 0, 0}), sent(10)}));
    EXPECT_EQ(port_handlers(led), "");
    EXPECT_EQ(zel::gpios[led].handler_names[0], nullptr);
}

TEST_F(second_pair, led_from_disabled_to_output_is_bound_to_its_handler)
{
    start(disabled, disabled);
    EXPECT_EQ(set_gpio_to_output(led, no_trigger, 0), 0);
    EXPECT_LINES(changes(u), steps({lamp(0), led_saved(output), led_shows({output, "", "", "", 0, 0}), sent(10)}));
    EXPECT_EQ(port_handlers(led), "User LED 2#1");
}

TEST_F(second_pair, led_from_disabled_to_output_with_a_trigger_that_occurred_lights_up)
{
    start(disabled, disabled);
    ASSERT_EQ(disable_gpio(led), 0);
    u.take();
    EXPECT_EQ(set_gpio_to_output(led, eth, 0), 0);
    const lines values = led_shows({output, "", "Eth Link Down", "Eth Link Down", 0, 1});
    EXPECT_LINES(changes(u), steps({led_saved(output), lamp(1), values, sent(10), lamp(1), led_saved(output), values, sent(10)}));
    EXPECT_EQ(zel_gpio_get_user_button_state(1), 1);
}

TEST_F(second_pair, led_from_output_to_disabled_tells_its_handler_while_its_triggers_still_count)
{
    start(disabled, output);
    ASSERT_EQ(zel::gpios[led].state, 1);
    EXPECT_EQ(disable_gpio(led), 0);
    EXPECT_LINES(changes(u), steps({lamp(1), led_saved(disabled), led_shows({disabled, "", "", "", 0, 0}), sent(10)}));
    EXPECT_EQ(port_handlers(led), "");
    EXPECT_EQ(port_list(led), "");
    EXPECT_EQ(handler_list[1].port_mask, 0u);
    EXPECT_EQ(zel_gpio_get_user_button_led_enabled(1), 0);
    EXPECT_EQ(trigger_list[eth].state, 1);
}

TEST_F(second_pair, led_from_output_to_output_keeps_list_and_binding)
{
    start(disabled, output);
    EXPECT_EQ(set_gpio_to_output(led, no_trigger, 0), 0);
    EXPECT_LINES(
        changes(u),
        steps({lamp(1), led_saved(output),
               led_shows({output, "", "Eth Link Down, !AoIP Link Down", "Eth Link Down, !AoIP Link Down", 0, 1}), sent(10)}));
    EXPECT_EQ(port_handlers(led), "User LED 2#1");
}

TEST_F(second_pair, led_is_refused_as_an_input)
{
    start(disabled, output);
    EXPECT_EQ(set_gpio_to_input(led, latching, no_handler, nullptr, 0), -1);
    EXPECT_LINES(u.take(), "log 0 set_gpio_to_input: Cannot set user button LED as an input");
    EXPECT_EQ(zel::gpios[led].type, static_cast<uint32_t>(output));
}

TEST_F(second_pair, led_without_a_registered_handler_is_an_output_all_the_same)
{
    start(disabled, disabled);
    ASSERT_EQ(disable_gpio(3), 0);
    u.take();
    EXPECT_EQ(set_gpio_to_output(3, eth, 0), 0) << "the LED of the first pair";
    EXPECT_EQ(port_handlers(3), "");
    EXPECT_EQ(zel::gpios[3].state, 1);
    EXPECT_EQ(u.count_of("callback"), 0);
    EXPECT_EQ(zel_gpio_get_user_button_led_enabled(0), 1);
}

TEST_F(second_pair, led_lights_up_again_after_it_was_disabled)
{
    start(disabled, output);
    ASSERT_EQ(disable_gpio(led), 0);
    ASSERT_EQ(set_gpio_to_output(led, aoip, 0), 0);
    u.take();
    u.raise("AoIP Link Down");
    EXPECT_LINES(u.journal_of("callback"), lamp(1));
    EXPECT_EQ(zel::gpios[led].state, 1);
    u.take();
    u.clear("AoIP Link Down");
    EXPECT_LINES(u.journal_of("callback"), lamp(0));
}
