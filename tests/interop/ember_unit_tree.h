// A provider with a tree laid out like a unit's, for the programs that foreign clients are tried and timed against.
#pragma once

#include <zel_ember.h>

#include <functional>
#include <map>
#include <string>

struct unit_tree {
    zel_ember_session_t *session;
    zel_ember_element_t *unit = nullptr, *sources = nullptr;
    std::map<std::string, zel_ember_element_t *> elements;    // by path
    std::map<std::string, std::string> values;                 // of parameters, as text
    std::map<zel_ember_element_t *, std::string> paths;
    std::map<zel_ember_element_t *, char> kinds;               // 's'tring, 'e'numeration, 'b'oolean
    std::function<void(const std::string &path, const std::string &value)> on_set;

    explicit unit_tree(zel_ember_session_t *provider) : session(provider) {}

    zel_ember_element_t *node(const char *name, zel_ember_element_t *parent)
    {
        return noted(zel_ember_add_node(session, name, nullptr, 0, parent));
    }
    zel_ember_element_t *text(const char *name, int access, const std::string &value, zel_ember_element_t *parent)
    {
        auto *e = zel_ember_add_string_param(session, name, nullptr, 0, access, value.c_str(), this, set_if(access), parent);
        return valued(e, 's', value);
    }
    zel_ember_element_t *choice(const char *name, int access, int64_t value, const char *entries, zel_ember_element_t *parent)
    {
        auto *e = zel_ember_add_enum_param(session, name, nullptr, 0, access, value, entries, this, set_if(access), parent);
        return valued(e, 'e', std::to_string(value));
    }
    zel_ember_element_t *level(const char *name, int access, int value, zel_ember_element_t *parent)
    {
        auto *e = zel_ember_add_boolean_param(session, name, nullptr, 0, access, value, this, set_if(access), parent);
        return valued(e, 'b', std::to_string(value));
    }

    void build(int physical_count, int virtual_count, int relay_count)
    {
        unit = node("unit", nullptr);
        auto *gpio = node("gpio", unit);
        auto *physical = node("physical", gpio), *virtual_ports = node("virtual", gpio), *buttons = node("user buttons", gpio);
        auto *handlers = node("handlers", gpio), *triggers = node("triggers", gpio);
        sources = node("vgpio sources", gpio);
        for (int i = 1; i <= physical_count; ++i)
            port(("gpio " + std::to_string(i)).c_str(), physical, 'p');
        for (int i = 1; i <= virtual_count; ++i)
            port(("vgpio " + std::to_string(i)).c_str(), virtual_ports, 'v');
        port("button 1", buttons, 'b');
        port("led 1", buttons, 'l');
        for (int i = 1; i <= relay_count; ++i)
            relay(("relay " + std::to_string(i)).c_str(), physical);
        text("h-0", 1, "Record", handlers);
        for (const char *name : {"t-0", "t-1", "t-2"})
            text(name, 1, std::string("Trigger ") + name, triggers);
    }

    bool assign(const std::string &path, const std::string &value)
    {
        const auto found = elements.find(path);
        if (found == elements.end() || !kinds.contains(found->second))
            return false;
        values[path] = value;
        if (kinds[found->second] == 's')
            return zel_ember_set_param(session, nullptr, 0, 0, found->second, value.c_str(), value.size() + 1, nullptr,
                                       nullptr) == 0;
        const int64_t number = std::stoll(value);
        return zel_ember_set_param(session, nullptr, 0, 0, found->second, &number, sizeof(number), nullptr, nullptr) == 0;
    }

    bool remove(const std::string &path)
    {
        const auto found = elements.find(path);
        if (found == elements.end())
            return false;
        auto *e = found->second;
        elements.erase(found);
        values.erase(path);
        kinds.erase(e);
        paths.erase(e);
        return zel_ember_remove_element(session, e) == 0;
    }

private:
    static zel_ember_set_cb_t set_if(int access) { return access == 3 ? set : nullptr; }

    void port(const char *name, zel_ember_element_t *parent, char kind)
    {
        auto *n = node(name, parent);
        choice("type", 3, 1, "disabled\ninput\noutput", n);
        if (kind != 'l')
            text("input functions", 3, "Record", n);
        if (kind != 'b') {
            text("output triggers", 3, "Trigger t-1, Trigger t-2", n);
            text("active triggers", 1, "", n);
        }
        if (kind == 'p' || kind == 'b')
            choice("input mode", 3, 0, "latching\nmomentary", n);
        if (kind == 'v')
            text("vgpio source", 3, "", n);
        level("status", 3, 0, n);
    }

    void relay(const char *name, zel_ember_element_t *parent)
    {
        auto *n = node(name, parent);
        text("output triggers", 3, "Trigger t-0", n);
        text("active triggers", 1, "", n);
        level("status", 1, 1, n);
    }

    zel_ember_element_t *noted(zel_ember_element_t *e)
    {
        char path[512] = "";
        if (e == nullptr || zel_ember_get_path(session, e, path, sizeof(path)) != 0)
            return nullptr;
        elements[path] = e;
        paths[e] = path;
        return e;
    }
    zel_ember_element_t *valued(zel_ember_element_t *e, char kind, const std::string &value)
    {
        if (noted(e) == nullptr)
            return nullptr;
        kinds[e] = kind;
        values[paths[e]] = value;
        return e;
    }

    static int set(void *user_data, const char *, uint16_t, zel_ember_element_t *parameter, const void *value)
    {
        auto *self = static_cast<unit_tree *>(user_data);
        const std::string &path = self->paths[parameter];
        const std::string given = self->kinds[parameter] == 's' ? std::string(static_cast<const char *>(value))
                                                                : std::to_string(*static_cast<const int64_t *>(value));
        self->values[path] = given;
        if (self->on_set)
            self->on_set(path, given);
        return 0;
    }
};
