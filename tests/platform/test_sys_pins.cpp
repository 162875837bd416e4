// How pins behave, the same on every back end.
#include "sys_bench.h"
#include "sys_log.h"

#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/resource.h>

#include <array>
#include <tuple>

namespace {

constexpr int in = 0, out = 2;
constexpr int none = 0, falling = 1, rising = 2, both = 3;

struct change {
    int32_t pin, direction;
    int level;
    bool operator==(const change &) const = default;
};

void remember(void *changes, int32_t pin, int32_t direction, int level)
{
    static_cast<std::vector<change> *>(changes)->push_back({pin, direction, level});
}

class pins : public testing::TestWithParam<bench_kind> {
protected:
    pins() { log_lines().clear(); }
    ~pins() override { zel_sys_set_pin_observer(nullptr, nullptr); }

    // An input that is set up as a port's is, at rest before.
    pin_handle input_at_rest(int n, int edge, bool active_low, bool pressed = false)
    {
        bench->press(n, pressed, active_low);
        pin_handle pin = open_pin(bench->input(n), in);
        EXPECT_NE(pin, nullptr);
        EXPECT_EQ(zel_sys_gpio_set_active_low(pin.get(), active_low), 0);
        EXPECT_EQ(zel_sys_gpio_set_edge(pin.get(), edge), 0);
        return pin;
    }

    // One edge per contact movement: what the line does, and whether that was asked for.
    void expect_edges(bool active_low)
    {
        for (const int edge : {none, falling, rising, both}) {
            for (const bool press : {true, false}) {
                SCOPED_TRACE(testing::Message() << "edge " << edge << (press ? ", press" : ", release"));
                const pin_handle pin = input_at_rest(0, edge, active_low, !press);
                EXPECT_FALSE(exceptional(zel_sys_gpio_fd(pin.get())));
                bench->press(0, press, active_low);
                const int line_edge = press != active_low ? rising : falling;
                const bool wanted = (edge & line_edge) != 0;
                EXPECT_EQ(exceptional(zel_sys_gpio_fd(pin.get()), wanted ? patience_ms : 0), wanted);
                EXPECT_EQ(zel_sys_gpio_read(pin.get()), press);
            }
        }
    }

