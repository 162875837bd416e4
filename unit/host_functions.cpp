#include "host_functions.h"

#include "zel_debug.h"
#include "zel_gpio.h"

#include <exception>

namespace zel {
namespace {

// The library may call a handler from inside its registration, before its id is known.
const handler_t *slot_of(const std::string &name)
{
    for (const handler_t &handler : handler_list) {
        if (handler.name != nullptr && name == handler.name) return &handler;
    }
    return nullptr;
}

}  // namespace

void host_functions::register_all()
{
    for (const handler_settings &handler : settings_.handlers) register_handler(handler);
    for (int number = 1; number <= settings_.user_buttons; ++number) register_led(number);
    for (const std::string &name : settings_.triggers) {
        if (zel_gpio_register_trigger(name.c_str()) < 0) {
            log_message(0, "%s: Trigger '%s' could not be registered\n", __func__, name.c_str());
        }
    }
    feed_.settle();
}

void host_functions::register_handler(const handler_settings &handler)
{
    std::optional<size_t> command;
    if (!handler.command.empty()) command = commands_.add(handler);
    record &own = records_.emplace_back(record{this, handler.name, 0, command});
    own.id = zel_gpio_register_handler(handler.name.c_str(), called, &own);
    if (own.id < 0) log_message(0, "%s: Handler '%s' could not be registered\n", __func__, handler.name.c_str());
}

void host_functions::register_led(int number)
{
    record &own = records_.emplace_back(record{this, port_name({port_kind::user_led, number}, port_type::output), number, {}});
    own.id = zel_gpio_register_user_led_handler(number - 1, called, &own);
    if (own.id < 0) log_message(0, "%s: User LED %d could not be registered\n", __func__, number);
}

int host_functions::called(void *arg, int32_t source, uint8_t state, uintptr_t context) noexcept
{
    record &handler = *static_cast<record *>(arg);
    try {
        handler.owner->take_call(handler, source, state, context);
    } catch (const std::exception &problem) {
        log_message(0, "%s: The call of handler '%s' was lost: %s\n", __func__, handler.name.c_str(), problem.what());
    }
    return 0;
}

// The source alone does not tell a port from the handler's own id; a call for its triggers comes with another count of them.
std::string host_functions::driver_of(record &handler, int32_t source) const
{
    const handler_t *const slot = slot_of(handler.name);
    const int32_t active = slot != nullptr ? slot->active_trigs : handler.active_triggers;
    const bool count_changed = active != handler.active_triggers;
    handler.active_triggers = active;
    if (source < 0) return "host";
    const bool own_id = slot != nullptr && source == slot->id;
    if ((own_id && count_changed) || source >= ports_.port_count()) return "triggers";
    const port_ref port = ports_.port_at(source);
    const port_type type = port.kind == port_kind::user_led ? port_type::output : port_type::input;
    return port_name(port, type);
}

void host_functions::take_call(record &handler, int32_t source, uint8_t state, uintptr_t context)
{
    const bool changed = state != handler.state;
    handler.state = state;
    const std::string by = driver_of(handler, source);
    const handler_t *const slot = slot_of(handler.name);
    const int32_t id = slot != nullptr ? slot->id : handler.id;
    log_message(changed ? 2 : 4, "%s: Handler '%s' is %s (by %s)\n", __func__, handler.name.c_str(), state != 0 ? "on" : "off",
                by.c_str());
    feed_.handler_called({handler.name, id, handler.led_number, source, by, state, context, changed});
    if (changed && handler.command) commands_.run(*handler.command, {id, state, source, context});
}

}  // namespace zel
