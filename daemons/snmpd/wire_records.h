// Messages between the unit and its agent as they lie in memory, in the unit's native byte order: both run on one machine.
// Written from the agent's side, apart from the library's own declarations, so that each checks the other.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zel::snmpd {

inline constexpr size_t wire_slots = 50;      // of a list; a longer list arrives with its first entries and its true count
inline constexpr size_t wire_text_size = 64;

struct [[gnu::packed]] wire_port {
    int32_t index;
    int32_t type;
    int32_t cough;
    int32_t handler_ids[wire_slots];
    int32_t handler_count;
    int32_t trigger_ids[wire_slots];
    int32_t trigger_count;
    int32_t active_ids[wire_slots];           // packed from slot 0
    int32_t active_count;
    char source[wire_text_size];
    int32_t mode;
    int32_t state;
};
static_assert(offsetof(wire_port, index) == 0);
static_assert(offsetof(wire_port, type) == 4);
static_assert(offsetof(wire_port, cough) == 8);
static_assert(offsetof(wire_port, handler_ids) == 12);
static_assert(offsetof(wire_port, handler_count) == 212);
static_assert(offsetof(wire_port, trigger_ids) == 216);
static_assert(offsetof(wire_port, trigger_count) == 416);
static_assert(offsetof(wire_port, active_ids) == 420);
static_assert(offsetof(wire_port, active_count) == 620);
static_assert(offsetof(wire_port, source) == 624);
static_assert(offsetof(wire_port, mode) == 688);
static_assert(offsetof(wire_port, state) == 692);
static_assert(sizeof(wire_port) == 696);

struct [[gnu::packed]] wire_relay {
    int32_t index;
    int32_t trigger_ids[wire_slots];
    int32_t trigger_count;
    int32_t active_ids[wire_slots];
    int32_t active_count;
    int32_t state;
};
static_assert(offsetof(wire_relay, trigger_ids) == 4);
static_assert(offsetof(wire_relay, trigger_count) == 204);
static_assert(offsetof(wire_relay, active_ids) == 208);
static_assert(offsetof(wire_relay, active_count) == 408);
static_assert(offsetof(wire_relay, state) == 412);
static_assert(sizeof(wire_relay) == 416);

struct [[gnu::packed]] wire_name {
    int32_t id;
    char name[wire_text_size];                // no terminator when the name fills it; empty: the id is free now
};
static_assert(offsetof(wire_name, name) == 4 && sizeof(wire_name) == 68);

struct [[gnu::packed]] wire_request {
    int32_t index;
    int32_t value;
    char text[wire_text_size];
    int32_t tag;
};
static_assert(offsetof(wire_request, value) == 4 && offsetof(wire_request, text) == 8);
static_assert(offsetof(wire_request, tag) == 72 && sizeof(wire_request) == 76);

struct [[gnu::packed]] wire_reply {
    int32_t type;
    int32_t result;
    int32_t tag;
};
static_assert(offsetof(wire_reply, result) == 4 && offsetof(wire_reply, tag) == 8 && sizeof(wire_reply) == 12);

// Types of the messages from the unit. What the agent asks for is in tables.cpp, beside the objects.
enum wire_type : uint8_t {
    wire_gpi_count = 2, wire_cough_count = 3, wire_relay_count = 4, wire_virtual_count = 5, wire_button_count = 6,
    wire_physical = 7, wire_virtual = 8, wire_button = 9, wire_led = 10, wire_relay_info = 11,
    wire_trigger = 12, wire_handler = 13, wire_source = 14,
    wire_no_action = 18,                      // a request that does nothing and is answered
    wire_reply_type = 36,
};

}  // namespace zel::snmpd
