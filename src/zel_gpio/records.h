// The tables that everything works on: ports, relays, handlers and triggers, their counts, and the lookups and views on them.
#pragma once

#include <cstdint>

#include "zel_gpio.h"
#include "zel_gpio/index_sets.h"
#include "zel_sys.h"

namespace zel {

inline constexpr int32_t list_size = ZEL_GPIO_LIST_SIZE;
inline constexpr int32_t handler_count = ZEL_GPIO_HANDLER_COUNT;
inline constexpr int32_t trigger_count = ZEL_GPIO_TRIGGER_COUNT;
inline constexpr int32_t max_physical = 20;
inline constexpr int32_t built_in_triggers = 5;
inline constexpr int32_t none = -1;  // no trigger, no handler

enum port_class : uint32_t { class_physical, class_virtual, class_user_button, class_user_led };
enum port_type : uint32_t { type_disabled, type_input, type_output };
enum input_mode : uint32_t { mode_latching, mode_momentary };

struct gpio_port_t {
    int32_t index;
    uint32_t gpio_class;
    zel_sys_gpio_t *pin;
    uint32_t type;
    uint32_t input_mode;
    char *handler_names[list_size];
    handler_t *handlers[list_size];
    uint8_t handler_inv[list_size];
    int32_t num_handlers;
    uint8_t state;
    uint8_t ignore_irq;
    char *trigger_names[list_size];
    int32_t trig_ids[list_size];
    uint8_t trig_inv[list_size];
    int32_t num_trigs;
    int32_t active_trigs;
    const char *vgpo_src;            // a remote record's name, or a constant; never owned
    uint8_t vgpo_src_valid;
    zel_ember_element_t *ember_node;
    zel_ember_element_t *ember_type;
    zel_ember_element_t *ember_handlers;
    zel_ember_element_t *ember_in_mode;
    zel_ember_element_t *ember_vgpo_src;
    zel_ember_element_t *ember_triggers;
    zel_ember_element_t *ember_active_triggers;
    zel_ember_element_t *ember_state;
    zel_ember_session_t *vgpi_session;
    const char *vgpi_provider_addr;  // a remote record's addr_port; never owned
};

struct relay_t {
    int32_t index;
    zel_sys_gpio_t *pin;
    char *trigger_names[list_size];
    uint8_t trig_inv[list_size];     // before the ids here, unlike in the port record
    int32_t trig_ids[list_size];
    int32_t num_trigs;
    int32_t active_trigs;
    uint8_t on_grid;
    zel_ember_element_t *ember_node;
    zel_ember_element_t *ember_triggers;
    zel_ember_element_t *ember_active_triggers;
    zel_ember_element_t *ember_state;
};

extern gpio_port_t *gpios;
extern relay_t *relays;
extern gpio_phys_cfg_t pin_table[max_physical];

extern int32_t gpi_count, cough_count, phys_gpio_count, virtual_gpio_count;
extern int32_t first_user_button, user_button_count, relay_count;
// Ports in use, short by those whose settings could not be loaded.
extern int32_t total_gpio_count;
// One past the last port in use, failed ones included. Differs from total_gpio_count only after such a failure; walks and index
// checks go by this one, so that the ports behind a failed one work like any other.
extern int32_t port_end;
extern uint8_t udp_pins[max_physical];

// What the host handed over, and the links made with it. Null where absent.
extern zel_net_config_t *udp_config, *publish_config;
extern zel_ember_session_t *ember_provider;
extern uint16_t ember_port_number;
extern zel_ipc_client_t *sdisc_client, *snmp_client;
extern vgpo_list_t remote_vgpos;

// A list of triggers, whoever owns it; entries 0 .. *count - 1 are in use. Borrowed from one record, never stored.
struct trigger_view {
    char **names;
    int32_t *ids;
    uint8_t *inverts;
    int32_t *count;
    int32_t *active;
    uint8_t *allow_inverts;  // handlers only, else null
};
trigger_view triggers_of(gpio_port_t &port);
trigger_view triggers_of(relay_t &relay);
trigger_view triggers_of(handler_t &handler);

// Who listens to a trigger: hints by trigger id, see index_sets. Every place that stores an id in a list says so here.
extern index_sets port_listeners, relay_listeners, handler_listeners;
void note_listener(const gpio_port_t &port, int32_t trigger_id);
void note_listener(const relay_t &relay, int32_t trigger_id);
void note_listener(const handler_t &handler, int32_t trigger_id);

// The virtual ports that have, or lately had, a consumer session; set 0 alone is used.
extern index_sets vgpi_session_ports;

// Makes the empty port table for these counts, each record with its index and class. False if memory is short.
bool allocate_ports(int32_t physical, int32_t virtual_ports, int32_t buttons);
bool allocate_relays(int32_t count);
void release_port_table();
void release_relay_table();

bool port_exists(int32_t index);
bool is_cough(const gpio_port_t &port);
// The physical ports that are not cough ports can be driven by UDP commands: true while this one is. Asks the network configuration.
bool udp_drives(int32_t index);
// The port's bit in handler masks; 0 for ports from index 64 on, which have none.
uint64_t port_bit(int32_t index);

bool valid_trigger_id(int32_t id);      // 0 .. 199
bool trigger_is_named(int32_t id);      // valid, and the slot is taken
bool handler_is_named(int32_t id);
handler_t *find_handler_by_name(const char *name);
trigger_t *find_trigger_by_name(const char *name);
int32_t find_trigger_id_by_name(const char *name);

// True if the entry's trigger is registered and its state differs from the entry's invert.
bool entry_is_active(const trigger_view &list, int32_t entry);
int32_t count_active(const trigger_view &list);
// The same for entries 0 .. entries - 1 only.
int32_t count_active_first(const trigger_view &list, int32_t entries);
uint8_t handler_level(const handler_t &handler);
// Index of the first free handler slot, where walks of events and bindings end.
int32_t first_free_handler();

// Frees the text and makes the pointer null.
void release_text(char *&text);
// Replaces a text that the record owns by a copy of another. False if memory is short; the old one then stands.
bool replace_text(char *&owned, const char *text);
// Makes an entry unused: name freed, id none, invert 0.
void clear_entry(const trigger_view &list, int32_t entry);
void clear_handler_entry(gpio_port_t &port, int32_t entry);
// Fills in an entry of a handler list. `name` becomes the port's own.
void set_handler_entry(gpio_port_t &port, int32_t entry, char *name, handler_t *handler, uint8_t invert);

inline constexpr const char *class_words[] = {"physical", "virtual", "user_button", "user_led"};

}  // namespace zel

// The condition by which every operation on a port guards its index.
#define zel_assert_port_index(index) zel_assert_as(::zel::port_exists(index), "index < total_gpio_count")
