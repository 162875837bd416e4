#include "port_names.h"

#include <algorithm>
#include <charconv>

#include <strings.h>

namespace zel {
namespace {

struct prefix_row {
    std::string_view prefix;
    port_kind kind;
};
constexpr prefix_row prefixes[] = {
    {"GPI", port_kind::physical},   {"GPO", port_kind::physical},         {"GPIO", port_kind::physical},
    {"Physical Port", port_kind::physical},
    {"COUGH", port_kind::cough},    {"Cough Port", port_kind::cough},
    {"vGPI", port_kind::network},   {"vGPO", port_kind::network},         {"vGPIO", port_kind::network},
    {"Virtual Port", port_kind::network},
    {"User Button", port_kind::user_button},                              {"Button", port_kind::user_button},
    {"User LED", port_kind::user_led},                                    {"LED", port_kind::user_led},
    {"Relay", port_kind::relay},
};

// By kind: the name while disabled, input, output; then the class word.
struct kind_row {
    const char *disabled, *input, *output, *class_word;
};
constexpr kind_row kinds[] = {
    {"Physical Port", "GPI", "GPO", "physical"},
    {"Cough Port", "COUGH", "COUGH", "cough"},
    {"Virtual Port", "vGPI", "vGPO", "virtual"},
    {"User Button", "User Button", "User Button", "user_button"},
    {"User LED", "User LED", "User LED", "user_led"},
    {"Relay", "Relay", "Relay", "relay"},
};
static_assert(std::size(kinds) == static_cast<size_t>(port_kind::relay) + 1);

const kind_row &row_of(port_kind kind)
{
    return kinds[static_cast<size_t>(kind)];
}

bool same_word(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

bool is_numbered(std::string_view name, std::string_view prefix)
{
    if (!name.starts_with(prefix) || name.size() < prefix.size() + 2 || name[prefix.size()] != ' ') return false;
    return std::ranges::all_of(name.substr(prefix.size() + 1), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

std::optional<port_ref> parse_port_name(std::string_view name)
{
    const size_t digits = name.find_last_not_of("0123456789") + 1;
    int32_t number = 0;
    const auto [stop, error] = std::from_chars(name.data() + digits, name.data() + name.size(), number);
    if (error != std::errc{} || number < 1) return std::nullopt;
    std::string_view prefix = name.substr(0, digits);
    while (prefix.ends_with(' ')) prefix.remove_suffix(1);
    for (const prefix_row &row : prefixes) {
        if (same_word(prefix, row.prefix)) return port_ref{row.kind, number};
    }
    return std::nullopt;
}

std::string port_name(port_ref port, port_type type)
{
    const kind_row &row = row_of(port.kind);
    const char *const words[] = {row.disabled, row.input, row.output};
    return std::string(words[static_cast<size_t>(type)]) + " " + std::to_string(port.number);
}

bool is_port_trigger_name(std::string_view name)
{
    constexpr std::string_view own[] = {"GPI", "COUGH", "vGPI", "User Button"};
    return std::ranges::any_of(own, [name](std::string_view prefix) { return is_numbered(name, prefix); });
}

bool is_led_handler_name(std::string_view name)
{
    return is_numbered(name, "User LED");
}

int32_t port_map::gpi_count() const
{
    return static_cast<int32_t>(std::ranges::count(settings_->pins, false, &pin_settings::cough));
}

int32_t port_map::port_count() const
{
    return physical_count() + settings_->virtual_count + 2 * settings_->user_buttons;
}

bool port_map::exists(port_ref port) const
{
    return index_of(port).has_value();
}

std::optional<int32_t> port_map::index_of(port_ref port) const
{
    const int32_t first_button = physical_count() + settings_->virtual_count;
    const struct { int32_t count, first, step; } where[] = {
        {gpi_count(), 0, 1},
        {physical_count() - gpi_count(), gpi_count(), 1},
        {settings_->virtual_count, physical_count(), 1},
        {settings_->user_buttons, first_button, 2},
        {settings_->user_buttons, first_button + 1, 2},
        {settings_->relay_count, 0, 1},
    };
    const auto &row = where[static_cast<size_t>(port.kind)];
    if (port.number < 1 || port.number > row.count) return std::nullopt;
    return row.first + (port.number - 1) * row.step;
}

port_ref port_map::physical_at(int32_t index) const
{
    const int32_t gpis = gpi_count();
    return index < gpis ? port_ref{port_kind::physical, index + 1} : port_ref{port_kind::cough, index - gpis + 1};
}

port_ref port_map::port_at(int32_t index) const
{
    if (index < physical_count()) return physical_at(index);
    index -= physical_count();
    if (index < settings_->virtual_count) return {port_kind::network, index + 1};
    index -= settings_->virtual_count;
    return {index % 2 == 0 ? port_kind::user_button : port_kind::user_led, index / 2 + 1};
}

const char *port_map::class_word(port_kind kind)
{
    return row_of(kind).class_word;
}

std::optional<port_ref> port_map::owner_of_input(int32_t pin) const
{
    const auto found = std::ranges::find(settings_->pins, pin, &pin_settings::in_pin);
    if (found == settings_->pins.end()) return std::nullopt;
    return physical_at(static_cast<int32_t>(found - settings_->pins.begin()));
}

std::optional<port_ref> port_map::owner_of_output(int32_t pin) const
{
    const int32_t relay = pin - settings_->relay_base_pin;
    if (relay >= 0 && relay < settings_->relay_count) return port_ref{port_kind::relay, relay + 1};
    for (size_t i = 0; i < settings_->pins.size(); ++i) {
        const pin_settings &port = settings_->pins[i];
        if (port.out_pin == pin && !port.cough) return physical_at(static_cast<int32_t>(i));
    }
    return std::nullopt;
}

std::optional<int32_t> port_map::input_pin(port_ref port) const
{
    const auto index = index_of(port);
    const bool has_pin = port.kind == port_kind::physical || port.kind == port_kind::cough;
    if (!has_pin || !index) return std::nullopt;
    return settings_->pins[static_cast<size_t>(*index)].in_pin;
}

std::string port_map::pin_name(int32_t pin, bool output) const
{
    const auto port = output ? owner_of_output(pin) : owner_of_input(pin);
    return port ? port_name(*port, output ? port_type::output : port_type::input) : "";
}

}  // namespace zel
