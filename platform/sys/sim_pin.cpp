#include "sim_pin.h"

#include "exceptional_fd.h"
#include "fd_range.h"
#include "zel_debug.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

namespace zel {
namespace {

// Contacts come from other processes too, for any number they name.
constexpr size_t most_pins = 4096;

class sim_pin : public zel_sys_gpio {
public:
    using zel_sys_gpio::zel_sys_gpio;

    bool start();
    void see_contact(bool pressed);

    int read() override;
    int write(int level) override;
    int set_active_low(bool low) override;
    int set_edge(int edge) override;
    int fd() const override { return is_output() ? -1 : signal_.fd(); }
    int first_level() const override { return is_output() ? 0 : state.contact; }

private:
    void clear_pending();

    exceptional_fd signal_;
    bool pending_ = false;
    bool active_low_ = false;
    int edge_ = edge_none;
};

bool sim_pin::start()
{
    if (is_output()) return true;
    if (!signal_.make()) {
        log_message(0, "%s: Pin %d: no descriptor for its edges: %s\n", __func__, number, std::strerror(errno));
        return false;
    }
    return fits_select(signal_.fd(), ("Pin " + std::to_string(number)).c_str());
}

void sim_pin::see_contact(bool pressed)
{
    const int edge = across_polarity(pressed, active_low_) == 1 ? edge_rising : edge_falling;
    if ((edge_ & edge) == 0 || pending_) return;
    pending_ = signal_.raise();
    if (!pending_) log_message(0, "%s: Pin %d: an edge is lost: %s\n", __func__, number, std::strerror(errno));
}

// Receive, then forget, then read the level: an edge in between is signalled anew.
void sim_pin::clear_pending()
{
    if (!pending_) return;
    if (!signal_.clear()) log_message(0, "%s: Pin %d: its edge stays pending: %s\n", __func__, number, std::strerror(errno));
    pending_ = false;
}

int sim_pin::read()
{
    clear_pending();
    return state.level;
}

int sim_pin::write(int level)
{
    tell_level(level);
    return 0;
}

// A contact reads 1 when it is closed and an output keeps its logical level: nothing changes that anybody could see.
int sim_pin::set_active_low(bool low)
{
    active_low_ = low;
    return 0;
}

int sim_pin::set_edge(int edge)
{
    clear_pending();
    edge_ = edge;
    return 0;
}

}  // namespace

std::unique_ptr<zel_sys_gpio> open_sim_pin(int32_t number, int32_t direction, pin_state &state)
{
    auto pin = std::make_unique<sim_pin>(number, direction, state);
    return pin->start() ? std::move(pin) : nullptr;
}

int move_sim_contact(int32_t number, bool pressed)
{
    auto &states = pin_states();
    if (find_pin_state(number) == nullptr && states.size() >= most_pins) return -1;
    pin_state &state = states[number];
    if (state.contact == pressed) return 0;
    state.contact = pressed;
    if (state.direction == direction_output) return 0;
    if (auto *const pin = dynamic_cast<sim_pin *>(state.open)) pin->see_contact(pressed);
    tell_pin_level(number, state, pressed);
    return 0;
}

}  // namespace zel
