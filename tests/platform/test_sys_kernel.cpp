// What goes wrong with lines of the machine, and what their value files are asked for, on made-up ones.
#include "fake_gpio_lines.h"
#include "sys_bench.h"
#include "sys_log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

namespace {

constexpr int in = 0, out = 2, both = 3;

// Pin 504 is line 504, the first of the chip; pin 5 is its line 5 by label and offset.
const std::string configuration = R"({
    "#": "comments are allowed",
    "pin_backend": "kernel",
    "kernel_lines": {"5": {"chip": "fake-chip", "offset": 5}, "6": {"chip": "no-chip", "offset": 0},
                     "7": {"chip": "fake-chip", "offset": 8}, "8": {"chip": "fake-chip"}, "9": {"offset": 1},
                     "504": {"chip": "fake-chip", "offset": 0}, "x": {"chip": "fake-chip", "offset": 0}},
    "pins": [{"in_pin": 504, "out_pin": 505, "out_active_low": true}, {"in_pin": 506, "out_pin": 508}]
})";

class kernel_lines : public testing::TestWithParam<int> {
protected:
    kernel_lines()
    {
        log_lines().clear();
        setenv("ZEL_SYSFS_GPIO", lines.folder().c_str(), 1);
    }
    ~kernel_lines() override { unsetenv("ZEL_SYSFS_GPIO"); }

    bool wrote(const std::string &text) { return std::ranges::count(lines.writes(), text) != 0; }
    size_t position(const std::string &text)
    {
        const auto all = lines.writes();
        return static_cast<size_t>(std::ranges::find(all, text) - all.begin());
    }

    unit_folder unit{configuration};
    fake_gpio_lines lines;
};

TEST_P(kernel_lines, are_exported_while_open_and_unexported_at_the_end)
{
    {
        const pin_handle pin = open_pin(506, in);
        ASSERT_NE(pin, nullptr);
        EXPECT_TRUE(lines.exported(2));
    }
    EXPECT_FALSE(lines.exported(2));
    EXPECT_TRUE(wrote("unexport 506"));
}

TEST_P(kernel_lines, that_were_exported_before_stay_so)
{
    lines.export_by_hand(2);
    {
        const pin_handle pin = open_pin(506, in);
        ASSERT_NE(pin, nullptr);
        EXPECT_FALSE(wrote("export 506"));
    }
    EXPECT_TRUE(lines.exported(2));
}

TEST_P(kernel_lines, are_found_by_chip_label_and_offset)
{
    const pin_handle pin = open_pin(5, in);
    ASSERT_NE(pin, nullptr);
    EXPECT_TRUE(lines.exported(5));
    EXPECT_EQ(zel_sys_gpio_set_edge(pin.get(), both), 0);
    lines.set_line(5, 1);
    EXPECT_TRUE(exceptional(zel_sys_gpio_fd(pin.get()), patience_ms));
    EXPECT_EQ(zel_sys_gpio_read(pin.get()), 1);
}

TEST_P(kernel_lines, wake_a_select_that_already_waits)
{
    const pin_handle pin = open_pin(506, in);
    EXPECT_EQ(zel_sys_gpio_set_edge(pin.get(), both), 0);
    std::thread outside([this] { lines.set_line(2, 1); });
    EXPECT_TRUE(exceptional(zel_sys_gpio_fd(pin.get()), patience_ms));
    outside.join();
}

TEST_P(kernel_lines, get_their_direction_before_their_edge)
{
    const pin_handle pin = open_pin(506, in);
    EXPECT_EQ(zel_sys_gpio_set_edge(pin.get(), both), 0);
    EXPECT_LT(position("gpio506/direction in"), position("gpio506/edge both"));
    EXPECT_TRUE(wrote("gpio506/edge both"));
}

TEST_P(kernel_lines, become_outputs_even_where_an_earlier_user_left_edges_on)
{
    lines.export_by_hand(2);
    {
        const pin_handle pin = open_pin(506, in);
        EXPECT_EQ(zel_sys_gpio_set_edge(pin.get(), both), 0);
    }
    EXPECT_NE(open_pin(506, out), nullptr);
}

TEST_P(kernel_lines, that_drive_an_active_low_output_never_go_low_while_it_is_off)
{
    const pin_handle pin = open_pin(505, out);
    ASSERT_NE(pin, nullptr);
    EXPECT_EQ(zel_sys_gpio_set_active_low(pin.get(), 1), 0);
    EXPECT_EQ(zel_sys_gpio_write(pin.get(), 0), 0);
    EXPECT_EQ(lines.output_levels(1), (std::vector<int>{1, 1}));
    EXPECT_EQ(zel_sys_gpio_write(pin.get(), 1), 0);
    EXPECT_EQ(lines.output_levels(1).back(), 0);
}

