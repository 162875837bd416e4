// The unit's pins, system information and network configuration.
#include <sys/eventfd.h>
#include <unistd.h>

#include "fake_state.h"

namespace fake {

namespace {

zel_sys_gpio *open_pin(const state &s, int32_t number)
{
    for (zel_sys_gpio *pin : s.pins)
        if (pin->number == number)
            return pin;
    return nullptr;
}

/// False for a null handle, which the platform refuses; a handle that was closed stops the process.
bool usable(zel_sys_gpio *pin, const char *call)
{
    if (pin == nullptr) {
        write_line(format("pin null %s", call));
        return false;
    }
    if (now().pins.count(pin) == 0)
        misuse("pin %s on a handle that is not open", call);
    return true;
}

}  // namespace

void unit::set_level(int32_t pin, int level) { my->levels[pin] = level; }

int unit::level(int32_t pin) const
{
    const auto found = my->levels.find(pin);
    return found == my->levels.end() ? 0 : found->second;
}

bool unit::is_open(int32_t pin) const { return open_pin(*my, pin) != nullptr; }
int unit::open_pins() const { return static_cast<int>(my->pins.size()); }

int unit::pin_fd(int32_t pin) const
{
    const zel_sys_gpio *open = open_pin(*my, pin);
    return open == nullptr ? -1 : open->fd;
}

void unit::edge(int32_t pin, int level)
{
    set_level(pin, level);
    loop({pin});
}

void unit::loop(std::initializer_list<int32_t> exceptional_pins)
{
    fd_set readfds, exceptfds;
    FD_ZERO(&readfds);
    FD_ZERO(&exceptfds);
    for (const int32_t pin : exceptional_pins) {
        if (!is_open(pin))
            misuse("pin %d is not open and can have no edge", pin);
        FD_SET(pin_fd(pin), &exceptfds);
    }
    zel_gpio_process_fds(&readfds, &exceptfds);
}

}  // namespace fake

using namespace fake;

extern "C" {

zel_sys_gpio_t *zel_sys_gpio_open(int32_t pin, int32_t direction)
{
    if (must_fail(format("pin %d open %d", pin, direction)))
        return nullptr;
    auto *opened = new zel_sys_gpio{pin, direction, eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
    now().pins.insert(opened);
    return opened;
}

void zel_sys_gpio_close(zel_sys_gpio_t *pin)
{
    if (!usable(pin, "close"))
        return;
    write_line(format("pin %d close", pin->number));
    now().pins.erase(pin);
    close(pin->fd);
    delete pin;
}

int zel_sys_gpio_read(zel_sys_gpio_t *pin)
{
    if (!usable(pin, "read"))
        return -1;
    const auto found = now().levels.find(pin->number);
    const int level = found == now().levels.end() ? 0 : found->second;
    return must_fail(format("pin %d read %d", pin->number, level)) ? -1 : level;
}

int zel_sys_gpio_write(zel_sys_gpio_t *pin, int value)
{
    if (!usable(pin, format("write %d", value).c_str()))
        return -1;
    if (must_fail(format("pin %d write %d", pin->number, value)))
        return -1;
    if (pin->direction != 2)
        return -1;
    now().levels[pin->number] = value != 0;
    return 0;
}

int zel_sys_gpio_set_active_low(zel_sys_gpio_t *pin, uint32_t active_low)
{
    if (!usable(pin, "active_low"))
        return -1;
    return must_fail(format("pin %d active_low %u", pin->number, active_low)) ? -1 : 0;
}

int zel_sys_gpio_set_edge(zel_sys_gpio_t *pin, int edge)
{
    if (!usable(pin, "edge"))
        return -1;
    return must_fail(format("pin %d edge %d", pin->number, edge)) ? -1 : 0;
}

int zel_sys_gpio_fd(zel_sys_gpio_t *pin)
{
    if (!usable(pin, "fd"))
        return -1;
    return must_fail(format("pin %d fd", pin->number)) ? -1 : pin->fd;
}

const char *zel_sys_get_prodid(void) { return now().product.c_str(); }

void zel_sys_strpercentenc(const char *text, char *out)
{
    constexpr char digits[] = "0123456789ABCDEF";
    for (; *text != 0; ++text) {
        const auto byte = static_cast<unsigned char>(*text);
        if (byte >= 0x20 && byte != 0x7F) {
            *out++ = *text;
            continue;
        }
        *out++ = '%';
        *out++ = digits[byte >> 4];
        *out++ = digits[byte & 15];
    }
    *out = 0;
}

int zel_net_config_get_udp_commands_enabled(const zel_net_config_t *config)
{
    ++now().udp_queries;
    return config != nullptr && config->udp_enabled;
}

const char *zel_net_config_get_fname(const zel_net_config_t *config)
{
    return config == nullptr ? "" : config->friendly_name.c_str();
}
int zel_net_config_ifindex(const zel_net_config_t *config) { return config == nullptr ? 0 : config->interface_index; }

}  // extern "C"
