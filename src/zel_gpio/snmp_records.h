// Records exchanged with the SNMP agent, in the unit's native byte order: both ends run on one unit.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zel {

inline constexpr int32_t snmp_slots = 50;
inline constexpr size_t snmp_text_size = 64;

enum snmp_type : uint8_t {
    snmp_link_lost = 0, snmp_link_made = 1,
    snmp_gpi_count = 2, snmp_cough_count = 3, snmp_relay_count = 4, snmp_virtual_count = 5, snmp_button_count = 6,
    snmp_physical_info = 7, snmp_virtual_info = 8, snmp_button_info = 9, snmp_led_info = 10,
    snmp_relay_info = 11, snmp_trigger_info = 12, snmp_handler_info = 13, snmp_vgpo_info = 14,
    snmp_reply = 36,
};

struct [[gnu::packed]] snmp_port_record {
    int32_t index;                       // within its kind
    int32_t type;
    int32_t cough;
    int32_t handler_ids[snmp_slots];     // slots behind the count carry no meaning; -1 for an unbound entry
    int32_t handlers;
    int32_t trigger_ids[snmp_slots];
    int32_t triggers;
    int32_t active_ids[snmp_slots];      // packed from slot 0
    int32_t active;
    char vgpo_source[snmp_text_size];
    int32_t input_mode;
    int32_t state;
};
static_assert(offsetof(snmp_port_record, type) == 4 && offsetof(snmp_port_record, cough) == 8);
static_assert(offsetof(snmp_port_record, handler_ids) == 12 && offsetof(snmp_port_record, handlers) == 212);
static_assert(offsetof(snmp_port_record, trigger_ids) == 216 && offsetof(snmp_port_record, triggers) == 416);
static_assert(offsetof(snmp_port_record, active_ids) == 420 && offsetof(snmp_port_record, active) == 620);
static_assert(offsetof(snmp_port_record, vgpo_source) == 624 && offsetof(snmp_port_record, input_mode) == 688);
static_assert(offsetof(snmp_port_record, state) == 692 && sizeof(snmp_port_record) == 696);

struct [[gnu::packed]] snmp_relay_record {
    int32_t index;
    int32_t trigger_ids[snmp_slots];
    int32_t triggers;
    int32_t active_ids[snmp_slots];
    int32_t active;
    int32_t state;
};
static_assert(offsetof(snmp_relay_record, trigger_ids) == 4 && offsetof(snmp_relay_record, triggers) == 204);
static_assert(offsetof(snmp_relay_record, active_ids) == 208 && offsetof(snmp_relay_record, active) == 408);
static_assert(offsetof(snmp_relay_record, state) == 412 && sizeof(snmp_relay_record) == 416);

struct [[gnu::packed]] snmp_name_record {
    int32_t id;
    char name[snmp_text_size];           // zero-padded; a name that fills it has no terminator
};
static_assert(offsetof(snmp_name_record, name) == 4 && sizeof(snmp_name_record) == 68);

struct [[gnu::packed]] snmp_request_record {
    int32_t index;                       // as the agent numbers it
    int32_t value;
    char text[snmp_text_size];
    int32_t tag;
};
static_assert(offsetof(snmp_request_record, value) == 4 && offsetof(snmp_request_record, text) == 8);
static_assert(offsetof(snmp_request_record, tag) == 72 && sizeof(snmp_request_record) == 76);

struct [[gnu::packed]] snmp_reply_record {
    int32_t type;
    int32_t result;
    int32_t tag;
};
static_assert(offsetof(snmp_reply_record, result) == 4 && offsetof(snmp_reply_record, tag) == 8 && sizeof(snmp_reply_record) == 12);

}  // namespace zel
