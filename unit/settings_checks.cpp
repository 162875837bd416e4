#include "settings_checks.h"

#include "common/whole_number.h"
#include "json_lines.h"
#include "port_names.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>

namespace zel {
namespace {

constexpr size_t handler_slots = 200, trigger_slots = 200;
constexpr std::array<std::string_view, 5> built_in_triggers{"Eth Link Down", "AoIP Link Down", "AC Power Off", "DC Power Off",
                                                            "PTP Sync Lost"};

class checker {
public:
    checker(const unit_settings &settings, std::vector<mistake> &mistakes) : settings_(settings), mistakes_(mistakes) {}

    void run()
    {
        pin_order();
        pin_numbers();
        kernel_lines();
        handlers();
        triggers();
        table_sizes();
        servers();
    }

private:
    void wrong(std::string place, std::string text) { mistakes_.push_back({std::move(place), std::move(text), 0}); }

    // Several of the library's rules tell the two kinds apart by the index alone.
    void pin_order()
    {
        bool cough_seen = false;
        for (size_t i = 0; i < settings_.pins.size(); ++i) {
            const pin_settings &pin = settings_.pins[i];
            if (cough_seen && !pin.cough) wrong(entry_place("pins", i), "a GPI port must stand before all cough ports");
            if (!pin.cough && pin.out_pin < 0) {
                wrong(entry_place("pins", i), "\"out_pin\" is missing (only a cough port needs none)");
            }
            cough_seen |= pin.cough;
        }
    }

    void claim_pin(int32_t pin, const std::string &place)
    {
        if (pin < 0) return;
        const auto [owner, free] = pin_owners_.emplace(pin, place);
        if (!free) wrong(place, "pin " + std::to_string(pin) + " is taken by " + owner->second);
    }

    // One line may serve a port both ways: only one of its two pins is open at a time.
    void pin_numbers()
    {
        for (size_t i = 0; i < settings_.pins.size(); ++i) {
            const pin_settings &pin = settings_.pins[i];
            const std::string place = entry_place("pins", i);
            claim_pin(pin.in_pin, member_place(place, "in_pin"));
            if (pin.out_pin != pin.in_pin && !pin.cough) claim_pin(pin.out_pin, member_place(place, "out_pin"));
        }
        if (settings_.relay_base_pin < 0) return;
        for (int32_t relay = 0; relay < settings_.relay_count; ++relay) relay_pin(settings_.relay_base_pin + relay, relay);
    }

    void relay_pin(int32_t pin, int32_t relay)
    {
        constexpr int32_t highest_pin = 65535;
        const std::string name = "relay " + std::to_string(relay + 1);
        if (pin > highest_pin) {
            if (pin == highest_pin + 1) wrong("relays", "the pin of " + name + " would be above " + std::to_string(highest_pin));
            return;
        }
        const auto [owner, free] = pin_owners_.emplace(pin, name);
        if (!free) wrong("relays", "pin " + std::to_string(pin) + " of " + name + " is taken by " + owner->second);
    }

    void kernel_lines()
    {
        std::map<std::pair<std::string, int32_t>, std::string> owners;
        for (const kernel_line_settings &line : settings_.kernel_lines) {
            const std::string place = member_place("kernel_lines", line.pin);
            const int64_t number = whole_number(line.pin).value_or(-1);
            const bool plain = std::to_string(number) == line.pin;  // no leading zeros: one pin, one name
            if (!plain || number < 0 || number > 65535) wrong(place, "the name must be a pin's number from 0 to 65535");
            if (line.chip.empty()) continue;
            const auto [owner, free] = owners.emplace(std::pair{line.chip, line.offset}, place);
            if (!free) wrong(place, "is the same line as " + owner->second);
        }
    }

    // Lists of names are joined by commas, and '!' in front of a name means "inverted".
    void name_itself(const std::string &place, std::string_view name)
    {
        const bool unprintable = std::ranges::any_of(name, [](unsigned char c) { return c < 0x20 || c == 0x7f; });
        if (name.find(',') != std::string_view::npos) wrong(place, "must hold no comma");
        if (name.starts_with('!')) wrong(place, "must not begin with '!'");
        if (name.starts_with(' ') || name.ends_with(' ')) wrong(place, "must not begin or end with a blank");
        if (unprintable) wrong(place, "must hold no control characters");
    }

    void handlers()
    {
        std::map<std::string, std::string> owners;
        for (size_t i = 0; i < settings_.handlers.size(); ++i) {
            const handler_settings &handler = settings_.handlers[i];
            const std::string place = member_place(entry_place("handlers", i), "name");
            if (!handler.command.empty() && !handler.command[0].starts_with('/')) {
                wrong(member_place(entry_place("handlers", i), "command[0]"), "must be a program's absolute path");
            }
            if (handler.name.empty()) continue;
            name_itself(place, handler.name);
            if (is_led_handler_name(handler.name)) wrong(place, "is the name of a user LED's own handler");
            const auto [owner, free] = owners.emplace(handler.name, place);
            if (!free) wrong(place, "\"" + handler.name + "\" is the name of " + owner->second + " already");
        }
    }

    void triggers()
    {
        std::map<std::string, std::string> owners;
        for (size_t i = 0; i < settings_.triggers.size(); ++i) {
            const std::string &name = settings_.triggers[i];
            const std::string place = entry_place("triggers", i);
            if (name.empty()) continue;
            name_itself(place, name);
            if (std::ranges::count(built_in_triggers, name) != 0) wrong(place, "\"" + name + "\" is a built-in trigger");
            if (is_port_trigger_name(name)) wrong(place, "\"" + name + "\" is the name of a port's own trigger");
            const auto [owner, free] = owners.emplace(name, place);
            if (!free) wrong(place, "\"" + name + "\" is " + owner->second + " already");
        }
    }

    void table_sizes()
    {
        const size_t leds = static_cast<size_t>(settings_.user_buttons);
        if (settings_.handlers.size() + leds > handler_slots) {
            wrong("handlers", "with " + std::to_string(leds) + " user LEDs there is room for " +
                                  std::to_string(handler_slots - leds) + " handlers, not " +
                                  std::to_string(settings_.handlers.size()));
        }
        const size_t ports = settings_.pins.size() + static_cast<size_t>(settings_.virtual_count) + leds;
        const size_t taken = built_in_triggers.size() + ports;
        const size_t room = taken < trigger_slots ? trigger_slots - taken : 0;
        if (settings_.triggers.size() > room) {
            wrong("triggers", "beside the ports' own triggers there is room for " + std::to_string(room) + ", not " +
                                  std::to_string(settings_.triggers.size()));
        }
    }

    void servers()
    {
        const endpoint_settings &ember = settings_.ember, &web = settings_.web;
        const bool same = ember.port == web.port && ember.address == web.address;
        if (same) wrong("servers.web", "has the address and port of servers.ember");
    }

    const unit_settings &settings_;
    std::vector<mistake> &mistakes_;
    std::map<int32_t, std::string> pin_owners_;
};

}  // namespace

void check_settings(const unit_settings &settings, std::vector<mistake> &mistakes)
{
    checker(settings, mistakes).run();
}

}  // namespace zel
