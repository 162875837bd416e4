// Names of ports and relays as people write them, and where those ports stand in the library's tables.
#pragma once

#include "settings.h"

#include <optional>
#include <string>
#include <string_view>

namespace zel {

enum class port_kind { physical, cough, network, user_button, user_led, relay };

struct port_ref {
    port_kind kind;
    int32_t number;  // from 1, per kind

    bool operator==(const port_ref &) const = default;
};

enum class port_type { disabled = 0, input = 1, output = 2 };

// "GPI 3", "GPO 3", "Physical Port 3", "COUGH 1", "vGPI 2", "User Button 1", "Relay 4" and the like, in any letter case. The
// number may be too high for this unit.
std::optional<port_ref> parse_port_name(std::string_view name);

// "GPI 3" while it is an input, "GPO 3" while it is an output, "Physical Port 3" while it is disabled.
std::string port_name(port_ref port, port_type type);

// Whether the library gives a name of this form to the trigger of one of its ports, or to the handler of a user LED.
bool is_port_trigger_name(std::string_view name);
bool is_led_handler_name(std::string_view name);

// The layout of the library's port table: physical ports, virtual ports, then pairs of a user button and its LED.
class port_map {
public:
    // Borrows `settings`.
    explicit port_map(const unit_settings &settings) : settings_(&settings) {}

    int32_t port_count() const;
    bool exists(port_ref port) const;
    // Index in the port table, or the relay's index; nothing if the unit has no such port.
    std::optional<int32_t> index_of(port_ref port) const;
    // `index` is below port_count().
    port_ref port_at(int32_t index) const;
    // The class word of the web documents: "physical", "cough", "virtual", "user_button", "user_led", "relay".
    static const char *class_word(port_kind kind);

    // The port that has this pin as its input, as its output, or the relay on it.
    std::optional<port_ref> owner_of_input(int32_t pin) const;
    std::optional<port_ref> owner_of_output(int32_t pin) const;
    // The input pin of a physical or cough port.
    std::optional<int32_t> input_pin(port_ref port) const;
    // "GPI 3" for its input pin, "GPO 3" for its output pin, "Relay 1"; "" for a pin of no port.
    std::string pin_name(int32_t pin, bool output) const;

private:
    int32_t gpi_count() const;
    int32_t physical_count() const { return static_cast<int32_t>(settings_->pins.size()); }
    port_ref physical_at(int32_t index) const;

    const unit_settings *settings_;
};

}  // namespace zel
