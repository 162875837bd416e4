// The model's settings: how a grid starts from them, and what each change writes.
#include "grid_model.h"

namespace grid_model {

namespace {

std::vector<std::string> pieces(const std::string &text)
{
    std::vector<std::string> result;
    size_t from = 0;
    for (size_t to; (to = text.find(", ", from)) != std::string::npos; from = to + 2)
        result.push_back(text.substr(from, to - from));
    result.push_back(text.substr(from));
    return result;
}

std::string joined(const std::vector<std::string> &list)
{
    std::string text;
    for (size_t i = 0; i < list.size(); ++i)
        text += (i > 0 ? ", " : "") + list[i];
    return text;
}

}  // namespace

std::string grid::text(const std::string &key) const
{
    const auto found = file.find(key);
    return found == file.end() ? "" : found->second.substr(1, found->second.size() - 2);
}

int grid::number(const std::string &key, int last) const
{
    const int value = has(key) ? std::stoi(file.at(key)) : 0;
    return value < 0 || value > last ? 0 : value;
}

std::string grid::object_of(int i) const
{
    switch (ports[static_cast<size_t>(i)].kind) {
    case physical: return "physical/gpio_" + std::to_string(i);
    case virtual_port: return "virtual/vgpio_" + std::to_string(i - gpis);
    case button: return "user_buttons/btn_" + std::to_string((i - first_button) / 2 + 1);
    default: return "user_buttons/led_" + std::to_string((i - first_button) / 2 + 1);
    }
}

std::string grid::own_name(int i) const
{
    switch (ports[static_cast<size_t>(i)].kind) {
    case physical: return "GPI " + std::to_string(i + 1);
    case virtual_port: return "vGPI " + std::to_string(i - gpis + 1);
    case button: return "User Button " + std::to_string((i - first_button) / 2 + 1);
    default: return "User LED " + std::to_string((i - first_button) / 2 + 1);
    }
}

// ---- Start-up ----

grid::grid(const description &unit, const settings &saved)
    : file(saved), gpis(unit.gpis), virtuals(unit.virtuals), first_button(gpis + virtuals)
{
    for (int id = 0; const char *name : {"Eth Link Down", "AoIP Link Down", "AC Power Off", "DC Power Off", "PTP Sync Lost"})
        triggers[static_cast<size_t>(id++)] = {name, false, text("on_grid_triggers").find(name) != std::string::npos};
    ports.resize(static_cast<size_t>(first_button + 2 * unit.buttons));
    relays.resize(static_cast<size_t>(unit.relays));
    for (int i = 0; i < static_cast<int>(ports.size()); ++i) {
        port &p = ports[static_cast<size_t>(i)];
        p.kind = i < gpis ? physical : i < first_button ? virtual_port : (i - first_button) % 2 == 0 ? button : led;
        p.active_low = i == 1;
    }
    for (int i = 0; i < gpis; ++i)
        start_port(i, own_name(i));
    set("physical/phys_gpio_count", gpis);
    for (size_t r = 0; r < relays.size(); ++r) {
        const std::string object = "relay/relay_" + std::to_string(r);
        relays[r].triggers = saved_triggers(object, "triggers", "trigger_invert");
        if (!has(object + "/trigger_invert"))
            save_relay(static_cast<int>(r));
        tell_relay(relays[r], count_active(relays[r].triggers));
    }
    set("relay/relay_count", unit.relays);
    for (int i = gpis; i < static_cast<int>(ports.size()); ++i)
        start_port(i, own_name(i));
    set("virtual/virtual_gpio_count", virtuals);
    started = true;
}

void grid::start_port(int i, const std::string &name)
{
    port &p = ports[static_cast<size_t>(i)];
    const std::string object = object_of(i);
    const int own = p.kind == led ? none : register_trigger(name);
    p.type = static_cast<port_type>(number(object + "/type", p.kind == button ? input : output));
    if (p.kind == led)
        p.handlers.push_back({name});
    if (p.type == input) {
        p.momentary = p.kind != virtual_port && number(object + "/input_mode", 1) != 0;
        load_handlers(p, object);
        if (!has(object + "/handler_invert"))
            save_port(i);
        if (p.kind == button)
            p.own_trigger = own;
        else
            p.triggers.push_back({name, own});
    }
    if (p.type == output) {
        p.triggers = saved_triggers(object, "trigger", "invert_trigger");
        if (!has(object + "/invert_trigger"))
            save_port(i);
        p.active = count_active(p.triggers);
        if (p.kind != led)
            p.state = p.out_pin = p.active > 0;
    }
}

entries grid::saved_triggers(const std::string &object, const std::string &names_key, const std::string &inverts_key)
{
    entries list;
    if (!has(object + "/" + names_key))
        return list;
    for (const std::string &name : pieces(text(object + "/" + names_key))) {
        const int id = trigger_named(name);
        list.push_back({name, id});
        if (id != none)
            triggers[static_cast<size_t>(id)].on_grid = true;
    }
    const std::vector<std::string> inverts = pieces(text(object + "/" + inverts_key));
    for (size_t k = 0; k < list.size() && k < inverts.size(); ++k)
        list[k].invert = inverts[k] == "1";
    return list;
}

void grid::load_handlers(port &p, const std::string &object)
{
    if (!has(object + "/handler"))
        return;
    for (const std::string &name : pieces(text(object + "/handler")))
        p.handlers.push_back({name});
    const std::vector<std::string> inverts = pieces(text(object + "/handler_invert"));
    for (size_t k = 0; k < p.handlers.size() && k < inverts.size(); ++k)
        p.handlers[k].invert = inverts[k] == "1";
}

// ---- Saving ----

void grid::save_list(const std::string &object, const entries &list, const std::string &names_key, const std::string &inverts_key)
{
    std::vector<std::string> names, inverts;
    for (const entry &e : list)
        names.push_back(e.name), inverts.push_back(e.invert ? "1" : "0");
    set(object + "/" + names_key, joined(names));
    set(object + "/" + inverts_key, joined(inverts));
}

void grid::save_port(int i)
{
    const port &p = ports[static_cast<size_t>(i)];
    const std::string object = object_of(i);
    set(object + "/type", p.type);
    for (const char *key : {"/handler", "/trigger", "/invert_trigger"})
        file.erase(object + key);
    if (p.kind == physical)
        file.erase(object + "/input_mode");
    if (p.kind == virtual_port)
        file.erase(object + "/vgpo_src");
    if (p.type == input) {
        std::vector<std::string> names, inverts;
        for (const driven_handler &d : p.handlers)
            names.push_back(d.name), inverts.push_back(d.invert ? "1" : "0");
        set(object + "/handler", joined(names));
        set(object + "/handler_invert", joined(inverts));
        if (p.kind == physical)
            set(object + "/input_mode", p.momentary);
        if (p.kind == virtual_port)
            set(object + "/vgpo_src", "");
    } else if (p.type == output || p.kind == led) {
        save_list(object, p.triggers, "trigger", "invert_trigger");
    }
    save_names_on_grid();
}

void grid::save_relay(int r)
{
    save_list("relay/relay_" + std::to_string(r), relays[static_cast<size_t>(r)].triggers, "triggers", "trigger_invert");
}

void grid::save_handler(int id)
{
    const handler &h = handlers[static_cast<size_t>(id)];
    if (h.in_file)
        save_list("handler_info/" + h.name, h.triggers, "triggers", "trigger_inverts");
}

/// Two slots can hold one name, and so share what is saved under it.
void grid::forget_handler(const std::string &name)
{
    for (handler &h : handlers)
        if (h.name == name)
            h.in_file = false;
    file.erase("handler_info/" + name + "/triggers");
    file.erase("handler_info/" + name + "/trigger_inverts");
}

/// Not while the unit starts: the host has not registered its names yet.
void grid::save_names_on_grid()
{
    if (!started)
        return;
    save_triggers_on_grid();
    save_handlers_on_grid();
}

void grid::save_triggers_on_grid()
{
    std::vector<std::string> names;
    for (const trigger &t : triggers)
        if (!t.name.empty() && t.on_grid)
            names.push_back(t.name);
    set("on_grid_triggers", joined(names));
}

void grid::save_handlers_on_grid()
{
    std::vector<std::string> names;
    for (handler &h : handlers)
        if (!h.name.empty() && h.on_grid && !h.is_led)
            names.push_back(h.name), h.in_file = true;
    set("on_grid_handlers", joined(names));
}

}  // namespace grid_model
