// A second, plain description of the grid, to be compared with the library after every step: triggers with states, ports,
// relays, handlers, their lists, and the settings in the file. Nothing is shared with the library and nothing is clever: names
// are strings, lists are vectors, active entries are counted from the states each time somebody has to know.
// It covers a unit without a provider, UDP commands and remote units, whose callbacks do not call back.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace grid_model {

constexpr int none = -1, slots = 200;
enum port_kind { physical, virtual_port, button, led };
enum port_type { disabled, input, output };

struct trigger {
    std::string name;   // empty: a free slot
    bool state = false, on_grid = false;
};

/// A connection from a trigger; `id` none: no trigger of the name was registered so far.
struct entry {
    std::string name;
    int id = none;
    bool invert = false, may_invert = true;
};
using entries = std::vector<entry>;

struct driven_handler {
    std::string name;
    int id = none;
    bool invert = false;
};

struct handler {
    std::string name;            // empty: a free slot
    std::string registered_as;   // by which its callback is known, whatever it is called by now
    bool state = false, on_grid = false, is_led = false, in_file = false;
    uint64_t asserted_by = 0;   // ports, one bit each
    entries triggers;
    int active = 0;
};

struct port {
    port_kind kind = physical;
    port_type type = disabled;
    bool momentary = false, state = false, active_low = false, ignore_next_edge = false, out_pin = false;
    entries triggers;
    int own_trigger = none;   // where it stands outside the list, which is empty then
    int active = 0;
    std::vector<driven_handler> handlers;

    int first_trigger() const { return triggers.empty() ? own_trigger : triggers[0].id; }
};

struct relay {
    entries triggers;
    int active = 0;
    bool pin = false;
};

using settings = std::map<std::string, std::string>;   // "physical/gpio_0/type": the value as JSON

struct description {
    int gpis, relays, virtuals, buttons;   // GPI port 1 is active low, the others are not
};

enum class owner { port, relay, handler };

class grid {
public:
    /// As after start-up with these settings.
    grid(const description &unit, const settings &file);

    int register_handler(const std::string &name, bool is_led = false);
    int rename_handler(const std::string &old_name, const std::string &new_name);
    int deregister_handler(const std::string &name);
    int register_trigger(const std::string &name);
    int rename_trigger(const std::string &old_name, const std::string &new_name);
    int deregister_trigger(const std::string &name);

    int connect(owner who, int index, int trigger_id, bool invert);
    int disconnect(owner who, int index, int trigger_id);
    int connect_handler(int port_index, int handler_id, bool invert);
    int disconnect_handler(int port_index, int handler_id);

    void event(int trigger_id, bool state);
    void press_button(int button);
    void edge(int port_index, bool level);
    int toggle_handler(int handler_id);
    int set_direction(int port_index, int direction);

    std::vector<trigger> triggers{slots};
    std::vector<handler> handlers{slots};
    std::vector<port> ports;
    std::vector<relay> relays;
    settings file;
    std::vector<std::string> calls;   // of host callbacks, in order: "Record 0 1 0" (first name, source, state, context)

private:
    bool started = false;
    int gpis, virtuals, first_button;

    // start-up
    void start_port(int i, const std::string &own_name);
    entries saved_triggers(const std::string &object, const std::string &names_key, const std::string &inverts_key);
    void load_handlers(port &p, const std::string &object);
    bool has(const std::string &key) const { return file.count(key) != 0; }
    int number(const std::string &key, int last) const;
    std::string text(const std::string &key) const;

    // lookups
    int trigger_named(const std::string &name) const;
    int handler_named(const std::string &name) const;
    bool is_registered(int trigger_id) const;
    int first_free_handler() const;
    bool active(const entry &e) const { return e.id != none && triggers[static_cast<size_t>(e.id)].state != e.invert; }
    int count_active(const entries &list) const;
    int count_when_told(const entries &list, size_t told) const;
    std::string object_of(int port_index) const;
    std::string own_name(int port_index) const;
    entries *list_of(owner who, int index);

    // effects
    void call(int handler_id, int source, bool momentary);
    void evaluate(int handler_id, int source, bool momentary);
    void evaluate_port_handlers(int i);
    void release_port_handlers(int i);
    void drive(int i);
    void output_event(int i);
    void tell_relay(relay &r, int active_count);
    void tell_handler(int id, int active_count);
    void bind_handler(int id);
    void bind_trigger(int id);

    // lists
    struct pair { int id; bool invert; };
    void clear_list(entries &list, int handler_id);
    void rebuild(entries &list, int &active_count, int handler_id, const std::vector<pair> &pairs);
    void replace(owner who, int index, const std::vector<pair> &pairs);
    void replace_handlers(int i, const std::vector<pair> &pairs);
    entry *mirror_of(int trigger_id, int handler_id);
    void lock_with_mirror(entry &e, int handler_id);

    // types
    void become_input(int i);
    void become_output(int i);
    void become_disabled(int i);

    // the file
    void set(const std::string &key, const std::string &value) { file[key] = "\"" + value + "\""; }
    void set(const std::string &key, int value) { file[key] = std::to_string(value); }
    void save_list(const std::string &object, const entries &list, const std::string &names_key, const std::string &inverts_key);
    void save_port(int i);
    void save_relay(int r);
    void save_handler(int id);
    void save_names_on_grid();
    void save_triggers_on_grid();
    void save_handlers_on_grid();
    void forget_handler(const std::string &name);
};

}  // namespace grid_model