    std::unique_ptr<pin_bench> bench = GetParam().make();
};

TEST_P(pins, an_active_high_input_is_exceptional_for_the_chosen_edges_of_its_line)
{
    expect_edges(false);
}

TEST_P(pins, an_active_low_input_is_exceptional_for_the_chosen_edges_of_its_line)
{
    expect_edges(true);
}

TEST_P(pins, a_read_takes_the_edge_and_gives_the_level)
{
    const pin_handle pin = input_at_rest(0, both, false);
    for (const int level : {1, 0, 1, 0}) {
        bench->press(0, level);
        EXPECT_TRUE(exceptional(zel_sys_gpio_fd(pin.get()), patience_ms));
        EXPECT_TRUE(exceptional(zel_sys_gpio_fd(pin.get()))) << "it stays so until it is read";
        EXPECT_EQ(zel_sys_gpio_read(pin.get()), level);
        EXPECT_FALSE(exceptional(zel_sys_gpio_fd(pin.get())));
    }
}

TEST_P(pins, edges_that_nobody_read_are_one)
{
    const pin_handle pin = input_at_rest(0, both, false);
    const int edges = bench->simulated() ? 5001 : 5;  // far more than a socket holds
    for (int i = 1; i <= edges; ++i) bench->press(0, i % 2 != 0);
    EXPECT_TRUE(log_lines().empty());
    EXPECT_TRUE(exceptional(zel_sys_gpio_fd(pin.get()), patience_ms));
    EXPECT_EQ(zel_sys_gpio_read(pin.get()), 1);
    EXPECT_FALSE(exceptional(zel_sys_gpio_fd(pin.get())));
}

TEST_P(pins, only_the_pins_that_moved_are_exceptional)
{
    const std::array<pin_handle, 3> inputs = {input_at_rest(0, both, false), input_at_rest(1, both, true),
                                              input_at_rest(2, both, false)};
    bench->press(1, true, true);
    EXPECT_TRUE(exceptional(zel_sys_gpio_fd(inputs[1].get()), patience_ms));
    EXPECT_FALSE(exceptional(zel_sys_gpio_fd(inputs[0].get())));
    EXPECT_FALSE(exceptional(zel_sys_gpio_fd(inputs[2].get())));
    EXPECT_EQ(zel_sys_gpio_read(inputs[0].get()), 0);
    EXPECT_TRUE(exceptional(zel_sys_gpio_fd(inputs[1].get()))) << "another pin's read took its edge";
}

TEST_P(pins, an_input_opened_while_its_contact_is_closed_reads_1_and_has_no_edge_pending)
{
    for (const bool active_low : {false, true}) {
        SCOPED_TRACE(active_low);
        const pin_handle pin = input_at_rest(0, both, active_low, true);
        EXPECT_FALSE(exceptional(zel_sys_gpio_fd(pin.get())));
        EXPECT_EQ(zel_sys_gpio_read(pin.get()), 1);
    }
}

TEST_P(pins, an_input_without_chosen_edges_still_reads_its_level)
{
    bench->press(0, false);
    const pin_handle pin = open_pin(bench->input(0), in);
    ASSERT_NE(pin, nullptr);
    EXPECT_FALSE(exceptional(zel_sys_gpio_fd(pin.get())));
    bench->press(0, true);
    EXPECT_EQ(zel_sys_gpio_read(pin.get()), 1);
    EXPECT_FALSE(exceptional(zel_sys_gpio_fd(pin.get())));
}

TEST_P(pins, choosing_edges_forgets_a_pending_one)
{
    const pin_handle pin = input_at_rest(0, both, false);
    bench->press(0, true);
    EXPECT_TRUE(exceptional(zel_sys_gpio_fd(pin.get()), patience_ms));
    EXPECT_EQ(zel_sys_gpio_set_edge(pin.get(), both), 0);
    EXPECT_FALSE(exceptional(zel_sys_gpio_fd(pin.get())));
    bench->press(0, false);
    EXPECT_TRUE(exceptional(zel_sys_gpio_fd(pin.get()), patience_ms));
}

TEST_P(pins, changing_the_polarity_makes_no_edge)
{
    for (const int edge : {none, falling, rising, both}) {
        SCOPED_TRACE(edge);
        const pin_handle pin = input_at_rest(0, edge, false);
        EXPECT_EQ(zel_sys_gpio_set_active_low(pin.get(), 1), 0);
        EXPECT_FALSE(exceptional(zel_sys_gpio_fd(pin.get())));
        EXPECT_EQ(zel_sys_gpio_set_active_low(pin.get(), 0), 0);
        EXPECT_FALSE(exceptional(zel_sys_gpio_fd(pin.get())));
    }
}

TEST_P(pins, changing_the_polarity_keeps_a_pending_edge)
{
    const pin_handle pin = input_at_rest(0, both, false);
    bench->press(0, true);
    EXPECT_TRUE(exceptional(zel_sys_gpio_fd(pin.get()), patience_ms));
    EXPECT_EQ(zel_sys_gpio_set_active_low(pin.get(), 1), 0);
    EXPECT_TRUE(exceptional(zel_sys_gpio_fd(pin.get())));
}

TEST_P(pins, edges_chosen_before_the_polarity_are_still_those_of_the_line)
{
    for (const int edge : {falling, rising}) {
        SCOPED_TRACE(edge);
        const pin_handle pin = input_at_rest(0, edge, false);
        EXPECT_EQ(zel_sys_gpio_set_active_low(pin.get(), 1), 0);
        bench->press(0, false, true);
        (void)zel_sys_gpio_read(pin.get());
        bench->press(0, true, true);  // the line falls
        EXPECT_EQ(exceptional(zel_sys_gpio_fd(pin.get()), edge == falling ? patience_ms : 0), edge == falling);
        EXPECT_EQ(zel_sys_gpio_read(pin.get()), 1);
        bench->press(0, false, true);
        EXPECT_EQ(exceptional(zel_sys_gpio_fd(pin.get()), edge == rising ? patience_ms : 0), edge == rising);
    }
}

TEST_P(pins, an_output_starts_at_0_and_is_driven_and_read_back)
{
    const pin_handle pin = open_pin(bench->output(0), out);
    ASSERT_NE(pin, nullptr);
    EXPECT_EQ(bench->output_level(0), 0);
    EXPECT_EQ(zel_sys_gpio_read(pin.get()), 0);
    for (const int level : {1, 1, 0, 1, 0}) {
        EXPECT_EQ(zel_sys_gpio_write(pin.get(), level), 0);
        EXPECT_EQ(bench->output_level(0), level);
        EXPECT_EQ(zel_sys_gpio_read(pin.get()), level);
    }
    EXPECT_EQ(zel_sys_gpio_write(pin.get(), -7), 0) << "any value but 0 is 1";
    EXPECT_EQ(bench->output_level(0), 1);
    EXPECT_EQ(zel_sys_gpio_read(pin.get()), 1);
}

TEST_P(pins, an_output_opened_again_starts_at_0)
{
    {
        const pin_handle pin = open_pin(bench->output(0), out);
        EXPECT_EQ(zel_sys_gpio_write(pin.get(), 1), 0);
    }
    EXPECT_EQ(bench->output_level(0), 1) << "closing a pin does not move its line";
    const pin_handle pin = open_pin(bench->output(0), out);
    EXPECT_EQ(bench->output_level(0), 0);
}

TEST_P(pins, an_output_keeps_its_logical_level_when_its_polarity_changes)
{
    const pin_handle pin = open_pin(bench->output(1), out);
    for (const int level : {0, 1}) {
        SCOPED_TRACE(level);
        EXPECT_EQ(zel_sys_gpio_write(pin.get(), level), 0);
        EXPECT_EQ(zel_sys_gpio_set_active_low(pin.get(), 1), 0);
        EXPECT_EQ(bench->output_level(1, true), level);
        EXPECT_EQ(zel_sys_gpio_read(pin.get()), level);
        EXPECT_EQ(zel_sys_gpio_set_active_low(pin.get(), 0), 0);
        EXPECT_EQ(bench->output_level(1, false), level);
    }
}

TEST_P(pins, an_output_that_the_configuration_calls_active_low_starts_off)
{
    const pin_handle pin = open_pin(bench->output(1), out);
    EXPECT_EQ(bench->output_level(1, true), 0) << "before its polarity was set";
    EXPECT_EQ(zel_sys_gpio_set_active_low(pin.get(), 1), 0);
    EXPECT_EQ(bench->output_level(1, true), 0);
}

TEST_P(pins, an_output_has_no_descriptor_and_no_edges)
{
    const pin_handle pin = open_pin(bench->output(0), out);
    EXPECT_EQ(zel_sys_gpio_fd(pin.get()), -1);
    EXPECT_LT(zel_sys_gpio_set_edge(pin.get(), rising), 0);
    EXPECT_EQ(count_logged(0, {"Pin " + std::to_string(bench->output(0)), "an output has no edges"}), 1);
}

TEST_P(pins, an_input_cannot_be_written)
{
    const pin_handle pin = input_at_rest(0, both, false);
    EXPECT_EQ(zel_sys_gpio_write(pin.get(), 1), -1);
    EXPECT_EQ(zel_sys_gpio_read(pin.get()), 0);
    EXPECT_EQ(count_logged(0, {"Pin " + std::to_string(bench->input(0)), "cannot be written"}), 1);
}

TEST_P(pins, an_edge_code_that_does_not_exist_changes_nothing)
{
    const pin_handle pin = input_at_rest(0, rising, false);
    EXPECT_LT(zel_sys_gpio_set_edge(pin.get(), 4), 0);
    EXPECT_LT(zel_sys_gpio_set_edge(pin.get(), -1), 0);
    bench->press(0, true);
    EXPECT_TRUE(exceptional(zel_sys_gpio_fd(pin.get()), patience_ms));
}

TEST_P(pins, a_number_or_direction_that_does_not_exist_opens_nothing)
{
    EXPECT_EQ(zel_sys_gpio_open(-1, in), nullptr);
    EXPECT_EQ(zel_sys_gpio_open(INT32_MIN, out), nullptr);
    EXPECT_EQ(zel_sys_gpio_open(bench->input(0), 1), nullptr);
    EXPECT_EQ(zel_sys_gpio_open(bench->input(0), -1), nullptr);
    EXPECT_EQ(log_lines().size(), 4u);
}

TEST_P(pins, a_pin_that_is_open_is_busy_until_it_is_closed)
{
    pin_handle first = input_at_rest(0, both, false);
    log_lines().clear();
    EXPECT_EQ(zel_sys_gpio_open(bench->input(0), in), nullptr);
    EXPECT_EQ(zel_sys_gpio_open(bench->input(0), out), nullptr);
    EXPECT_EQ(count_logged(0, {"Pin " + std::to_string(bench->input(0)), "busy"}), 2);
    bench->press(0, true);
    EXPECT_TRUE(exceptional(zel_sys_gpio_fd(first.get()), patience_ms)) << "the refused ones disturbed it";
    first.reset();
    EXPECT_NE(open_pin(bench->input(0), in), nullptr);
}

TEST_P(pins, an_input_that_was_closed_and_opened_again_works_as_before)
{
    for (int round = 0; round < 3; ++round) {
        const pin_handle pin = input_at_rest(0, both, false);
        bench->press(0, true);
        EXPECT_TRUE(exceptional(zel_sys_gpio_fd(pin.get()), patience_ms));
    }
}

TEST_P(pins, one_pin_may_be_input_and_output_in_turn)
{
    const int32_t number = bench->output(0);
    {
        const pin_handle pin = open_pin(number, out);
        EXPECT_EQ(zel_sys_gpio_write(pin.get(), 1), 0);
    }
    {
        const pin_handle pin = open_pin(number, in);
        ASSERT_NE(pin, nullptr);
        EXPECT_EQ(zel_sys_gpio_set_edge(pin.get(), both), 0);
        EXPECT_GE(zel_sys_gpio_read(pin.get()), 0);
        EXPECT_EQ(zel_sys_gpio_write(pin.get(), 1), -1);
    }
    const pin_handle pin = open_pin(number, out);
    EXPECT_EQ(zel_sys_gpio_write(pin.get(), 1), 0);
    EXPECT_EQ(bench->output_level(0), 1);
}

TEST_P(pins, no_pin_opens_whose_descriptor_select_cannot_take)
{
    rlimit limit = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    limit.rlim_cur = limit.rlim_max;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    std::vector<int> filling;
    for (int fd = 0; fd < FD_SETSIZE;) filling.push_back(fd = open("/dev/null", O_RDONLY | O_CLOEXEC));
    ASSERT_GE(filling.back(), FD_SETSIZE) << "the limit of open files is too low for this test";

    EXPECT_EQ(zel_sys_gpio_open(bench->input(0), in), nullptr);
    EXPECT_EQ(count_logged(0, {"Pin " + std::to_string(bench->input(0)), "select()"}), 1);
    const int next = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(next, filling.back() + 1) << "a refused pin left descriptors open";
    close(next);
    EXPECT_NE(open_pin(bench->output(0), out), nullptr) << "outputs are in no set";

    for (const int fd : filling) close(fd);
    const pin_handle pin = input_at_rest(0, both, false);
    bench->press(0, true);
    EXPECT_TRUE(exceptional(zel_sys_gpio_fd(pin.get()), patience_ms));
}

TEST_P(pins, the_observer_is_told_of_changes_only)
{
    std::vector<change> seen;
    (void)open_pin(bench->output(0), out);  // as a pin is that was never open
    bench->press(0, false);
    zel_sys_set_pin_observer(remember, &seen);
    const pin_handle input = input_at_rest(0, both, false);
    const pin_handle output = open_pin(bench->output(0), out);
    EXPECT_EQ(seen, std::vector<change>{});

    for (const int level : {0, 1, 1, 0, 0}) EXPECT_EQ(zel_sys_gpio_write(output.get(), level), 0);
    bench->press(0, true);
    EXPECT_EQ(zel_sys_gpio_read(input.get()), 1);
    EXPECT_EQ(zel_sys_gpio_read(input.get()), 1);
    const int32_t pressed = bench->input(0), driven = bench->output(0);
    EXPECT_EQ(seen, (std::vector<change>{{driven, out, 1}, {driven, out, 0}, {pressed, in, 1}}));

    zel_sys_set_pin_observer(nullptr, nullptr);
    EXPECT_EQ(zel_sys_gpio_write(output.get(), 1), 0);
    EXPECT_EQ(seen.size(), 3u);
}

TEST_P(pins, the_observer_is_told_what_a_pin_starts_with)
{
    std::vector<change> seen;
    {
        const pin_handle output = open_pin(bench->output(0), out);
        EXPECT_EQ(zel_sys_gpio_write(output.get(), 1), 0);
    }
    zel_sys_set_pin_observer(remember, &seen);
    const pin_handle output = open_pin(bench->output(0), out);
    EXPECT_EQ(seen, (std::vector<change>{{bench->output(0), out, 0}}));
}

TEST_P(pins, the_observer_is_told_nothing_of_an_input_at_rest_whose_polarity_is_known)
{
    std::vector<change> seen;
    bench->press(2, false, true);
    zel_sys_set_pin_observer(remember, &seen);
    const pin_handle input = input_at_rest(2, both, true);
    EXPECT_EQ(zel_sys_gpio_read(input.get()), 0);
    EXPECT_EQ(seen, std::vector<change>{});
}

TEST_P(pins, the_observer_may_close_the_pin_it_is_told_of)
{
    struct closing {
        zel_sys_gpio_t *pin;
        int calls;
    } state = {zel_sys_gpio_open(bench->output(0), out), 0};
    zel_sys_set_pin_observer(
        [](void *user_data, int32_t, int32_t, int) {
            auto &closed = *static_cast<closing *>(user_data);
            zel_sys_gpio_close(std::exchange(closed.pin, nullptr));
            ++closed.calls;
        },
        &state);
    EXPECT_EQ(zel_sys_gpio_write(state.pin, 1), 0);
    EXPECT_EQ(state.calls, 1);
    zel_sys_set_pin_observer(nullptr, nullptr);
    EXPECT_NE(open_pin(bench->output(0), out), nullptr);
}

TEST_P(pins, edges_go_on_for_ever)
{
    const int edges = bench->simulated() ? 20000 : 50;
    const pin_handle pin = input_at_rest(0, both, false);
    for (int i = 1; i <= edges; ++i) {
        bench->press(0, i % 2 != 0);
        ASSERT_TRUE(exceptional(zel_sys_gpio_fd(pin.get()), patience_ms)) << "edge " << i;
        ASSERT_EQ(zel_sys_gpio_read(pin.get()), i % 2) << "edge " << i;
        ASSERT_FALSE(exceptional(zel_sys_gpio_fd(pin.get()))) << "edge " << i;
    }
    EXPECT_EQ(log_lines().size(), 0u);
}

INSTANTIATE_TEST_SUITE_P(on, pins, testing::ValuesIn(benches()), [](const auto &kind) { return kind.param.name; });

// What only lines of the machine do.
class machine_pins : public pins {};

TEST_P(machine_pins, whose_line_is_taken_away_have_no_descriptor_any_more)
{
    const pin_handle pin = input_at_rest(0, both, false);
    bench->take_away(0);
    EXPECT_TRUE(exceptional(zel_sys_gpio_fd(pin.get()), patience_ms));
    EXPECT_EQ(zel_sys_gpio_read(pin.get()), -1);
    EXPECT_EQ(zel_sys_gpio_fd(pin.get()), -1);
    EXPECT_EQ(zel_sys_gpio_read(pin.get()), -1);
    EXPECT_LT(zel_sys_gpio_set_edge(pin.get(), both), 0);
    EXPECT_EQ(count_logged(0, {"Pin " + std::to_string(bench->input(0)), "gone"}), 1);
}

TEST_P(machine_pins, whose_line_a_driver_uses_are_busy)
{
    EXPECT_EQ(zel_sys_gpio_open(bench->taken_pin(), in), nullptr);
    EXPECT_EQ(count_logged(0, {"Pin " + std::to_string(bench->taken_pin()), "export", "busy"}), 1);
}

TEST_P(machine_pins, share_a_line_that_another_program_exported_and_leave_it_exported)
{
    ASSERT_TRUE(bench->export_by_hand(0));
    for (int round = 0; round < 2; ++round) {
        const pin_handle pin = input_at_rest(0, both, true);
        bench->press(0, true, true);
        EXPECT_TRUE(exceptional(zel_sys_gpio_fd(pin.get()), patience_ms));
    }
    EXPECT_FALSE(bench->export_by_hand(0)) << "it was unexported";
    bench->take_away(0);
}

INSTANTIATE_TEST_SUITE_P(on, machine_pins, testing::ValuesIn(machine_benches()),
                         [](const auto &kind) { return kind.param.name; });
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(machine_pins);

TEST(null_pins, give_an_error_and_do_nothing)
{
    zel_sys_gpio_close(nullptr);
    EXPECT_EQ(zel_sys_gpio_read(nullptr), -1);
    EXPECT_EQ(zel_sys_gpio_write(nullptr, 1), -1);
    EXPECT_EQ(zel_sys_gpio_set_active_low(nullptr, 1), -1);
    EXPECT_EQ(zel_sys_gpio_set_edge(nullptr, 1), -1);
    EXPECT_EQ(zel_sys_gpio_fd(nullptr), -1);
    EXPECT_TRUE(log_lines().empty());
}

}  // namespace
