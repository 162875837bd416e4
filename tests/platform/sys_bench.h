// A test bench for pins: contacts that a test presses and outputs that it looks at, on each back end there is here.
#pragma once

#include "temp_folder.h"
#include "test_lines.h"
#include "zel_sys.h"

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

// A unit's root of its own, made the current one.
class unit_folder {
public:
    explicit unit_folder(const std::string &unit_json = "");
    ~unit_folder();
    const std::string &path() const { return folder_.path(); }

private:
    temp_folder folder_;
};

// A pin that is closed at the end of its scope.
using pin_handle = std::unique_ptr<zel_sys_gpio_t, decltype(&zel_sys_gpio_close)>;
inline pin_handle open_pin(int32_t pin, int32_t direction)
{
    return {zel_sys_gpio_open(pin, direction), zel_sys_gpio_close};
}

class pin_bench {
public:
    virtual ~pin_bench() = default;
    virtual int32_t input(int n) const = 0;     // platform numbers; n from 0 to 2
    virtual int32_t output(int n) const = 0;    // n from 0 to 1
    // A contact that is open leaves an active-low line high, an active-high line low. The line has moved when this returns.
    virtual void press(int n, bool pressed, bool active_low = false) = 0;
    // The logical level of an output as somebody outside sees it.
    virtual int output_level(int n, bool active_low = false) = 0;
    // Lines of the machine only: the pin of one that a driver uses; what another program does to the line of input `n`.
    virtual int32_t taken_pin() const { return -1; }
    virtual void take_away(int) {}
    virtual bool export_by_hand(int) { return false; }
    bool simulated() const { return taken_pin() < 0; }
};

struct bench_kind {
    const char *name;
    std::unique_ptr<pin_bench> (*make)();
};
inline std::ostream &operator<<(std::ostream &out, const bench_kind &kind) { return out << kind.name; }

// Those that work on this machine: a back end without its means is no instance, rather than a test that skips itself.
std::vector<bench_kind> benches();
// Of these the ones with lines of the machine, real or made up.
std::vector<bench_kind> machine_benches();

// In a real select(): exceptional now, or at most so much later.
bool exceptional(int fd, int within_ms = 0);
