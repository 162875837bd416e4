// Product id, text encoding, and what the configuration may say about pins.
#include "sys_bench.h"
#include "sys_log.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

std::string encoded(const std::string &text)
{
    std::string out(3 * text.size() + 1, '#');
    zel_sys_strpercentenc(text.c_str(), out.data());
    return out.c_str();
}

TEST(percent_encoding, turns_control_characters_into_upper_case_hex_and_keeps_all_else)
{
    EXPECT_EQ(encoded(""), "");
    EXPECT_EQ(encoded("Studio 1/On Air: 100%, \"x\" \xC3\xBC\xFF"), "Studio 1/On Air: 100%, \"x\" \xC3\xBC\xFF");
    EXPECT_EQ(encoded("a\tb\nc\x1f\x7f\x01"), "a%09b%0Ac%1F%7F%01");
    EXPECT_EQ(encoded("\x80 ~"), "\x80 ~");
}

TEST(percent_encoding, fills_no_more_than_three_bytes_for_one_and_the_end)
{
    char out[3 * 4 + 2];
    std::memset(out, '#', sizeof(out));
    zel_sys_strpercentenc("\n\n\n\n", out);
    EXPECT_STREQ(out, "%0A%0A%0A%0A");
    EXPECT_EQ(out[sizeof(out) - 1], '#');
}

TEST(percent_encoding, of_no_text_is_an_empty_one)
{
    char out[] = "x";
    zel_sys_strpercentenc(nullptr, out);
    EXPECT_STREQ(out, "");
    zel_sys_strpercentenc("x", nullptr);
}

TEST(product_id, comes_from_the_configuration_and_stays_valid)
{
    const char *first = nullptr;
    {
        const unit_folder unit(R"({"product_id": "ZEL-4"})");
        first = zel_sys_get_prodid();
        EXPECT_STREQ(first, "ZEL-4");
        write_text(unit.path() + "/etc/zel/unit.json", R"({"product_id": "ZEL-5"})");
        EXPECT_EQ(zel_sys_get_prodid(), first) << "read once";
    }
    EXPECT_STREQ(first, "ZEL-4");
}

TEST(product_id, is_the_default_where_there_is_none_that_can_be_used)
{
    for (const char *const text : {"", "{}", R"({"product_id": ""})", R"({"product_id": 4})", R"({"product_id": "ZEL-4")"}) {
        SCOPED_TRACE(text);
        const unit_folder unit(text);
        EXPECT_STREQ(zel_sys_get_prodid(), "ZEL-SOFT");
    }
}

TEST(pin_configuration, without_a_back_end_simulates)
{
    log_lines().clear();
    const unit_folder unit("{}");
    const pin_handle pin = open_pin(5, 0);
    ASSERT_NE(pin, nullptr);
    EXPECT_EQ(zel_sys_sim_press(5, 1), 0);
    EXPECT_EQ(zel_sys_gpio_read(pin.get()), 1);
    EXPECT_TRUE(log_lines().empty());
}

TEST(pin_configuration, with_a_back_end_that_does_not_exist_opens_no_pin)
{
    const unit_folder unit(R"({"pin_backend": "kernal"})");
    EXPECT_EQ(zel_sys_gpio_open(5, 0), nullptr);
    EXPECT_EQ(zel_sys_sim_press(5, 1), -1);
    EXPECT_EQ(zel_sys_sim_level(5), -1);
    EXPECT_EQ(count_logged(0, {"pin_backend", "kernal"}), 1);
}

TEST(simulated_contacts, keep_their_position_while_their_pin_is_closed)
{
    const unit_folder unit;
    EXPECT_EQ(zel_sys_sim_level(40), 0) << "never opened or pressed";
    EXPECT_EQ(zel_sys_sim_press(40, 1), 0);
    EXPECT_EQ(zel_sys_sim_level(40), 1);
    {
        const pin_handle pin = open_pin(40, 0);
        EXPECT_EQ(zel_sys_gpio_read(pin.get()), 1);
        EXPECT_EQ(zel_sys_gpio_set_active_low(pin.get(), 1), 0);
        EXPECT_EQ(zel_sys_gpio_read(pin.get()), 1) << "a closed contact reads 1 whatever the polarity";
    }
    EXPECT_EQ(zel_sys_sim_press(40, 0), 0);
    const pin_handle pin = open_pin(40, 0);
    EXPECT_EQ(zel_sys_gpio_read(pin.get()), 0);
}

