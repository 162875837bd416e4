#include "kernel_pin.h"

#include "fd_range.h"
#include "kernel_lines.h"
#include "sys_config.h"
#include "zel_debug.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <set>
#include <string>
#include <utility>

namespace zel {
namespace {

// Two pin numbers may name one line, the one by its number and the other by its chip.
std::set<int32_t> &lines_in_use()
{
    static auto &lines = *new std::set<int32_t>;  // never destroyed, as the table of pins
    return lines;
}

class kernel_pin : public zel_sys_gpio {
public:
    kernel_pin(int32_t pin_number, int32_t pin_direction, pin_state &its_state, int32_t line)
        : zel_sys_gpio(pin_number, pin_direction, its_state), line_(line)
    {
    }
    ~kernel_pin() override;

    bool start();

    int read() override;
    int write(int level) override;
    int set_active_low(bool low) override;
    int set_edge(int edge) override;
    int fd() const override { return is_output() ? -1 : value_.get(); }
    int first_level() const override { return first_level_; }

private:
    bool line_failed(const char *what, int error);
    bool put(const char *attribute, const char *text);
    bool set_up_direction();
    bool put_edge();
    int read_line();
    bool put_value(int level);
    bool edge_pending() const;

    kernel_line line_;
    unique_fd value_;  // none: the line has gone, or is not open yet
    bool claimed_ = false;
    bool active_low_ = false;
    int edge_ = edge_none;
    int first_level_ = 0;
};

kernel_pin::~kernel_pin()
{
    value_.reset();
    line_.unexport_files();
    if (claimed_) lines_in_use().erase(line_.number());
}

bool kernel_pin::line_failed(const char *what, int error)
{
    log_message(0, "%s: Pin %d (line %d): %s: %s\n", __func__, number, line_.number(), what, cause_of(error));
    // What a gone line's descriptor says is "exceptional", for ever: a loop that waited for it would never wait again.
    if (error == ENODEV) value_.reset();
    return false;
}

bool kernel_pin::put(const char *attribute, const char *text)
{
    const int error = line_.write(attribute, text);
    return error == 0 || line_failed(attribute, error);
}

bool kernel_pin::start()
{
    claimed_ = lines_in_use().insert(line_.number()).second;
    if (!claimed_) return line_failed("open", EBUSY);
    int error = line_.export_files();
    if (error != 0) return line_failed("export", error);
    if (!set_up_direction()) return false;
    error = line_.open_value(is_output(), value_);
    if (error != 0) return line_failed("value", error);
    if (is_output()) return true;
    first_level_ = read_line();  // a descriptor just opened is exceptional before any edge
    return first_level_ >= 0 && fits_select(value_.get(), ("Pin " + std::to_string(number)).c_str());
}

// The polarity comes later from the host, but the configuration has it now: an input is not seen at the wrong level for a
// moment, and an output begins at logical 0 in one step. The words "low" and "high" mean the line whatever its polarity.
bool kernel_pin::set_up_direction()
{
    (void)line_.write("edge", "none");  // left by an earlier user, it would keep the direction from changing
    active_low_ = config_of_unit().active_low_pins.contains({direction, number});
    if (!put("active_low", active_low_ ? "1" : "0")) return false;
    if (!is_output()) return put("direction", "in");
    return put("direction", active_low_ ? "high" : "low");
}

// The level from the start of the file, which also takes the pending edge. A bus that fails once (expanders) is asked again.
int kernel_pin::read_line()
{
    constexpr int attempts = 3;
    char text[8];
    ssize_t got = -1;
    for (int attempt = 0; attempt < attempts && value_; ++attempt) {
        got = pread(value_.get(), text, sizeof(text), 0);
        if (got > 0 && (text[0] == '0' || text[0] == '1')) return text[0] - '0';
        if (got < 0 && errno == ENODEV) break;
    }
    if (value_) line_failed("value", got < 0 ? errno : EIO);
    return -1;
}

int kernel_pin::read()
{
    const int level = read_line();
    if (level >= 0) tell_level(level);
    return level;
}

bool kernel_pin::put_value(int level)
{
    if (!value_) return false;
    const ssize_t written = pwrite(value_.get(), level != 0 ? "1" : "0", 1, 0);
    return written == 1 || line_failed("value", written < 0 ? errno : EIO);
}

int kernel_pin::write(int level)
{
    if (!put_value(level)) return -1;
    tell_level(level);
    return 0;
}

bool kernel_pin::edge_pending() const
{
    pollfd seen = {value_.get(), POLLPRI, 0};
    return poll(&seen, 1, 0) == 1 && (seen.revents & POLLPRI) != 0;
}

// The kernel's edges are logical ones, ours are the line's.
bool kernel_pin::put_edge()
{
    static constexpr const char *words[] = {"none", "falling", "rising", "both"};
    static constexpr int turned[] = {edge_none, edge_rising, edge_falling, edge_both};
    return put("edge", words[active_low_ ? turned[edge_] : edge_]);
}

// An output keeps its logical level, an input its line edges and what is pending; nothing is pending that was not before.
int kernel_pin::set_active_low(bool low)
{
    if (!value_) return -1;
    if (low == active_low_) return 0;
    const bool was_pending = !is_output() && edge_pending();
    if (!put("active_low", low ? "1" : "0")) return -1;
    active_low_ = low;
    if (is_output()) return put_value(state.level) ? 0 : -1;
    if (edge_ != edge_none && !put_edge()) return -1;
    return was_pending || read() >= 0 ? 0 : -1;
}

int kernel_pin::set_edge(int edge)
{
    if (!value_) return -1;
    edge_ = edge;
    if (!put_edge()) return -1;
    return read() >= 0 ? 0 : -1;  // setting edges up may itself signal one
}

}  // namespace

std::unique_ptr<zel_sys_gpio> open_kernel_pin(int32_t number, int32_t direction, pin_state &state)
{
    int32_t line = -1;
    if (!find_kernel_line(number, line)) return nullptr;
    auto pin = std::make_unique<kernel_pin>(number, direction, state, line);
    return pin->start() ? std::move(pin) : nullptr;
}

}  // namespace zel
