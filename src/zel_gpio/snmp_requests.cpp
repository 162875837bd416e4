#include "zel_gpio/snmp_requests.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "zel_debug.h"
#include "zel_gpio/port_settings.h"
#include "zel_gpio/port_type.h"
#include "zel_gpio/propagation.h"
#include "zel_gpio/snmp_info.h"
#include "zel_gpio/snmp_records.h"

using namespace zel;

namespace {

constexpr const char *function = "snmp_ipc_cb";

struct request {
    int32_t index;  // of the port after mapping, or of the relay
    int32_t value;
    char text[snmp_text_size + 1];
};

int32_t set_type(const request &r)
{
    log_message(2, "%s: Setting phys_type for gpio index %d to %d\n", function, r.index, r.value);
    return set_gpio_type(&gpios[r.index], static_cast<uint32_t>(r.value), 0);
}

int32_t set_handlers(const request &r)
{
    log_message(2, "%s: Setting input function for gpio index %d to '%s'\n", function, r.index, r.text);
    return check_and_set_new_gpio_handler_list(&gpios[r.index], r.text, 0);
}

int32_t set_triggers(const request &r)
{
    log_message(2, "%s: Setting trigger for gpio index %d to '%s'\n", function, r.index, r.text);
    return check_and_set_new_gpio_trig_list(&gpios[r.index], r.text, 0);
}

int32_t set_mode(const request &r)
{
    log_message(2, "%s: Setting input mode for gpio index %d to %d\n", function, r.index, r.value);
    return set_gpio_in_mode(&gpios[r.index], static_cast<uint32_t>(r.value), 0);
}

int32_t set_status(const request &r)
{
    log_message(2, "%s: Setting status for gpio index %d to %d\n", function, r.index, r.value);
    return set_gpio_status(&gpios[r.index], r.value != 0, 0);
}

int32_t set_source(const request &r)
{
    log_message(2, "%s: Setting source for vGPO index %d to '%s'\n", function, r.index, r.text);
    return set_gpio_vgpo_src(&gpios[r.index], r.text, 0);
}

// The LED always shows its handler, so a write makes the library evaluate and publish it again, no more.
int32_t refresh_led(const request &r)
{
    log_message(2, "%s: Setting status for user led index %d to %d\n", function, r.index, r.value);
    const handler_t *const handler = gpios[r.index].handlers[0];
    if (handler != nullptr && r.value != handler->state) set_port_handler_state(r.index);
    return 0;
}

int32_t set_relay_triggers(const request &r)
{
    log_message(2, "%s: Setting triggers for relay index %d to '%s'\n", function, r.index, r.text);
    return check_and_set_new_relay_trig_list(&relays[r.index], r.text, 0);
}

struct request_row {
    uint8_t type;
    int32_t (*run)(const request &);
};

constexpr uint8_t relay_request = 35;

constexpr request_row rows[] = {
    {15, set_type}, {16, set_handlers}, {17, set_triggers}, {19, set_mode},                       // GPI ports
    {20, set_status},
    {21, set_type}, {22, set_handlers},                                                           // cough ports
    {23, set_type}, {24, set_handlers}, {25, set_triggers}, {27, set_source}, {28, set_status},   // virtual ports
    {29, set_type}, {30, set_handlers}, {31, set_type}, {32, set_triggers}, {34, refresh_led},    // user buttons and LEDs
    {relay_request, set_relay_triggers},
};
static_assert(std::ranges::is_sorted(rows, {}, &request_row::type));

// The class of ports that requests of this type are for.
uint32_t class_asked_for(uint8_t type)
{
    if (type >= 29) return class_user_led;
    return type >= 23 ? class_virtual : class_physical;
}

bool index_exists(uint8_t type, int64_t index)
{
    if (type == relay_request) return relays != nullptr && index >= 0 && index < relay_count;
    return index >= 0 && index < port_end && port_exists(static_cast<int32_t>(index)) &&
           gpios[index].gpio_class == class_asked_for(type);
}

// The port that a request means: the agent counts within the kind of object that the request is for.
int64_t mapped_index(uint8_t type, int64_t index)
{
    if (type >= 21 && type <= 22) return index + gpi_count;
    if (type >= 23 && type <= 28) return index + phys_gpio_count;
    // Buttons count from 1 here, and the LED of the pair is meant.
    if (type >= 29 && type <= 34) return (index - 1) * 2 + first_user_button + 1;
    return index;
}

int32_t carry_out(uint8_t type, const snmp_request_record &record)
{
    const auto row = std::ranges::find(rows, type, &request_row::type);
    const int64_t index = type == relay_request ? record.index : mapped_index(type, record.index);
    if (row == std::end(rows)) return -1;
    if (record.index < 0 || !index_exists(type, index)) {
        log_message(1, "%s: Refusing a request of type %u for index %d, which does not exist\n", function, type, record.index);
        return -1;
    }
    request r{static_cast<int32_t>(index), record.value, {}};
    std::memcpy(r.text, record.text, sizeof record.text);
    return row->run(r);
}

void reply(uint8_t type, int32_t result, int32_t tag)
{
    snmp_reply_record record{};
    record.type = type;
    record.result = result;
    record.tag = tag;
    if (snmp_client != nullptr) (void)zel_ipc_client_send(snmp_client, snmp_reply, &record, sizeof record);
}

}  // namespace

namespace zel {

int32_t snmp_init()
{
    snmp_client = zel_ipc_client_init("snmp_gpio", "zel_gpio", snmp_ipc_cb, nullptr);
    if (snmp_client == nullptr) {
        log_message(0, "%s: Failed to setup snmp ipc client for zel_gpio\n", __func__);
        return -1;
    }
    snmp_send_all_info();
    return 0;
}

}  // namespace zel

void snmp_ipc_cb(zel_ipc_client_t *, uint8_t type, const void *payload, uint32_t length)
{
    if (payload == nullptr || length == 0) return;
    if (type == snmp_link_lost) {
        log_message(2, "%s: IPC DISCONNECTED\n", __func__);
        return;
    }
    if (type == snmp_link_made) {
        log_message(2, "%s: IPC CONNECTED\n", __func__);
        snmp_send_all_info();
        return;
    }
    snmp_request_record record;
    if (length != sizeof record) {
        log_message(1, "%s: Ignoring a message of type %u with %u bytes instead of %zu\n", __func__, type, length, sizeof record);
        return;
    }
    std::memcpy(&record, payload, sizeof record);
    reply(type, carry_out(type, record), record.tag);
}
