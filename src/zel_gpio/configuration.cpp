#include "zel_gpio/configuration.h"

#include <cstring>

#include "zel_debug.h"
#include "zel_gpio/assertion.h"
#include "zel_gpio/list_text.h"
#include "zel_gpio/port_names.h"

namespace zel {

zel_json_file_t *gpio_json;
zel_json_obj_t *gpio_json_obj, *phys_gpio_json_obj, *relays_json_obj, *virt_gpio_json_obj, *user_btn_json_obj,
    *handler_info_json_obj;
bool startup_done;

namespace {

const char *on_grid_handlers_text, *on_grid_triggers_text;  // borrowed from the file

struct section {
    zel_json_obj_t **object;
    const char *key, *failure;
};

constexpr section sections[] = {
    {&phys_gpio_json_obj, "physical", "%s: zel_json_file_load_object failed for physical gpio settings\n"},
    {&relays_json_obj, "relay", "%s: zel_json_file_load_object failed for relay settings\n"},
    {&virt_gpio_json_obj, "virtual", "%s: zel_json_file_load_object failed for virtual gpio settings\n"},
    {&user_btn_json_obj, "user_buttons", "%s: zel_json_file_load_object failed for user button settings\n"},
    {&handler_info_json_obj, "handler_info", "%s: zel_json_file_load_object failed for handler info\n"},
};

void open_file(const char *function)
{
    if (gpio_json == nullptr) {
        gpio_json = zel_json_file_init(configuration_path);
        if (gpio_json == nullptr) log_message(0, "%s: Failed to initialise %s\n", function, configuration_path);
    }
    if (gpio_json_obj == nullptr) {
        gpio_json_obj = gpio_json != nullptr ? zel_json_file_load_object(gpio_json, nullptr, "gpio") : nullptr;
        if (gpio_json_obj == nullptr) log_message(0, "%s: Failed to load gpio config object\n", function);
    }
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
bool open_section(const section &wanted, const char *function)
{
    if (*wanted.object == nullptr) *wanted.object = zel_json_file_load_object(gpio_json, gpio_json_obj, wanted.key);
    if (*wanted.object == nullptr) log_message(0, wanted.failure, function);
    return *wanted.object != nullptr;
}
#pragma GCC diagnostic pop

int32_t write_handler_list(zel_json_obj_t *object, const gpio_port_t &port, const char *key)
{
    constexpr const char *function = "update_gpio_json";
    saved_list list;
    list.write(port.handler_names, port.handler_inv, port.num_handlers);
    warn_if_cut(list.names, function, key);
    int32_t result = 0;
    if (zel_json_file_set_string(gpio_json, object, "handler", list.names.text()) != 0) {
        log_message(0, "%s: Failed to set handler name for json object: %s (handler_names = '%s')\n", function, key, list.names.text());
        result = -1;
    }
    if (zel_json_file_set_string(gpio_json, object, "handler_invert", list.inverts.text()) != 0) {
        log_message(0, "%s: Failed to set handler_invert for json object: %s to %d\n", function, key, port.handler_inv[0]);
        result = -1;
    }
    return result;
}

// The settings of an input beside its handlers, of which each class has its own.
int32_t write_input_settings(zel_json_obj_t *object, const gpio_port_t &port, const char *key)
{
    constexpr const char *function = "update_gpio_json";
    if (port.gpio_class == class_physical &&
        zel_json_file_set_integer(gpio_json, object, "input_mode", static_cast<int32_t>(port.input_mode)) != 0) {
        log_message(0, "%s: Failed to set input_mode for json object: %s to %d\n", function, key, static_cast<int>(port.input_mode));
        return -1;
    }
    const char *const source = port.vgpo_src != nullptr ? port.vgpo_src : "";
    if (port.gpio_class == class_virtual && zel_json_file_set_string(gpio_json, object, "vgpo_src", source) != 0) {
        log_message(0, "%s: Failed to set vgpo_src for json object: %s to %s\n", function, key, source);
        return -1;
    }
    return 0;
}

// Writes a trigger list under its owner's own spelling of the keys. The result is that of the last write.
int32_t write_trigger_list(zel_json_obj_t *object, const trigger_view &list, const char *names_key, const char *inverts_key,
                           const char *function)
{
    saved_list text;
    text.write(list.names, list.inverts, *list.count);
    warn_if_cut(text.names, function, names_key);
    const int written = zel_json_file_set_string(gpio_json, object, names_key, text.names.text());
    const int result = zel_json_file_set_string(gpio_json, object, inverts_key, text.inverts.text());
    if (written != 0 || result != 0) log_message(0, "%s: Failed to save a list of triggers under '%s'\n", function, names_key);
    return result;
}

void remove_stale_keys(zel_json_obj_t *object, const gpio_port_t &port)
{
    // "handler_invert" stays: a port that goes from input to output keeps its old one in the file.
    for (const char *const key : {"handler", "trigger", "invert_trigger"}) (void)zel_json_remove_object(gpio_json, object, key);
    if (port.gpio_class == class_physical) (void)zel_json_remove_object(gpio_json, object, "input_mode");
    if (port.gpio_class == class_virtual) (void)zel_json_remove_object(gpio_json, object, "vgpo_src");
}

int32_t write_settings(zel_json_obj_t *object, gpio_port_t &port, const char *key)
{
    if (port.type == type_input) {
        const int32_t lists = write_handler_list(object, port, key);
        const int32_t settings = write_input_settings(object, port, key);
        return lists != 0 ? lists : settings;
    }
    if (port.type == type_output || port.gpio_class == class_user_led)
        return write_trigger_list(object, triggers_of(port), "trigger", "invert_trigger", "update_gpio_json");
    return 0;
}

bool listed_on_grid(const handler_t &handler)
{
    return handler.name != nullptr && handler.on_grid != 0 && handler.led_handler == 0;
}

int32_t save_on_grid(const char *key, const text_builder &text, const char *&kept, const char *function)
{
    warn_if_cut(text, function, key);
    const int result = zel_json_file_set_string(gpio_json, gpio_json_obj, key, text.text());
    if (result != 0) log_message(0, "%s: Failed to set '%s'\n", function, key);
    kept = zel_json_file_load_string(gpio_json, gpio_json_obj, key, "");
    return result;
}

}  // namespace

int32_t init_gpio_json_objs()
{
    open_file(__func__);
    if (gpio_json == nullptr || gpio_json_obj == nullptr) return -1;
    int32_t result = 0;
    for (const section &wanted : sections) {
        if (!open_section(wanted, __func__)) result = -1;
    }
    return result;
}

void close_configuration()
{
    if (gpio_json != nullptr) zel_json_file_term(gpio_json);
    gpio_json = nullptr;
    gpio_json_obj = nullptr;
    for (const section &closed : sections) *closed.object = nullptr;
    on_grid_handlers_text = on_grid_triggers_text = nullptr;
    startup_done = false;
}

void load_on_grid_texts()
{
    if (gpio_json == nullptr || gpio_json_obj == nullptr) return;
    on_grid_handlers_text = zel_json_file_load_string(gpio_json, gpio_json_obj, "on_grid_handlers", "");
    on_grid_triggers_text = zel_json_file_load_string(gpio_json, gpio_json_obj, "on_grid_triggers", "");
}

bool handler_on_grid(const char *name)
{
    return on_grid_handlers_text != nullptr && std::strstr(on_grid_handlers_text, name) != nullptr;
}

bool trigger_on_grid(const char *name)
{
    return on_grid_triggers_text != nullptr && std::strstr(on_grid_triggers_text, name) != nullptr;
}

zel_json_obj_t *section_of(const gpio_port_t &port)
{
    switch (port.gpio_class) {
        case class_physical: return phys_gpio_json_obj;
        case class_virtual: return virt_gpio_json_obj;
        default: return user_btn_json_obj;
    }
}

int32_t update_gpio_json(int32_t index)
{
    zel_assert_port_index(index);
    gpio_port_t &port = gpios[index];
    zel_json_obj_t *const parent = section_of(port);
    if (parent == nullptr) {
        log_message(0, "%s: invalid parent json object\n", __func__);
        return -1;
    }
    const port_name key = port_key(port);
    log_message(4, "%s: Updating json entry: '%s' (new type = %d)\n", __func__, key.text, static_cast<int>(port.type));
    zel_json_obj_t *const object = zel_json_file_load_object(gpio_json, parent, key.text);
    if (object == nullptr) {
        log_message(0, "%s: Failed to load json object: %s\n", __func__, key.text);
        return -1;
    }
    if (zel_json_file_set_integer(gpio_json, object, "type", static_cast<int32_t>(port.type)) != 0) {
        log_message(0, "%s: Failed to set type for json object: %s to %d\n", __func__, key.text, static_cast<int>(port.type));
        return -1;
    }
    remove_stale_keys(object, port);
    const int32_t result = write_settings(object, port, key.text);
    if (startup_done) {
        (void)update_on_grid_triggers();
        (void)update_on_grid_handlers();
    }
    return result;
}

int32_t update_relay_json(int32_t index)
{
    zel_assert(relays != NULL);
    zel_assert_as(index >= 0 && index < relay_count, "index < relay_count");
    if (relays_json_obj == nullptr) {
        log_message(0, "%s: relays_json_obj is NULL\n", __func__);
        return -1;
    }
    const port_name key = relay_key(index);
    zel_json_obj_t *const object = zel_json_file_load_object(gpio_json, relays_json_obj, key.text);
    if (object == nullptr) {
        log_message(0, "%s: Failed to load json object: relay->%s\n", __func__, key.text);
        return -1;
    }
    return write_trigger_list(object, triggers_of(relays[index]), "triggers", "trigger_invert", __func__);
}

int32_t update_handler_json(int32_t id)
{
    handler_t &handler = handler_list[id];
    if (handler.json_obj == nullptr) return 0;
    log_message(2, "%s: Updating json entry: '%s'\n", __func__, handler.name);
    return write_trigger_list(handler.json_obj, triggers_of(handler), "triggers", "trigger_inverts", __func__);
}

int32_t update_on_grid_handlers()
{
    if (gpio_json_obj == nullptr) return -1;
    if (on_grid_handlers_text == nullptr) return 0;  // never read: what is saved must not be replaced
    list_text names;
    for (handler_t &handler : handler_list) {
        if (!listed_on_grid(handler)) continue;
        if (handler.json_obj == nullptr && handler_info_json_obj != nullptr)
            handler.json_obj = zel_json_file_load_object(gpio_json, handler_info_json_obj, handler.name);
        if (handler.json_obj == nullptr) log_message(1, "Failed to load handler info json obj for '%s'\n", handler.name);
        names.add_joined(", ", handler.name);
    }
    return save_on_grid("on_grid_handlers", names, on_grid_handlers_text, __func__);
}

int32_t update_on_grid_triggers()
{
    if (gpio_json_obj == nullptr) return -1;
    if (on_grid_triggers_text == nullptr) return 0;
    list_text names;
    for (const trigger_t &trigger : trigger_list) {
        if (trigger.name != nullptr && trigger.on_grid != 0) names.add_joined(", ", trigger.name);
    }
    return save_on_grid("on_grid_triggers", names, on_grid_triggers_text, __func__);
}

}  // namespace zel

using namespace zel;

static int32_t saved_count(zel_json_obj_t **object, const char *key)
{
    return init_gpio_json_objs() == 0 ? zel_json_file_load_integer(gpio_json, *object, key, 0) : -1;
}

int32_t zel_gpio_get_phys_gpio_count(void)
{
    return saved_count(&phys_gpio_json_obj, "phys_gpio_count");
}

int32_t zel_gpio_get_virt_gpio_count(void)
{
    return saved_count(&virt_gpio_json_obj, "virtual_gpio_count");
}

int32_t zel_gpio_get_relay_count(void)
{
    return saved_count(&relays_json_obj, "relay_count");
}
