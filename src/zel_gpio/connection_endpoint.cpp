// "/cgi/gpioConn.cgi": POST connects an input of the grid to an output, or disconnects them.
#include <cstring>

#include "zel_debug.h"
#include "zel_gpio/connection_lists.h"
#include "zel_gpio/grid_documents.h"
#include "zel_gpio/port_type.h"
#include "zel_gpio/records.h"
#include "zel_gpio/web_form.h"

using namespace zel;

namespace {

enum form_key { key_action, key_output_class, key_output_id, key_input_class, key_input_id, key_invert };

constexpr const char *not_an_input = "Invalid input_id %ld: (Entry in gpios list is not an input)\n";
constexpr const char *not_an_output = "Invalid output_id %ld: (Entry in gpios list is not an output)\n";

// One end of a connection as the form names it.
struct grid_end {
    const char *word;
    int32_t id;

    bool is(const char *wanted) const { return std::strcmp(word, wanted) == 0; }
    bool is_event() const { return is("event"); }
    bool is_relay() const { return is("relay") && id < relay_count; }
    bool is_handler() const { return is_event() && id >= 0 && id < handler_count; }
    bool is_input_port() const { return gpios[id].type == type_input; }
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
int32_t refuse(const char *why, int32_t id)
{
    log_message(0, why, static_cast<long>(id));
    return -1;
}
#pragma GCC diagnostic pop

int32_t connect_port(const grid_end &input, const grid_end &output, uint8_t invert)
{
    if (output.is_handler()) {
        if (!input.is_input_port()) return refuse(not_an_input, input.id);
        // The web page takes this for a failure although the connection stands, and looks at the grid.
        (void)set_gpio_handler_connection(input.id, output.id, invert);
        return -1;
    }
    const int32_t trigger = trigger_of_port(input.id);
    if (output.is_relay()) return set_trigger_connection(owner_relay, 1, output.id, trigger, invert);
    if (!port_exists(output.id)) return -1;
    if (!input.is_input_port()) return refuse(not_an_input, input.id);
    if (gpios[output.id].type != type_output) return refuse(not_an_output, output.id);
    return set_gpio_to_output(output.id, trigger, invert);
}

int32_t create_connection(const grid_end &input, const grid_end &output, uint8_t invert)
{
    log_message(2, "%s: Connecting %s input %d and %s output %d (invert = %d)\n", __func__, input.word, input.id, output.word,
                output.id, invert);
    if (!input.is_event()) return port_exists(input.id) ? connect_port(input, output, invert) : -1;
    if (output.is_event()) return set_trigger_connection(owner_handler, 1, output.id, input.id, invert);
    if (output.is_relay()) return set_trigger_connection(owner_relay, 1, output.id, input.id, invert);
    return port_exists(output.id) ? set_gpio_to_output(output.id, input.id, invert) : -1;
}

int32_t disconnect_port(const grid_end &input, const grid_end &output)
{
    if (output.is_handler())
        return input.is_input_port() ? remove_gpio_handler_connection(input.id, output.id) : refuse(not_an_input, input.id);
    const int32_t owner = output.is_relay() ? owner_relay : owner_gpio;
    return set_trigger_connection(owner, 0, output.id, trigger_of_port(input.id), 0);
}

int32_t delete_connection(const grid_end &input, const grid_end &output)
{
    log_message(2, "%s: Disconnecting %s input %d and %s output %d\n", __func__, input.word, input.id, output.word, output.id);
    if (!input.is_event()) return port_exists(input.id) ? disconnect_port(input, output) : -1;
    const int32_t owner = output.is_event() ? owner_handler : output.is_relay() ? owner_relay : owner_gpio;
    return set_trigger_connection(owner, 0, output.id, input.id, 0);
}

constexpr const char *function = "url_handler_func_gpioConn";

struct conn_request {
    long action = -1, input_id = -1, output_id = -1, invert = -1;
    const char *input_class = nullptr, *output_class = nullptr;
};

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
bool present(bool found, const char *missing)
{
    if (!found) log_message(0, missing, function);
    return found;
}
#pragma GCC diagnostic pop

bool read_request(const web_form &form, conn_request &r)
{
    if (!present(form.number(key_action, r.action), "%s: Action is missing\n")) return false;
    r.input_class = form.text(key_input_class);
    if (!present(r.input_class != nullptr, "%s: Input class info is missing\n")) return false;
    r.output_class = form.text(key_output_class);
    if (!present(r.output_class != nullptr, "%s: Output class info is missing\n")) return false;
    if (!present(form.number(key_input_id, r.input_id), "%s: Input ID is missing\n")) return false;
    if (!present(form.number(key_output_id, r.output_id), "%s: Output ID is missing\n")) return false;
    (void)form.number(key_invert, r.invert);
    return true;
}

int32_t carry_out(const web_form &form, char **reply, size_t *reply_len, char *buf, size_t size)
{
    if (form.empty()) {
        log_message(0, "%s: Invalid header string\n", function);
        return -1;
    }
    conn_request r;
    if (!read_request(form, r)) return -1;
    const grid_end input{r.input_class, index_from(r.input_id)}, output{r.output_class, index_from(r.output_id)};
    const int32_t result = r.action == 1 ? create_connection(input, output, r.invert == 1) : delete_connection(input, output);
    return reply_with_empty_object(reply, reply_len, buf, size) ? result : -1;
}

int url_handler_func_gpioConn(void *, const char *, size_t, const char *body, size_t body_len, int *status, char **reply,
                              size_t *reply_len, void *, char *buf, size_t size)
{
    if (body == nullptr || body_len == 0) return 1;
    const web_form form(body, body_len, gpio_conn_str);
    if (!form.copied()) log_message(0, "%s: strdup failed\n", function);
    if (!form.copied() || carry_out(form, reply, reply_len, buf, size) < 0) *status = status_failed;
    return 1;
}

}  // namespace

extern const char *const gpio_conn_str[7] = {"action", "outputClass", "outputID", "inputClass", "inputID", "gpioInvert", nullptr};
extern const zel_web_url_handler_t url_handler_gpioConn = {"/cgi/gpioConn.cgi", url_handler_func_gpioConn};
