// A press at a simulated pin until the relay's pin is driven, through the library's event loop, beside a bare loop that makes the
// same system calls: the wait on the same descriptors, the read of the pin, the write of the relay.
//
//   bench_press_to_relay             interleaved rounds of both, medians and ratio
//   bench_press_to_relay library N   N presses of one kind only, for counting instructions
//   bench_press_to_relay floor N
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "bench_unit.h"
#include "zel_gpio.h"
#include "zel_sys.h"

namespace {

constexpr int32_t library_pin = 1, library_relay = 201, floor_pin = 1001, floor_relay = 1201;
constexpr char gpio_section[] =
    R"({"physical": {"phys_gpio_count": 1, "gpio_0": {"type": 1, "input_mode": 1, "handler": "", "handler_invert": ""}},)"
    R"( "relay": {"relay_count": 1, "relay_0": {"triggers": "GPI 1", "trigger_invert": "0"}}})";

struct wait_sets {
    fd_set readfds, exceptfds;
    int maxfd = -1;

    wait_sets()
    {
        FD_ZERO(&readfds);
        FD_ZERO(&exceptfds);
    }
    int wait() { return select(maxfd + 1, &readfds, nullptr, &exceptfds, nullptr); }
};

// Not inlined: callgrind collects inside these two.
__attribute__((noinline)) void library_turn(int pressed)
{
    bench::require(zel_sys_sim_press(library_pin, pressed) == 0, "press");
    wait_sets sets;
    zel_gpio_set_fds(&sets.readfds, &sets.exceptfds, &sets.maxfd);
    sets.wait();
    zel_gpio_process_fds(&sets.readfds, &sets.exceptfds);
}

struct bare_unit {
    zel_sys_gpio_t *pin = zel_sys_gpio_open(floor_pin, 0), *relay = zel_sys_gpio_open(floor_relay, 2);
    wait_sets offered;  // what the library offers beside its pin

    bare_unit()
    {
        bench::require(pin != nullptr && relay != nullptr && zel_sys_gpio_set_edge(pin, 3) == 0, "opening bare pins");
        zel_gpio_set_fds(&offered.readfds, &offered.exceptfds, &offered.maxfd);
        FD_ZERO(&offered.exceptfds);
        FD_SET(zel_sys_gpio_fd(pin), &offered.exceptfds);
        offered.maxfd = std::max(offered.maxfd, zel_sys_gpio_fd(pin));
    }
    ~bare_unit()
    {
        zel_sys_gpio_close(pin);
        zel_sys_gpio_close(relay);
    }
};

__attribute__((noinline)) void floor_turn(bare_unit &unit, int pressed)
{
    bench::require(zel_sys_sim_press(floor_pin, pressed) == 0, "bare press");
    wait_sets sets = unit.offered;
    sets.wait();
    if (FD_ISSET(zel_sys_gpio_fd(unit.pin), &sets.exceptfds)) (void)zel_sys_gpio_write(unit.relay, zel_sys_gpio_read(unit.pin));
}

template <typename turn>
double nanoseconds_per_press(int presses, const turn &make)
{
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < presses; ++i) make(1), make(0);
    const auto taken = std::chrono::steady_clock::now() - begin;
    return std::chrono::duration<double, std::nano>(taken).count() / (2.0 * presses);
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void compare(bare_unit &bare)
{
    constexpr int rounds = 15, presses = 5000;
    std::vector<double> library, floor, ratio;
    for (int round = 0; round < rounds; ++round) {
        floor.push_back(nanoseconds_per_press(presses, [&](int pressed) { floor_turn(bare, pressed); }));
        library.push_back(nanoseconds_per_press(presses, library_turn));
        ratio.push_back(library.back() / floor.back());
    }
    std::printf("press to relay | library %.0f ns | bare loop %.0f ns | ratio %.3f (median of %d interleaved rounds)\n",
                median(library), median(floor), median(ratio), rounds);
}

void check_that_both_work(bare_unit &bare)
{
    for (const int pressed : {1, 0}) {
        library_turn(pressed);
        floor_turn(bare, pressed);
        bench::require(zel_sys_sim_level(library_relay) == pressed, "the library's relay follows");
        bench::require(zel_sys_sim_level(floor_relay) == pressed, "the bare relay follows");
    }
}

}  // namespace

int main(int argc, char **argv)
{
    const bench::unit_folder folder(gpio_section);
    const gpio_phys_cfg_t pins[] = {{library_pin, 0, 101, 0, 0}};
    bench::require(zel_gpio_init(pins, 1, library_relay, 1, 0, 0, nullptr, nullptr, nullptr, 0, nullptr) == 0, "start");
    {
        bare_unit bare;
        check_that_both_work(bare);
        if (argc == 3) {
            const bool library = std::strcmp(argv[1], "library") == 0;
            for (long i = 0; i < std::strtol(argv[2], nullptr, 10); ++i) {
                const int pressed = i % 2 == 0;
                library ? library_turn(pressed) : floor_turn(bare, pressed);
            }
        } else {
            compare(bare);
        }
    }
    zel_gpio_term();
    return 0;
}
