// How the model's grid is changed: names, connections and types. Events are in grid_model_events.cpp, the file in
// grid_model_file.cpp.
#include "grid_model.h"

namespace grid_model {

// ---- Names ----

int grid::register_handler(const std::string &name, bool is_led)
{
    const int id = first_free_handler();
    for (int i = 0; i < id; ++i)
        if (handlers[static_cast<size_t>(i)].name == name)
            return -1;
    if (id == slots)
        return -1;
    handler &h = handlers[static_cast<size_t>(id)];
    h.name = h.registered_as = name;
    h.is_led = is_led;
    h.in_file = false;
    h.triggers.clear();
    h.active = 0;
    h.on_grid = text("on_grid_handlers").find(name) != std::string::npos;
    if (!is_led && h.on_grid) {
        h.in_file = true;
        h.triggers = saved_triggers("handler_info/" + name, "triggers", "trigger_inverts");
        int so_far = 0;
        for (const entry &e : h.triggers) {
            so_far += active(e);
            if (e.id != none)
                tell_handler(id, so_far);
        }
    }
    bind_handler(id);
    return id;
}

void grid::bind_handler(int id)
{
    handler &h = handlers[static_cast<size_t>(id)];
    for (size_t i = 0; i < ports.size(); ++i) {
        if (ports[i].type != input && ports[i].kind != led)
            continue;
        for (driven_handler &d : ports[i].handlers) {
            if (d.name != h.name)
                continue;
            d.id = id;
            if (!h.is_led)
                h.on_grid = true;
            evaluate_port_handlers(static_cast<int>(i));
        }
    }
}

int grid::rename_handler(const std::string &old_name, const std::string &new_name)
{
    const int id = handler_named(old_name);
    if (id == none || handler_named(new_name) != none)
        return -1;
    handler &h = handlers[static_cast<size_t>(id)];
    const bool was_in_file = h.in_file;
    forget_handler(old_name);
    h.in_file = false;
    h.name = new_name;
    for (size_t i = 0; i < ports.size(); ++i) {
        bool changed = false;
        for (driven_handler &d : ports[i].handlers)
            if (d.id == id)
                d.name = new_name, changed = true;
        if (changed)
            save_port(static_cast<int>(i));
    }
    h.in_file = h.in_file || was_in_file;
    save_handler(id);
    save_handlers_on_grid();
    return 0;
}

int grid::deregister_handler(const std::string &name)
{
    const int id = handler_named(name);
    if (id == none)
        return -1;
    for (size_t i = 0; i < ports.size(); ++i)
        disconnect_handler(static_cast<int>(i), id);
    for (int t = 0; t < slots; ++t)
        disconnect(owner::handler, id, t);
    forget_handler(name);
    handler &h = handlers[static_cast<size_t>(id)];
    h.name.clear();
    h.on_grid = h.in_file = false;
    save_handlers_on_grid();
    return 0;
}

int grid::register_trigger(const std::string &name)
{
    int id = 0;
    while (id < slots && !triggers[static_cast<size_t>(id)].name.empty()) {
        if (triggers[static_cast<size_t>(id)].name == name)
            return id;
        ++id;
    }
    if (id == slots)
        return -1;
    triggers[static_cast<size_t>(id)] = {name, false, text("on_grid_triggers").find(name) != std::string::npos};
    bind_trigger(id);
    return id;
}

void grid::bind_trigger(int id)
{
    trigger &t = triggers[static_cast<size_t>(id)];
    for (size_t i = 0; i < ports.size(); ++i) {
        if (ports[i].type != output)
            continue;
        for (entry &e : ports[i].triggers)
            if (e.name == t.name)
                e.id = id, t.on_grid = true, output_event(static_cast<int>(i));
    }
    for (relay &r : relays)
        for (entry &e : r.triggers)
            if (e.name == t.name)
                e.id = id, t.on_grid = true, tell_relay(r, count_active(r.triggers));
    for (int h = 0; h < first_free_handler(); ++h) {
        entries &list = handlers[static_cast<size_t>(h)].triggers;
        for (entry &e : list) {
            if (e.name != t.name)
                continue;
            e.id = id;
            lock_with_mirror(e, h);
            tell_handler(h, count_active(list));
        }
    }
}

int grid::rename_trigger(const std::string &old_name, const std::string &new_name)
{
    int result = -1;
    for (trigger &t : triggers) {
        if (t.name != old_name)
            continue;
        t.name = new_name;
        result = 0;
        for (size_t i = 0; i < ports.size(); ++i) {
            bool changed = false;
            for (entry &e : ports[i].triggers)
                if (e.name == old_name)
                    e.name = new_name, changed = true;
            if (changed)
                save_port(static_cast<int>(i));
        }
    }
    save_triggers_on_grid();
    return result;
}

int grid::deregister_trigger(const std::string &name)
{
    const int id = trigger_named(name);
    if (id == none)
        return -1;
    for (size_t i = 0; i < ports.size(); ++i)
        disconnect(owner::port, static_cast<int>(i), id);
    for (size_t r = 0; r < relays.size(); ++r)
        disconnect(owner::relay, static_cast<int>(r), id);
    for (int h = 0; h < slots; ++h)
        disconnect(owner::handler, h, id);
    event(id, false);
    triggers[static_cast<size_t>(id)] = {};
    save_triggers_on_grid();
    return 0;
}

// ---- Connections ----

entries *grid::list_of(owner who, int index)
{
    if (who == owner::port)
        return &ports[static_cast<size_t>(index)].triggers;
    if (who == owner::relay)
        return &relays[static_cast<size_t>(index)].triggers;
    handler &h = handlers[static_cast<size_t>(index)];
    return h.name.empty() ? nullptr : &h.triggers;
}

int grid::connect(owner who, int index, int trigger_id, bool invert)
{
    entries *list = list_of(who, index);
    if (list == nullptr || trigger_id == none)
        return -1;
    std::vector<pair> pairs;
    bool listed = false;
    for (const entry &e : *list) {
        if (e.id != none)
            pairs.push_back({e.id, e.id == trigger_id && !listed ? invert : e.invert});
        listed = listed || e.id == trigger_id;
    }
    if (!listed)
        pairs.insert(pairs.begin(), {trigger_id, invert});
    replace(who, index, pairs);
    return 0;
}

int grid::disconnect(owner who, int index, int trigger_id)
{
    const entries *list = list_of(who, index);
    if (list == nullptr || trigger_id == none)
        return -1;
    std::vector<pair> pairs;
    bool listed = false;
    for (const entry &e : *list) {
        listed = listed || e.id == trigger_id;
        if (e.id != none && e.id != trigger_id)
            pairs.push_back({e.id, e.invert});
    }
    if (!listed)
        return -1;
    replace(who, index, pairs);
    return 0;
}

void grid::clear_list(entries &list, int handler_id)
{
    for (entry &e : list) {
        if (!e.may_invert)
            if (entry *mirror = mirror_of(e.id, handler_id))
                mirror->may_invert = true;
        e = {};
    }
    list.clear();
}

void grid::rebuild(entries &list, int &active_count, int handler_id, const std::vector<pair> &pairs)
{
    clear_list(list, handler_id);
    active_count = 0;
    for (const pair &p : pairs) {
        if (!is_registered(p.id) || list.size() == slots)
            continue;
        trigger &t = triggers[static_cast<size_t>(p.id)];
        entry e{t.name, p.id, p.invert};
        if (handler_id != none)
            lock_with_mirror(e, handler_id);
        list.push_back(e);
        t.on_grid = true;
        active_count += active(e);
    }
}

void grid::replace(owner who, int index, const std::vector<pair> &pairs)
{
    if (who == owner::port) {
        port &p = ports[static_cast<size_t>(index)];
        if (!p.triggers.empty())
            p.own_trigger = none;   // the list that took its place is gone now
        rebuild(p.triggers, p.active, none, pairs);
        save_port(index);
        drive(index);
    } else if (who == owner::relay) {
        relay &r = relays[static_cast<size_t>(index)];
        rebuild(r.triggers, r.active, none, pairs);
        save_relay(index);
        r.pin = r.active > 0;
    } else {
        handler &h = handlers[static_cast<size_t>(index)];
        rebuild(h.triggers, h.active, index, pairs);
        save_handler(index);
        evaluate(index, index, false);
    }
}

int grid::connect_handler(int i, int handler_id, bool invert)
{
    std::vector<pair> pairs;
    bool listed = false;
    for (const driven_handler &d : ports[static_cast<size_t>(i)].handlers) {
        if (d.id != none)
            pairs.push_back({d.id, d.id == handler_id ? invert : d.invert});
        listed = listed || d.id == handler_id;
    }
    if (!listed)
        pairs.insert(pairs.begin(), {handler_id, invert});
    replace_handlers(i, pairs);
    return 0;
}

int grid::disconnect_handler(int i, int handler_id)
{
    const port &p = ports[static_cast<size_t>(i)];
    std::vector<pair> pairs;
    bool listed = false;
    for (const driven_handler &d : p.handlers) {
        if (d.id != none && d.id != handler_id)
            pairs.push_back({d.id, d.invert});
        if (d.id != none && d.id == handler_id) {
            listed = true;
            if (i < 64)
                handlers[static_cast<size_t>(handler_id)].asserted_by &= ~(uint64_t{1} << i);
            evaluate(handler_id, i, p.momentary);
        }
    }
    if (!listed)
        return -1;
    replace_handlers(i, pairs);
    return 0;
}

void grid::replace_handlers(int i, const std::vector<pair> &pairs)
{
    port &p = ports[static_cast<size_t>(i)];
    p.handlers.clear();
    for (const pair &wanted : pairs) {
        if (wanted.id < 0 || wanted.id >= slots || handlers[static_cast<size_t>(wanted.id)].name.empty())
            continue;
        handler &h = handlers[static_cast<size_t>(wanted.id)];
        p.handlers.push_back({h.name, wanted.id, wanted.invert});
        h.on_grid = true;
    }
    save_port(i);
    evaluate_port_handlers(i);
}

/// The entry from the trigger of the handler's name to the handler of the trigger's name.
entry *grid::mirror_of(int trigger_id, int handler_id)
{
    if (!is_registered(trigger_id) || handlers[static_cast<size_t>(handler_id)].name.empty())
        return nullptr;
    const int other_handler = handler_named(triggers[static_cast<size_t>(trigger_id)].name);
    const int other_trigger = trigger_named(handlers[static_cast<size_t>(handler_id)].name);
    if (other_handler == none || other_trigger == none)
        return nullptr;
    for (entry &e : handlers[static_cast<size_t>(other_handler)].triggers)
        if (e.id == other_trigger)
            return &e;
    return nullptr;
}

void grid::lock_with_mirror(entry &e, int handler_id)
{
    entry *mirror = mirror_of(e.id, handler_id);
    e.may_invert = mirror == nullptr;
    if (mirror == nullptr)
        return;
    e.invert = mirror->invert;
    mirror->may_invert = false;
}

// ---- Types of GPI ports ----

int grid::set_direction(int i, int direction)
{
    const port_type now = ports[static_cast<size_t>(i)].type;
    if (direction == now)
        return 0;
    switch (direction) {
    case input: become_input(i); return 1;
    case output: become_output(i); return 1;
    case disabled: become_disabled(i); return 1;
    default: return -1;
    }
}

void grid::become_input(int i)
{
    port &p = ports[static_cast<size_t>(i)];
    p.ignore_next_edge = p.ignore_next_edge || p.active_low;
    for (entry &e : p.triggers) {   // those of an output: all end
        event(e.id, false);
        e = {};
    }
    p.type = input;
    p.triggers.clear();
    p.active = 0;
    p.own_trigger = trigger_named(own_name(i));
    p.state = false;
    evaluate_port_handlers(i);
    event(p.own_trigger, false);
    save_port(i);
}

void grid::become_output(int i)
{
    port &p = ports[static_cast<size_t>(i)];
    const int first = p.first_trigger();
    if (p.type == input) {
        event(first, false);
        p.triggers.clear();
        p.own_trigger = none;
        p.active = 0;
        release_port_handlers(i);
    }
    p.type = output;
    p.handlers.clear();
    p.momentary = false;
    if (first != none)
        connect(owner::port, i, first, false);
    p.out_pin = p.state;
    save_port(i);
}

void grid::become_disabled(int i)
{
    port &p = ports[static_cast<size_t>(i)];
    p.state = false;
    if (p.type == input) {
        const int own = p.first_trigger();
        event(own, false);
        release_port_handlers(i);
        for (size_t other = 0; other < ports.size(); ++other)
            if (ports[other].type == output)
                disconnect(owner::port, static_cast<int>(other), own);
        for (size_t r = 0; r < relays.size(); ++r)
            disconnect(owner::relay, static_cast<int>(r), own);
    }
    p.type = disabled;
    p.triggers.clear();
    p.own_trigger = none;
    p.active = 0;
    p.handlers.clear();
    save_port(i);
}

}  // namespace grid_model
