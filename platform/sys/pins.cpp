// The C interface of pins: arguments are checked and exceptions end here, the rest is the back end's.
#include "border.h"
#include "kernel_pin.h"
#include "pin.h"
#include "sim_pin.h"
#include "sys_config.h"
#include "zel_debug.h"

#include <memory>

namespace zel {
namespace {

using pin_opener = std::unique_ptr<zel_sys_gpio> (*)(int32_t number, int32_t direction, pin_state &state);

std::unique_ptr<zel_sys_gpio> refuse_to_open(int32_t number, int32_t, pin_state &)
{
    log_message(0, "%s: Pin %d: the configuration names no pin back end that there is\n", __func__, number);
    return nullptr;
}

pin_opener opener_of(pin_backend backend)
{
    constexpr pin_opener openers[] = {open_sim_pin, open_kernel_pin, refuse_to_open};
    return openers[static_cast<size_t>(backend)];
}

bool may_open(int32_t number, int32_t direction)
{
    if (number < 0 || (direction != direction_input && direction != direction_output)) {
        log_message(0, "%s: Pin %d with direction %d: no such pin or direction\n", __func__, number, direction);
        return false;
    }
    const pin_state *const state = find_pin_state(number);
    if (state == nullptr || state->open == nullptr) return true;
    log_message(0, "%s: Pin %d: busy, this process has it open already\n", __func__, number);
    return false;
}

zel_sys_gpio *open_pin(int32_t number, int32_t direction)
{
    if (!may_open(number, direction)) return nullptr;
    pin_state &state = pin_states()[number];
    std::unique_ptr<zel_sys_gpio> pin = opener_of(config_of_unit().backend)(number, direction, state);
    if (pin == nullptr) return nullptr;
    state.open = pin.get();
    state.direction = direction;
    tell_pin_level(number, state, pin->first_level());
    return pin.release();
}

int set_pin_edge(zel_sys_gpio &pin, int edge)
{
    if (!pin.is_output() && edge >= edge_none && edge <= edge_both) return pin.set_edge(edge);
    log_message(0, "%s: Pin %d: edge %d: %s\n", __func__, pin.number, edge,
                pin.is_output() ? "an output has no edges" : "no such edge");
    return -1;
}

int write_pin(zel_sys_gpio &pin, int level)
{
    if (pin.is_output()) return pin.write(level);
    log_message(0, "%s: Pin %d: an input cannot be written\n", __func__, pin.number);
    return -1;
}

bool simulated()
{
    return config_of_unit().backend == pin_backend::sim;
}

}  // namespace
}  // namespace zel

using namespace zel;

zel_sys_gpio_t *zel_sys_gpio_open(int32_t pin, int32_t direction)
{
    return guarded(__func__, static_cast<zel_sys_gpio *>(nullptr), [&] { return open_pin(pin, direction); });
}

void zel_sys_gpio_close(zel_sys_gpio_t *pin)
{
    if (pin == nullptr) return;
    find_pin_state(pin->number)->open = nullptr;
    delete pin;
}

int zel_sys_gpio_read(zel_sys_gpio_t *pin)
{
    return pin != nullptr ? guarded(__func__, -1, [&] { return pin->read(); }) : -1;
}

int zel_sys_gpio_write(zel_sys_gpio_t *pin, int value)
{
    return pin != nullptr ? guarded(__func__, -1, [&] { return write_pin(*pin, value != 0); }) : -1;
}

int zel_sys_gpio_set_active_low(zel_sys_gpio_t *pin, uint32_t active_low)
{
    return pin != nullptr ? guarded(__func__, -1, [&] { return pin->set_active_low(active_low != 0); }) : -1;
}

int zel_sys_gpio_set_edge(zel_sys_gpio_t *pin, int edge)
{
    return pin != nullptr ? guarded(__func__, -1, [&] { return set_pin_edge(*pin, edge); }) : -1;
}

int zel_sys_gpio_fd(zel_sys_gpio_t *pin)
{
    return pin != nullptr ? pin->fd() : -1;
}

void zel_sys_gpio_discard_edge(int32_t pin, const fd_set *exceptfds)
{
    const pin_state *const state = find_pin_state(pin);
    zel_sys_gpio *const open = state != nullptr ? state->open : nullptr;
    const int fd = zel_sys_gpio_fd(open);
    if (fd >= 0 && exceptfds != nullptr && FD_ISSET(fd, exceptfds)) (void)zel_sys_gpio_read(open);
}

void zel_sys_set_pin_observer(zel_sys_pin_observer_t observer, void *user_data)
{
    set_pin_listener(pin_listener::host, observer, user_data);
}

int zel_sys_sim_press(int32_t pin, int pressed)
{
    return guarded(__func__, -1, [&] { return pin >= 0 && simulated() ? move_sim_contact(pin, pressed != 0) : -1; });
}

int zel_sys_sim_level(int32_t pin)
{
    return guarded(__func__, -1, [&] {
        if (pin < 0 || !simulated()) return -1;
        const pin_state *const state = find_pin_state(pin);
        return state != nullptr ? state->level : 0;
    });
}