TEST(simulated_contacts, tell_the_observer_also_while_their_pin_is_closed)
{
    const unit_folder unit;
    std::vector<int> levels;
    zel_sys_set_pin_observer(
        [](void *seen, int32_t pin, int32_t direction, int level) {
            EXPECT_EQ(pin, 41);
            EXPECT_EQ(direction, 0);
            static_cast<std::vector<int> *>(seen)->push_back(level);
        },
        &levels);
    for (const int pressed : {1, 1, 0, 0, 7}) EXPECT_EQ(zel_sys_sim_press(41, pressed), 0);
    zel_sys_set_pin_observer(nullptr, nullptr);
    EXPECT_EQ(levels, (std::vector<int>{1, 0, 1}));
}

TEST(simulated_contacts, at_an_output_move_nothing)
{
    const unit_folder unit;
    const pin_handle pin = open_pin(42, 2);
    EXPECT_EQ(zel_sys_sim_press(42, 1), 0);
    EXPECT_EQ(zel_sys_gpio_read(pin.get()), 0);
    EXPECT_EQ(zel_sys_sim_level(42), 0);
}

TEST(simulated_contacts, may_be_moved_by_the_observer_itself)
{
    const unit_folder unit;
    const pin_handle lamp = open_pin(143, 2);
    const pin_handle button = open_pin(43, 0);
    EXPECT_EQ(zel_sys_gpio_set_edge(button.get(), 3), 0);
    zel_sys_set_pin_observer(  // a lamp test: what is driven is felt at an input
        [](void *, int32_t pin, int32_t, int level) {
            EXPECT_TRUE(pin != 143 || zel_sys_sim_press(43, level) == 0);
        },
        nullptr);
    EXPECT_EQ(zel_sys_gpio_write(lamp.get(), 1), 0);
    zel_sys_set_pin_observer(nullptr, nullptr);
    EXPECT_TRUE(exceptional(zel_sys_gpio_fd(button.get())));
    EXPECT_EQ(zel_sys_gpio_read(button.get()), 1);
}

TEST(simulated_contacts, have_numbers_from_0_and_only_so_many)
{
    const unit_folder unit;
    EXPECT_EQ(zel_sys_sim_press(-1, 1), -1);
    EXPECT_EQ(zel_sys_sim_level(-1), -1);
    EXPECT_EQ(zel_sys_sim_press(0, 1), 0);
    EXPECT_EQ(zel_sys_sim_press(INT32_MAX, 1), 0);
    int32_t pin = 1;
    while (pin < 100000 && zel_sys_sim_press(pin, 1) == 0) ++pin;
    EXPECT_LT(pin, 5000);
    EXPECT_EQ(zel_sys_sim_press(0, 0), 0) << "those that are known still move";
    for (int32_t known = 1; known < pin; ++known) EXPECT_EQ(zel_sys_sim_press(known, 0), 0);
    EXPECT_NE(open_pin(pin, 0), nullptr) << "the host's own pins open all the same";
}

TEST(a_pending_edge, that_nobody_reads_can_be_dropped_by_the_pins_number)
{
    const unit_folder unit;
    const pin_handle pin = open_pin(5, 0);
    ASSERT_NE(pin, nullptr);
    ASSERT_GE(zel_sys_gpio_set_edge(pin.get(), 3), 0);
    ASSERT_EQ(zel_sys_sim_press(5, 1), 0);
    fd_set none, pending;
    FD_ZERO(&none);
    FD_ZERO(&pending);
    FD_SET(zel_sys_gpio_fd(pin.get()), &pending);
    zel_sys_gpio_discard_edge(5, nullptr);
    zel_sys_gpio_discard_edge(5, &none);
    zel_sys_gpio_discard_edge(6, &pending);
    EXPECT_TRUE(exceptional(zel_sys_gpio_fd(pin.get())));
    zel_sys_gpio_discard_edge(5, &pending);
    EXPECT_FALSE(exceptional(zel_sys_gpio_fd(pin.get())));
}

}  // namespace