TEST_P(kernel_lines, that_drive_an_active_high_output_never_go_high_while_it_is_off)
{
    const pin_handle pin = open_pin(508, out);
    ASSERT_NE(pin, nullptr);
    EXPECT_EQ(zel_sys_gpio_set_active_low(pin.get(), 0), 0);
    EXPECT_EQ(zel_sys_gpio_write(pin.get(), 0), 0);
    EXPECT_EQ(lines.output_levels(4), (std::vector<int>{0, 0}));
}

TEST_P(kernel_lines, belong_to_one_pin_even_where_two_numbers_name_them)
{
    const pin_handle by_label = open_pin(5, in);
    ASSERT_NE(by_label, nullptr);
    EXPECT_EQ(zel_sys_gpio_open(509, in), nullptr);
    EXPECT_EQ(count_logged(0, {"Pin 509 (line 509)", "busy"}), 1);
    EXPECT_TRUE(lines.exported(5)) << "the refused pin took the other's line away";
}

TEST_P(kernel_lines, that_do_not_exist_or_are_taken_do_not_open_and_say_why)
{
    struct refusal {
        const char *what;
        int error;
        const char *cause;
    };
    for (const refusal &r :
         {refusal{"export", EBUSY, "busy"}, {"export", EINVAL, "no such line"}, {"export", EACCES, "no permission"},
          {"export", EPERM, "no permission"}, {"direction write", EIO, "direction"}, {"direction write", EACCES, "no permission"},
          {"active_low write", EIO, "active_low"}, {"value read", EIO, "value"}, {"value read", ENODEV, "gone"}}) {
        SCOPED_TRACE(testing::Message() << r.what << " " << r.error);
        lines.fail(r.what, r.error);
        EXPECT_EQ(zel_sys_gpio_open(506, in), nullptr);
        EXPECT_EQ(count_logged(0, {"Pin 506 (line 506)", r.cause}), 1);
        lines.fail(r.what, 0, 0);
        EXPECT_FALSE(lines.exported(2)) << "a pin that did not open leaves its line exported";
        log_lines().clear();
    }
    EXPECT_NE(open_pin(506, in), nullptr) << "works again once the cause has gone";
}

TEST_P(kernel_lines, beyond_the_last_one_do_not_open)
{
    EXPECT_EQ(zel_sys_gpio_open(512, in), nullptr);
    EXPECT_EQ(count_logged(0, {"Pin 512 (line 512)", "no such line"}), 1);
}

TEST_P(kernel_lines, whose_chip_or_offset_is_wrong_do_not_open_and_never_become_another_line)
{
    EXPECT_EQ(zel_sys_gpio_open(6, in), nullptr);
    EXPECT_EQ(count_logged(0, {"Pin 6", "no chip", "no-chip"}), 1);
    EXPECT_EQ(zel_sys_gpio_open(7, in), nullptr);
    EXPECT_EQ(count_logged(0, {"Pin 7", "no line 8"}), 1);
    EXPECT_EQ(zel_sys_gpio_open(8, in), nullptr);
    EXPECT_EQ(zel_sys_gpio_open(9, in), nullptr);
    EXPECT_EQ(count_logged(0, {"needs a chip label and an offset"}), 2);
    lines.add_chip_with_the_same_label();
    EXPECT_EQ(zel_sys_gpio_open(5, in), nullptr);
    EXPECT_EQ(count_logged(0, {"Pin 5", "several chips", "fake-chip"}), 1);
    EXPECT_TRUE(lines.writes().empty());
}

TEST_P(kernel_lines, whose_pin_is_no_number_are_reported_and_ignored)
{
    EXPECT_NE(open_pin(506, in), nullptr);
    EXPECT_EQ(count_logged(0, {"kernel_lines/x", "no pin number"}), 1);
}

TEST_P(kernel_lines, of_a_machine_without_value_files_do_not_open)
{
    setenv("ZEL_SYSFS_GPIO", "/nonexistent", 1);
    EXPECT_EQ(zel_sys_gpio_open(506, in), nullptr);
    EXPECT_EQ(count_logged(0, {"Pin 506 (line 506)", "missing"}), 1);
    EXPECT_EQ(zel_sys_gpio_open(5, in), nullptr);
    EXPECT_EQ(count_logged(0, {"Pin 5", "no chip"}), 1);
}

TEST_P(kernel_lines, without_interrupts_read_but_give_no_edges)
{
    lines.remove_attribute("edge");
    const pin_handle pin = open_pin(506, in);
    ASSERT_NE(pin, nullptr);
    lines.set_line(2, 1);
    EXPECT_EQ(zel_sys_gpio_read(pin.get()), 1);
    EXPECT_LT(zel_sys_gpio_set_edge(pin.get(), both), 0);
    EXPECT_EQ(count_logged(0, {"Pin 506 (line 506)", "edge", "missing"}), 1);
}

