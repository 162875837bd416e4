#include "zel_gpio/ember_status.h"

#include <cstring>

#include "zel_debug.h"
#include "zel_gpio/assertion.h"
#include "zel_gpio/list_text.h"

namespace zel {

namespace {

int32_t publish(zel_ember_element_t *param, const void *value, size_t length)
{
    if (ember_provider == nullptr || param == nullptr) return 0;
    return zel_ember_set_param(ember_provider, nullptr, 0, 0, param, value, length, nullptr, nullptr);
}

// As publish(), with a line in the log for a failure.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
int32_t checked(int32_t published, const char *function, const char *failure)
{
    if (published == 0) return 0;
    log_message(0, failure, function);
    return -1;
}
#pragma GCC diagnostic pop

struct port_texts {
    list_text handlers, triggers, active;
};

void write_output_texts(port_texts &texts, const gpio_port_t &port)
{
    for (int32_t k = 0; k < port.num_trigs; ++k) {
        const bool inverted = port.trig_inv[k] != 0;
        const char *const name = port.trigger_names[k] != nullptr ? port.trigger_names[k] : "";
        const char *const mark = inverted ? "!" : "";
        texts.triggers.add(k > 0 ? ", " : "", mark, name);
        // An inverted trigger counts as listed here whether its event is active or not.
        const bool active = port.trig_ids[k] != none && trigger_list[port.trig_ids[k]].state != 0;
        if (active || inverted) texts.active.add_joined(", ", mark, name);
    }
}

void write_input_texts(port_texts &texts, const gpio_port_t &port)
{
    // The separator goes by the position in the list: behind a skipped first entry the text begins with one.
    for (int32_t k = 0; k < port.num_handlers; ++k) {
        const handler_t *const handler = port.handlers[k];
        if (handler != nullptr && handler->name != nullptr) texts.handlers.add(k > 0 ? ", " : "", handler->name);
    }
}

int32_t publish_port_lists(const gpio_port_t &port, const port_texts &texts, const char *function)
{
    const int32_t handlers =
        checked(publish_text(port.ember_handlers, texts.handlers.text()), function, "%s: Failed to set handler list for gpio\n");
    const int32_t triggers =
        checked(publish_text(port.ember_triggers, texts.triggers.text()), function, "%s: Failed to set trigger list for gpio\n");
    return handlers | triggers;
}

}  // namespace

int32_t publish_text(zel_ember_element_t *param, const char *text)
{
    return publish(param, text, std::strlen(text) + 1);
}

int32_t publish_int64(zel_ember_element_t *param, int64_t value)
{
    return publish(param, &value, sizeof value);
}

int32_t publish_int32(zel_ember_element_t *param, int32_t value)
{
    return publish(param, &value, sizeof value);
}

int32_t publish_byte(zel_ember_element_t *param, uint8_t value)
{
    return publish(param, &value, sizeof value);
}

int32_t set_gpio_ember_status(gpio_port_t *port, uint8_t from_ember)
{
    zel_assert(port != NULL);
    if (ember_provider == nullptr) return 0;
    const bool output = port->type == type_output;
    port_texts texts;
    output ? write_output_texts(texts, *port) : write_input_texts(texts, *port);
    warn_if_cut(output ? texts.triggers : texts.handlers, __func__, "a port");
    const int32_t status = output ? port->active_trigs > 0 : port->state;

    (void)publish_int64(port->ember_type, port->type);
    int32_t result = from_ember == 1 ? 0 : publish_port_lists(*port, texts, __func__);
    result |= checked(publish_text(port->ember_active_triggers, texts.active.text()), __func__,
                      "%s: Failed to set gpio active trigger list parameter\n");
    (void)publish_int64(port->ember_in_mode, port->input_mode);
    result |= checked(publish_int32(port->ember_state, status), __func__, "%s: Failed to set gpio status ember parameter\n");
    if (port->vgpo_src != nullptr) (void)publish_text(port->ember_vgpo_src, port->vgpo_src);
    return result;
}

int32_t set_relay_ember_status(relay_t *relay, uint8_t from_ember)
{
    zel_assert(relay != NULL);
    if (ember_provider == nullptr || relay->ember_state == nullptr || relay->ember_active_triggers == nullptr) return 0;
    list_text triggers, active;
    for (int32_t k = 0; k < relay->num_trigs; ++k) {
        const char *const name = relay->trigger_names[k] != nullptr ? relay->trigger_names[k] : "";
        triggers.add(k > 0 ? ", " : "", name);
        if (relay->trig_ids[k] != none && trigger_list[relay->trig_ids[k]].state != 0) active.add_joined(", ", name);
    }
    warn_if_cut(triggers, __func__, "a relay");
    int32_t result = 0;
    if (from_ember != 1)
        result = checked(publish_text(relay->ember_triggers, triggers.text()), __func__, "%s: Failed to set trigger list for relay\n");
    if (checked(publish_int32(relay->ember_state, relay->active_trigs > 0), __func__,
                "%s: Failed to set relay status ember parameter\n") != 0)
        return -1;
    return result | checked(publish_text(relay->ember_active_triggers, active.text()), __func__,
                            "%s: Failed to set relay active trigger list parameter\n");
}

}  // namespace zel
