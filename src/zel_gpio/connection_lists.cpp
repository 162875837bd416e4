#include "zel_gpio/connection_lists.h"

#include <cstring>

#include "zel_debug.h"
#include "zel_gpio/assertion.h"
#include "zel_gpio/configuration.h"
#include "zel_gpio/list_text.h"
#include "zel_gpio/propagation.h"
#include "zel_gpio/publishing.h"

namespace zel {

namespace {

bool is_empty_list(const char *ids, const char *inverts)
{
    return ids == nullptr || inverts == nullptr || std::strcmp(ids, "null") == 0 || std::strcmp(inverts, "null") == 0;
}

// Walks the pairs of two exchange texts while both yield a piece.
class exchange_pairs {
public:
    exchange_pairs(const char *ids, const char *inverts)
        : ids_(is_empty_list(ids, inverts) ? nullptr : ids), inverts_(inverts) {}

    bool next(long &id, uint8_t &invert)
    {
        std::string_view id_piece, invert_piece;
        if (!ids_.next(id_piece) || !inverts_.next(invert_piece)) return false;
        id = leading_number(id_piece);
        invert = invert_of(invert_piece);
        return true;
    }

private:
    exchange_pieces ids_, inverts_;
};

bool is_full(int32_t count, const char *function)
{
    if (count < list_size) return false;
    log_message(1, "%s: A list holds %d entries at most; the rest is left out\n", function, list_size);
    return true;
}

void empty_list(const trigger_view &list, int32_t handler_id)
{
    for (int32_t k = 0; k < *list.count; ++k) {
        if (handler_id != none && list.allow_inverts != nullptr && list.allow_inverts[k] != 1) {
            (void)check_paired_connection(0, list.ids[k], handler_id, nullptr);
            list.allow_inverts[k] = 1;
        }
        clear_entry(list, k);
    }
    *list.count = 0;
    *list.active = 0;
}

// Fills in the next free entry. False if memory is short.
bool append_trigger(const trigger_view &list, int32_t handler_id, int32_t id, uint8_t invert)
{
    char *const name = strdup(trigger_list[id].name);
    if (name == nullptr) {
        log_message(0, "%s: Failed to allocate memory for trigger name\n", "build_new_trigger_list");
        return false;
    }
    const int32_t k = *list.count;
    release_text(list.names[k]);
    list.names[k] = name;
    if (handler_id != none && list.allow_inverts != nullptr)
        list.allow_inverts[k] = check_paired_connection(1, id, handler_id, &invert);
    list.ids[k] = id;
    list.inverts[k] = invert;
    trigger_list[id].on_grid = 1;
    ++*list.count;
    *list.active += entry_is_active(list, k);
    return true;
}

template <typename owner>
int32_t rebuild_triggers(owner &record, const char *ids, const char *inverts, int32_t handler_id)
{
    const trigger_view list = triggers_of(record);
    const int32_t result = build_new_trigger_list(ids, inverts, list, handler_id);
    for (int32_t k = 0; k < *list.count; ++k) note_listener(record, list.ids[k]);
    return result;
}

bool append_handler(gpio_port_t &port, handler_t &handler, uint8_t invert)
{
    char *const name = strdup(handler.name);
    if (name == nullptr) {
        log_message(0, "%s: Failed to allocate memory for handler name\n", "set_gpio_handler_list");
        return false;
    }
    set_handler_entry(port, port.num_handlers, name, &handler, invert);
    handler.on_grid = 1;
    ++port.num_handlers;
    return true;
}

int32_t build_new_handler_list(gpio_port_t &port, const char *ids, const char *inverts)
{
    for (int32_t k = 0; k < port.num_handlers; ++k) clear_handler_entry(port, k);
    port.num_handlers = 0;
    exchange_pairs pairs(ids, inverts);
    long id;
    for (uint8_t invert; pairs.next(id, invert);) {
        if (id < 0 || id >= handler_count || handler_list[id].name == nullptr) continue;
        if (is_full(port.num_handlers, "set_gpio_handler_list")) break;
        if (!append_handler(port, handler_list[id], invert)) return -1;
    }
    return 0;
}

// The new texts of a list to which one connection was added. An entry that exists keeps its place and takes the invert.
void add_or_update_trigger_entry(exchange_list &text, const trigger_view &list, int32_t trigger_id, uint8_t invert)
{
    bool exists = false;
    for (int32_t k = 0; k < *list.count; ++k) {
        if (list.ids[k] != trigger_id) continue;
        list.inverts[k] = invert != 0;
        exists = true;
        break;
    }
    if (!exists) text.add(trigger_id, invert != 0);
    for (int32_t k = 0; k < *list.count; ++k) {
        if (list.ids[k] != none) text.add(list.ids[k], list.inverts[k]);
    }
}

// The new texts of a list without the trigger. True if it was listed.
bool remove_trig_id_entry(exchange_list &text, const trigger_view &list, int32_t trigger_id)
{
    bool listed = false;
    for (int32_t k = 0; k < *list.count; ++k) {
        listed |= list.ids[k] == trigger_id;
        if (list.ids[k] != trigger_id && list.ids[k] != none) text.add(list.ids[k], list.inverts[k]);
    }
    return listed;
}

bool owner_exists(int32_t owner, int32_t index)
{
    switch (owner) {
        case owner_gpio: return port_exists(index);
        case owner_relay: return relays != nullptr && index >= 0 && index < relay_count;
        case owner_handler: return handler_is_named(index);
        default: return false;
    }
}

trigger_view triggers_of_owner(int32_t owner, int32_t index)
{
    if (owner == owner_gpio) return triggers_of(gpios[index]);
    return owner == owner_relay ? triggers_of(relays[index]) : triggers_of(handler_list[index]);
}

int32_t set_owner_list(int32_t owner, int32_t index, const exchange_list &text)
{
    constexpr int32_t (*setters[])(int32_t, const char *, const char *, uint8_t) = {set_gpio_trigger_list, set_relay_trigger_list,
                                                                                    set_handler_trigger_list};
    return setters[owner](index, text.ids(), text.inverts(), 0);
}

bool lists_handler(const gpio_port_t &port, const handler_t &handler)
{
    for (int32_t k = 0; k < port.num_handlers; ++k) {
        if (port.handlers[k] == &handler) return true;
    }
    return false;
}

// A callback of the handler may have set the port's bit again before the port let go of it; nothing else would ever clear it.
void clear_left_over_bit(const gpio_port_t &port, handler_t &handler)
{
    if ((handler.port_mask & port_bit(port.index)) == 0 || lists_handler(port, handler)) return;
    handler.port_mask &= ~port_bit(port.index);
    handler.state = handler_level(handler);
    call_handler(handler, port.index, port.input_mode);
}

// The handler that mirrors a connection, with the entry of its list; null if there is none.
struct mirror {
    handler_t *handler;
    int32_t entry;
};

mirror find_mirror(int32_t trigger_id, int32_t handler_id)
{
    if (!trigger_is_named(trigger_id) || !handler_is_named(handler_id)) return {nullptr, 0};
    handler_t *const handler = find_handler_by_name(trigger_list[trigger_id].name);
    const int32_t wanted = find_trigger_id_by_name(handler_list[handler_id].name);
    if (handler == nullptr || wanted == none) return {nullptr, 0};
    for (int32_t k = 0; k < handler->num_trigs; ++k) {
        if (handler->trig_ids[k] == wanted) return {handler, k};
    }
    return {nullptr, 0};
}

}  // namespace

uint8_t check_paired_connection(int32_t add, int32_t trigger_id, int32_t handler_id, uint8_t *invert)
{
    const mirror found = find_mirror(trigger_id, handler_id);
    if (found.handler == nullptr) return 1;
    if (add != 1) {
        found.handler->allow_invert[found.entry] = 1;
        return 1;
    }
    if (invert == nullptr) return 1;
    *invert = found.handler->trig_inv[found.entry];
    found.handler->allow_invert[found.entry] = 0;
    return 0;
}

int32_t build_new_trigger_list(const char *ids, const char *inverts, const trigger_view &list, int32_t handler_id)
{
    empty_list(list, handler_id);
    exchange_pairs pairs(ids, inverts);
    long id;
    for (uint8_t invert; pairs.next(id, invert);) {
        if (id < 0 || id >= trigger_count || trigger_list[id].name == nullptr) continue;
        if (is_full(*list.count, __func__)) break;
        if (!append_trigger(list, handler_id, static_cast<int32_t>(id), invert)) return -1;
    }
    return 0;
}

int32_t set_gpio_trigger_list(int32_t index, const char *ids, const char *inverts, uint8_t from_ember)
{
    zel_assert(gpios != NULL);
    zel_assert_port_index(index);
    gpio_port_t &port = gpios[index];
    int32_t result = rebuild_triggers(port, ids, inverts, none);
    if (result == 0) result = update_gpio_json(index);
    if (result != 0) return result;
    drive_output(port);
    return publish_and_send(port, from_ember);
}

int32_t set_relay_trigger_list(int32_t index, const char *ids, const char *inverts, uint8_t from_ember)
{
    zel_assert(relays != NULL);
    zel_assert_as(index >= 0 && index < relay_count, "index < relay_count");
    relay_t &relay = relays[index];
    int32_t result = rebuild_triggers(relay, ids, inverts, none);
    if (result == 0) result = update_relay_json(index);
    if (result != 0) return result;
    if (relay.pin != nullptr) (void)zel_sys_gpio_write(relay.pin, relay.active_trigs != 0);
    return publish_and_send(relay, from_ember);
}

int32_t set_handler_trigger_list(int32_t id, const char *ids, const char *inverts, uint8_t)
{
    if (id < 0 || id >= handler_count) {
        log_message(0, "%s: handler id %d not found\n", __func__, id);
        return -1;
    }
    handler_t &handler = handler_list[id];
    if (rebuild_triggers(handler, ids, inverts, id) != 0) return -1;
    const int32_t result = update_handler_json(id);
    handler.state = handler_level(handler);
    call_handler(handler, handler.id, 0);
    return result;
}

int32_t set_gpio_handler_list(int32_t index, const char *ids, const char *inverts, uint8_t from_ember)
{
    zel_assert(gpios != NULL);
    zel_assert_port_index(index);
    gpio_port_t &port = gpios[index];
    int32_t result = build_new_handler_list(port, ids, inverts);
    if (result == 0) result = update_gpio_json(index);
    if (result != 0) return result;
    set_port_handler_state(index);
    return publish_and_send(port, from_ember);
}

int32_t set_trigger_connection(int32_t owner, int32_t add, int32_t index, int32_t trigger_id, uint8_t invert)
{
    if (trigger_id == none || !owner_exists(owner, index)) return -1;
    exchange_list text;
    const trigger_view list = triggers_of_owner(owner, index);
    if (add == 1) {
        add_or_update_trigger_entry(text, list, trigger_id, invert);
    } else if (!remove_trig_id_entry(text, list, trigger_id)) {
        return -1;
    }
    return set_owner_list(owner, index, text);
}

int32_t set_gpio_handler_connection(int32_t index, int32_t handler_id, uint8_t invert)
{
    if (!port_exists(index) || handler_id == none) return -1;
    gpio_port_t &port = gpios[index];
    bool exists = false;
    for (int32_t k = 0; k < port.num_handlers; ++k) {
        if (port.handlers[k] == nullptr || port.handlers[k]->id != handler_id) continue;
        port.handler_inv[k] = invert;
        exists = true;
    }
    exchange_list text;
    if (!exists) text.add(handler_id, invert);
    for (int32_t k = 0; k < port.num_handlers; ++k) {
        if (port.handlers[k] != nullptr) text.add(port.handlers[k]->id, port.handler_inv[k]);
    }
    return set_gpio_handler_list(index, text.ids(), text.inverts(), 0);
}

int32_t remove_gpio_handler_connection(int32_t index, int32_t handler_id)
{
    if (!port_exists(index)) return -1;
    gpio_port_t &port = gpios[index];
    exchange_list text;
    bool found = false;
    for (int32_t k = 0; k < port.num_handlers; ++k) {
        handler_t *const handler = port.handlers[k];
        if (handler == nullptr) continue;
        if (handler->id != handler_id) {
            text.add(handler->id, port.handler_inv[k]);
            continue;
        }
        found = true;
        handler->port_mask &= ~port_bit(index);
        handler->state = handler_level(*handler);
        call_handler(*handler, index, port.input_mode);
    }
    if (!found) return -1;
    const int32_t result = set_gpio_handler_list(index, text.ids(), text.inverts(), 0);
    clear_left_over_bit(port, handler_list[handler_id]);
    return result;
}

}  // namespace zel
