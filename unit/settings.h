// The unit's settings as /etc/zel/unit.json gives them, and the table that says what may stand there.
//
// One row per value: reading, range checks, defaults and the printed list of settings all come from the table.
#pragma once

#include <jansson.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zel {

struct pin_settings {
    int32_t in_pin = -1;  // -1: not given
    bool in_active_low = false;
    int32_t out_pin = -1;
    bool out_active_low = false;
    bool cough = false;
};

struct handler_settings {
    std::string name;
    std::vector<std::string> command;  // program and arguments; empty: none
};

struct endpoint_settings {
    std::string address;
    int32_t port = 0;
};

struct snmp_agent_settings {
    endpoint_settings listen;
    std::string agentx;                         // socket of the machine's snmpd; empty: an agent by itself
    std::vector<endpoint_settings> trap_sinks;
};

struct web_settings : endpoint_settings {
    std::string pages;                 // "": those that come with the program
    std::vector<std::string> names;
};

struct kernel_line_settings {
    std::string pin;  // as written: the pin's platform number
    std::string chip;
    int32_t offset = 0;
};

struct unit_settings {
    std::string product_id, friendly_name, interface, log_level, pin_backend;
    std::vector<kernel_line_settings> kernel_lines;
    std::vector<pin_settings> pins;
    int32_t relay_base_pin = -1, relay_count = 0;
    int32_t virtual_count = 0, user_buttons = 0;
    bool udp_enabled = false;
    endpoint_settings udp;
    std::vector<handler_settings> handlers;
    std::vector<std::string> triggers;
    endpoint_settings ember;
    web_settings web;
    std::string discovery, snmp;
    snmp_agent_settings snmp_agent;
};

enum class setting_kind { object, map, array, text, choice, address, number, boolean };

// Where a row stands is its pattern: members joined by '.', "[]" for the entries of an array, "*" for the members of a map.
struct setting {
    std::string_view pattern;
    setting_kind kind;
    int64_t min, max;            // a number's range; a text's bytes; the entries of an array
    std::string_view choices;    // of a choice: words joined by '|'
    std::string_view fallback;   // the default as JSON text; empty: none
    bool required;               // must stand in its object
    void (*store)(unit_settings &settings, const json_t *value);        // null: nothing to keep
    void (*enter)(unit_settings &settings, std::string_view name);      // a new entry of an array or map; null: none
    std::string_view meaning;
};

std::span<const setting> settings_table();

// The row of a pattern, or null.
const setting *find_setting(std::string_view pattern);

// Rows that stand directly in the object of that pattern ("" is the root).
std::vector<const setting *> members_of(std::string_view pattern);

// What a row accepts, as the end of a sentence: "a whole number from 0 to 65535".
std::string accepted_values(const setting &row);

// The table in Markdown, as the manual shows it.
std::string settings_as_markdown();

}  // namespace zel
