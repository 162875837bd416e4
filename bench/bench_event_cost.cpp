// What one trigger event costs with few and many virtual ports of which one listens: bench_event_cost PORTS EVENTS
// Meant to be run under callgrind, which collects inside report_event only.
#include <cstdio>
#include <cstdlib>

#include "bench_unit.h"
#include "zel_gpio.h"

namespace {

constexpr char gpio_section[] =
    R"({"virtual": {"vgpio_0": {"type": 2, "trigger": "Eth Link Down", "invert_trigger": "0"}}})";

__attribute__((noinline)) void report_event(uint8_t state)
{
    zel_gpio_notify_trigger_event(zel_gpio_eth_link_trig(), state);
}

}  // namespace

int main(int argc, char **argv)
{
    bench::require(argc == 3, "usage: bench_event_cost PORTS EVENTS");
    const int32_t ports = static_cast<int32_t>(std::strtol(argv[1], nullptr, 10));
    const long events = std::strtol(argv[2], nullptr, 10);
    const bench::unit_folder folder(gpio_section);
    bench::require(zel_gpio_init(nullptr, 0, 0, 0, ports, 0, nullptr, nullptr, nullptr, 0, nullptr) == 0, "start");
    report_event(1);
    report_event(0);
    for (long i = 0; i < events; ++i) report_event(i % 2 == 0);
    zel_gpio_term();
    return 0;
}
