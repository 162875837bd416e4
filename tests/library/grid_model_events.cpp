// How state moves through the model's grid.
#include "grid_model.h"

namespace grid_model {

int grid::trigger_named(const std::string &name) const
{
    for (int id = 0; id < slots; ++id)
        if (!name.empty() && triggers[static_cast<size_t>(id)].name == name)
            return id;
    return none;
}

int grid::handler_named(const std::string &name) const
{
    for (int id = 0; id < slots; ++id)
        if (!name.empty() && handlers[static_cast<size_t>(id)].name == name)
            return id;
    return none;
}

bool grid::is_registered(int trigger_id) const
{
    return trigger_id >= 0 && trigger_id < slots && !triggers[static_cast<size_t>(trigger_id)].name.empty();
}

int grid::first_free_handler() const
{
    int id = 0;
    while (id < slots && !handlers[static_cast<size_t>(id)].name.empty())
        ++id;
    return id;
}

int grid::count_active(const entries &list) const
{
    int count = 0;
    for (const entry &e : list)
        count += active(e);
    return count;
}

/// The entries of one trigger are told of its change one after another; those behind `told` still show the state before.
int grid::count_when_told(const entries &list, size_t told) const
{
    int count = 0;
    for (size_t k = 0; k < list.size(); ++k)
        count += k > told && list[k].id == list[told].id ? !active(list[k]) : active(list[k]);
    return count;
}

void grid::event(int id, bool state)
{
    if (!is_registered(id) || triggers[static_cast<size_t>(id)].state == state)
        return;
    triggers[static_cast<size_t>(id)].state = state;
    for (size_t i = 0; i < ports.size(); ++i) {
        port &p = ports[i];
        for (const entry &e : p.triggers) {
            if (e.id != id)
                continue;
            if (p.kind == button && p.type == input)
                p.state = !p.state, evaluate_port_handlers(static_cast<int>(i));
            else if (p.type == output)
                output_event(static_cast<int>(i));
        }
    }
    for (relay &r : relays)
        for (size_t k = 0; k < r.triggers.size(); ++k)
            if (r.triggers[k].id == id)
                tell_relay(r, count_when_told(r.triggers, k));
    for (int h = 0; h < first_free_handler(); ++h) {
        const entries &list = handlers[static_cast<size_t>(h)].triggers;
        for (size_t k = 0; k < list.size(); ++k)
            if (list[k].id == id)
                tell_handler(h, count_when_told(list, k));
    }
}

void grid::tell_relay(relay &r, int active_count)
{
    r.active = active_count;
    r.pin = active_count > 0;
}

void grid::tell_handler(int id, int active_count)
{
    handlers[static_cast<size_t>(id)].active = active_count;
    evaluate(id, id, false);
}

void grid::evaluate(int id, int source, bool momentary)
{
    handler &h = handlers[static_cast<size_t>(id)];
    h.state = h.active > 0 || h.asserted_by != 0;
    call(id, source, momentary);
}

void grid::call(int id, int source, bool momentary)
{
    const handler &h = handlers[static_cast<size_t>(id)];
    calls.push_back(h.registered_as + " " + std::to_string(source) + " " + std::to_string(h.state) + " " +
        std::to_string(momentary));
}

void grid::evaluate_port_handlers(int i)
{
    port &p = ports[static_cast<size_t>(i)];
    for (const driven_handler &d : p.handlers) {
        if (d.id == none)
            continue;
        handler &h = handlers[static_cast<size_t>(d.id)];
        const uint64_t bit = i < 64 ? uint64_t{1} << i : 0;
        h.asserted_by = p.state != d.invert ? h.asserted_by | bit : h.asserted_by & ~bit;
        if (p.kind == led) {
            h.active = count_active(p.triggers);
            p.state = h.active > 0 || h.asserted_by != 0;
        }
        evaluate(d.id, i, p.momentary);
    }
}

void grid::release_port_handlers(int i)
{
    const port &p = ports[static_cast<size_t>(i)];
    for (const driven_handler &d : p.handlers) {
        if (d.id == none)
            continue;
        if (i < 64)
            handlers[static_cast<size_t>(d.id)].asserted_by &= ~(uint64_t{1} << i);
        evaluate(d.id, i, p.momentary);
    }
}

void grid::drive(int i)
{
    port &p = ports[static_cast<size_t>(i)];
    p.state = p.active > 0;
    if (p.kind == physical)
        p.out_pin = p.state;
    else if (p.kind == led)
        evaluate_port_handlers(i);
}

void grid::output_event(int i)
{
    port &p = ports[static_cast<size_t>(i)];
    p.active = count_active(p.triggers);
    drive(i);
}

void grid::edge(int i, bool level)
{
    port &p = ports[static_cast<size_t>(i)];
    if (p.ignore_next_edge) {
        p.ignore_next_edge = false;
        return;
    }
    p.state = p.momentary ? level : !p.state;
    evaluate_port_handlers(i);
    event(p.first_trigger(), p.state);
}

void grid::press_button(int number)
{
    const int i = first_button + 2 * number;
    port &p = ports[static_cast<size_t>(i)];
    if (p.type != input)
        return;
    const int id = p.first_trigger();
    if (is_registered(id))
        event(id, !triggers[static_cast<size_t>(id)].state);
    p.state = !p.state;
    evaluate_port_handlers(i);
}

int grid::toggle_handler(int id)
{
    if (id < 0 || id >= slots || handlers[static_cast<size_t>(id)].name.empty())
        return -1;
    handler &h = handlers[static_cast<size_t>(id)];
    if (h.asserted_by == 0) {
        h.state = !h.state;
        call(id, none, false);
    }
    for (size_t k = 0; k < h.triggers.size(); ++k)
        event(h.triggers[k].id, h.triggers[k].invert != h.state);
    return 0;
}

}  // namespace grid_model