TEST_P(kernel_lines, whose_files_get_their_permissions_a_moment_later_open)
{
    lines.refuse_after_export(5, EACCES);  // as long as udev needs
    const pin_handle pin = open_pin(506, in);
    EXPECT_NE(pin, nullptr);
    EXPECT_EQ(count_logged(0, {"Pin 506"}), 0);
}

TEST_P(kernel_lines, whose_files_get_no_permissions_do_not_open)
{
    lines.refuse_after_export(1 << 30, EACCES);
    EXPECT_EQ(zel_sys_gpio_open(506, in), nullptr);
    EXPECT_EQ(count_logged(0, {"Pin 506 (line 506)", "no permission"}), 1);
}

TEST_P(kernel_lines, that_go_away_leave_a_pin_without_descriptor)
{
    const pin_handle pin = open_pin(506, in);
    EXPECT_EQ(zel_sys_gpio_set_edge(pin.get(), both), 0);
    lines.unexport_by_hand(2);
    const int fd = zel_sys_gpio_fd(pin.get());
    EXPECT_TRUE(exceptional(fd, patience_ms));
    EXPECT_EQ(zel_sys_gpio_read(pin.get()), -1);
    EXPECT_EQ(zel_sys_gpio_fd(pin.get()), -1) << "the host's loop would spin";
    EXPECT_EQ(zel_sys_gpio_read(pin.get()), -1);
    EXPECT_LT(zel_sys_gpio_set_edge(pin.get(), both), 0);
    EXPECT_LT(zel_sys_gpio_set_active_low(pin.get(), 1), 0);
    EXPECT_EQ(count_logged(0, {"Pin 506 (line 506)", "gone"}), 1) << "said once";
    EXPECT_EQ(count_logged(0, {"Pin 506"}), 1);
}

TEST_P(kernel_lines, that_went_away_and_came_back_work_after_opening_again)
{
    pin_handle pin = open_pin(506, in);
    lines.unexport_by_hand(2);
    lines.export_by_hand(2);
    EXPECT_EQ(zel_sys_gpio_read(pin.get()), -1);
    pin.reset();
    lines.set_line(2, 1);
    pin = open_pin(506, in);
    EXPECT_EQ(zel_sys_gpio_read(pin.get()), 1);
}

TEST_P(kernel_lines, that_go_away_fail_to_be_written)
{
    const pin_handle pin = open_pin(508, out);
    lines.unexport_by_hand(4);
    EXPECT_EQ(zel_sys_gpio_write(pin.get(), 1), -1);
    EXPECT_EQ(zel_sys_gpio_write(pin.get(), 1), -1);
    EXPECT_EQ(zel_sys_gpio_read(pin.get()), -1);
    EXPECT_EQ(count_logged(0, {"Pin 508 (line 508)", "gone"}), 1);
}

TEST_P(kernel_lines, whose_bus_fails_once_are_read_again)
{
    const pin_handle pin = open_pin(506, in);
    lines.set_line(2, 1);
    lines.fail("value read", EIO, 2);
    EXPECT_EQ(zel_sys_gpio_read(pin.get()), 1);
    lines.fail("value read", EIO, 3);
    EXPECT_EQ(zel_sys_gpio_read(pin.get()), -1);
    EXPECT_EQ(count_logged(0, {"Pin 506 (line 506)", "value"}), 1);
    EXPECT_EQ(zel_sys_gpio_read(pin.get()), 1) << "a bus error is no end";
}

TEST_P(kernel_lines, that_refuse_a_level_say_so_and_tell_no_change)
{
    const pin_handle pin = open_pin(508, out);
    int changes = 0;
    zel_sys_set_pin_observer([](void *count, int32_t, int32_t, int) { ++*static_cast<int *>(count); }, &changes);
    lines.fail("value write", EIO, 1);
    EXPECT_EQ(zel_sys_gpio_write(pin.get(), 1), -1);
    EXPECT_EQ(changes, 0);
    EXPECT_EQ(zel_sys_gpio_write(pin.get(), 1), 0);
    EXPECT_EQ(changes, 1);
    zel_sys_set_pin_observer(nullptr, nullptr);
}

TEST_P(kernel_lines, cannot_be_pressed_by_software)
{
    const pin_handle pin = open_pin(506, in);
    EXPECT_EQ(zel_sys_sim_press(506, 1), -1);
    EXPECT_EQ(zel_sys_sim_level(506), -1);
    EXPECT_EQ(zel_sys_gpio_read(pin.get()), 0);
}

// One instance where files can be made up, none elsewhere.
std::vector<int> once_where_possible()
{
    return fuse_mount::possible() ? std::vector<int>{0} : std::vector<int>{};
}
INSTANTIATE_TEST_SUITE_P(made_up, kernel_lines, testing::ValuesIn(once_where_possible()), [](const auto &) { return "fuse"; });
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(kernel_lines);

}  // namespace
