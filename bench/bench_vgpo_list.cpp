// Thousands of virtual outputs of other units: the time to take each one up as it is found, and to list them all for the grid.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "bench_unit.h"
#include "zel_gpio.h"

namespace {

using clock_type = std::chrono::steady_clock;

double us_since(clock_type::time_point begin)
{
    return std::chrono::duration<double, std::micro>(clock_type::now() - begin).count();
}

void put(char *field, const std::string &text) { std::memcpy(field, text.c_str(), text.size() + 1); }

void resolve(int number)
{
    char record[512] = {};
    put(record + 4, "vGPO" + std::to_string(number % 8 + 1) + "@Studio " + std::to_string(number / 8));
    put(record + 132, "_zelvgpo._tcp");
    put(record + 196, "10.0.0." + std::to_string(number / 8 % 250 + 1));
    const uint16_t port = 9000;
    std::memcpy(record + 236, &port, sizeof port);
    put(record + 238, "\"path=/unit/gpio/virtual/vgpio " + std::to_string(number % 8 + 1) + "\"");
    zel_sdisc_ipc_cb(nullptr, 5, record, sizeof record);
}

struct listing {
    double us;
    size_t bytes;
};

listing list_all(std::vector<char> &buffer)
{
    std::vector<double> times;
    size_t length = 0;
    for (int round = 0; round < 31; ++round) {
        const auto begin = clock_type::now();
        int status = 200;
        char *reply = nullptr;
        (void)url_handler_gpioGrid.func(nullptr, "getFreeGpio=0", 13, nullptr, 0, &status, &reply, &length, nullptr, buffer.data(),
                                        buffer.size());
        times.push_back(us_since(begin));
        bench::require(status == 200 && reply == buffer.data(), "listing");
    }
    std::sort(times.begin(), times.end());
    return {times[times.size() / 2], length};
}

// The least that listing can cost: the same bytes, copied.
double copy_us(const std::vector<char> &buffer, size_t bytes)
{
    std::vector<double> times;
    std::vector<char> copy(bytes);
    for (int round = 0; round < 31; ++round) {
        const auto begin = clock_type::now();
        std::memcpy(copy.data(), buffer.data(), bytes);
        asm volatile("" : : "r"(copy.data()) : "memory");
        times.push_back(us_since(begin));
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

}  // namespace

int main()
{
    const bench::unit_folder folder(R"({"virtual": {"virtual_gpio_count": 1, "vgpio_0": {"type": 0}}})");
    bench::require(zel_gpio_init(nullptr, 0, 0, 0, 1, 0, nullptr, nullptr, nullptr, 0, nullptr) == 0, "start");
    std::vector<char> buffer(1 << 20);
    int known = 0;
    for (const int count : {500, 1000, 2000, 4000}) {
        const auto begin = clock_type::now();
        const int added = count - known;
        while (known < count) resolve(known++);
        const double each = us_since(begin) / added;
        const auto again_begin = clock_type::now();
        for (int i = 0; i < 500; ++i) resolve(i * (count / 500));
        const double again = us_since(again_begin) / 500;
        const listing all = list_all(buffer);
        const double floor = copy_us(buffer, all.bytes);
        std::printf("%d remote outputs | found: %.2f us each | found again: %.2f us each | listed: %.0f us, %zu bytes, %.1f ns each | copied: %.1f us\n",
                    count, each, again, all.us, all.bytes, all.us * 1000 / count, floor);
    }
    zel_gpio_term();
    return 0;
}
