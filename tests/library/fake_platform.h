// A unit made of memory: the platform functions of the library under test, defined in the test program itself.
//
// Every call that has an effect becomes one line of one ordered journal, every call can be made to fail, and everything that the
// library borrows or holds (texts, objects, pins, elements, sessions, clients) is really released when the platform would
// release it: stale use stops the process with a line that says what was used. See README.md for the lines and examples.
#pragma once

#include <cstdint>
#include <cstring>
#include <functional>
#include <initializer_list>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "zel_gpio.h"

namespace fake {

using lines = std::vector<std::string>;
using bytes = std::vector<uint8_t>;

/// One text, a line each: compares of long journals are readable as texts.
std::string joined(const lines &list);
/// Does `line` begin with `prefix`, and does a word or path element end there?
bool begins_with(std::string_view line, std::string_view prefix);
/// Lines that begin with one of the prefixes; lines that begin with none of them.
lines only(const lines &list, const std::vector<std::string> &prefixes);
lines without(const lines &list, const std::vector<std::string> &prefixes);

/// A message that the library sent.
struct message {
    std::string client;   // "snmp" or "sdisc"
    uint8_t type;
    bytes payload;

    /// The payload as a wire record; a payload of another size gives a record of 0xEE bytes (and so fails any comparison).
    template <class T> T as() const
    {
        T record;
        std::memset(static_cast<void *>(&record), 0xEE, sizeof record);
        if (payload.size() == sizeof record)
            std::memcpy(static_cast<void *>(&record), payload.data(), sizeof record);
        return record;
    }
    int32_t int_at(size_t offset) const;                    // -1111111 when the payload is shorter
    std::string text_at(size_t offset, size_t size) const;  // up to a zero
};

struct web_reply {
    int result;
    int status;
    std::string text;
    bool has_text;   // the handler pointed its reply at something
};

/// What a parameter of the provider's tree looks like at present.
struct parameter {
    bool exists;
    std::string kind;   // "node", "string", "enum", "boolean"
    int access;
    int64_t number;
    std::string text, entries;
    void *user_data;
    bool has_callback;
};

struct consumer_request {
    std::string path;
    void *user_data;
    zel_ember_value_cb_t callback;
};

struct state;   // all that the platform functions work on
struct handler_call;

class unit {
public:
    unit();
    ~unit();   // stops the library if it runs
    unit(const unit &) = delete;
    unit &operator=(const unit &) = delete;

    // ---- Description, before start() ----

    unit &gpi(int32_t in_pin, int32_t out_pin, bool in_active_low = false, bool out_active_low = false);
    unit &cough(int32_t in_pin, bool in_active_low = false);
    unit &gpis(int count);     // port i: input pin 1 + i, output pin 101 + i, active high
    unit &coughs(int count);   // the same numbering goes on
    unit &relays(int32_t count, int32_t base_pin = 201);
    unit &virtuals(int32_t count);
    unit &buttons(int32_t count);
    unit &ember(uint16_t port = 9000, const char *parent_name = "unit");   // a provider, and a node of it for the library
    unit &without_parent();                                                 // the node's place is null
    unit &udp(bool enabled);                                                // may be changed while the unit runs
    unit &friendly_name(const std::string &name);
    unit &interface_index(int index);
    unit &product(const std::string &id);
    unit &without_udp_config();       // null in its place
    unit &without_publish_config();
    unit &null_phys_cfg();            // the table's address is null, its count stays
    unit &phys_count(int32_t count);  // another count than the table has entries (never more than 32)

    /// The whole configuration file, as JSON.
    unit &config(const std::string &json);
    /// One value below "gpio": set("physical/gpio_0/type", 1). The objects on the way are made.
    unit &set(const std::string &path, int value);
    unit &set(const std::string &path, const char *value);
    unit &set_boolean(const std::string &path, bool value);
    /// JSON text as the value.
    unit &set_json(const std::string &path, const std::string &json);

    // ---- Life ----

    int32_t start();   // zel_gpio_init; once per process
    void stop();       // zel_gpio_term
    bool running() const;

    // ---- The host ----

    /// Register a handler whose calls are journalled; `hook` runs inside each call, after its line.
    int32_t handler(const std::string &name, std::function<void(int32_t source, uint8_t state, uintptr_t context)> hook = {});
    int32_t led_handler(int32_t led_id, std::function<void(int32_t source, uint8_t state, uintptr_t context)> hook = {});
    int32_t trigger(const std::string &name);   // zel_gpio_register_trigger
    void raise(const std::string &trigger_name);
    void clear(const std::string &trigger_name);
    static int32_t trigger_id(const std::string &name);   // -1 when no slot has the name
    static int32_t handler_id(const std::string &name);

    // ---- Pins ----

    void set_level(int32_t pin, int level);   // what reading the pin gives; no interrupt
    int level(int32_t pin) const;             // last level written or set
    void edge(int32_t pin, int level);        // set_level, then one turn of the loop in which this pin is exceptional
    void loop(std::initializer_list<int32_t> exceptional_pins = {});   // zel_gpio_process_fds
    int pin_fd(int32_t pin) const;            // -1 when it is not open
    int open_pins() const;
    bool is_open(int32_t pin) const;

    // ---- Journal ----

    const lines &journal() const;
    lines journal_of(const std::string &prefix) const;
    lines take();                              // and begin anew
    lines take_of(const std::string &prefix);  // these lines; all are taken
    size_t mark() const;
    lines since(size_t mark, const std::string &prefix = "") const;
    bool logged(const std::string &line) const;   // "0 zel_gpio_init: phys_cfg is NULL"
    int count_of(const std::string &prefix) const;
    /// A line of the test's own.
    void note(const std::string &line);

    // ---- Faults ----

    /// Calls whose journal line begins with `call` fail: "pin 3 open", "json load gpio/physical/gpio_2", "json set
    /// gpio/physical/gpio_0/type", "json open", "ipc sdisc init", "ipc snmp send 12", "ember add gpio/handlers", "ember set
    /// gpio/physical/gpio 1/status", "web add /cgi/gpioConn.cgi" ... `times` 0: until heal().
    unit &fail(const std::string &call, int times = 0);
    unit &fail_nth(int nth);   // the nth call, from 0, of all that can report failure
    void heal();
    bool fault_fired() const;
    int calls() const;         // that can report failure, so far

    // ---- Messages between processes ----

    std::vector<message> sent(const std::string &client, int type = -1) const;
    void forget_sent();
    bool has_client(const std::string &client) const;
    void deliver(const std::string &client, uint8_t type, const bytes &payload);
    void deliver_without_payload(const std::string &client, uint8_t type, uint32_t length = 0);
    template <class T> void deliver_record(const std::string &client, uint8_t type, const T &record)
    {
        const auto *first = reinterpret_cast<const uint8_t *>(&record);
        deliver(client, type, bytes(first, first + sizeof record));
    }

    // ---- The provider's tree; paths begin at "gpio" ----

    parameter parameter_of(const std::string &path) const;
    std::string value_of(const std::string &path) const;   // text, or the number in decimal; "absent"
    lines tree() const;
    /// A remote consumer writes: the value is stored, then the callback called. Its result; -2 where a write is refused.
    int write(const std::string &path, int64_t value);
    int write(const std::string &path, int value) { return write(path, static_cast<int64_t>(value)); }
    int write(const std::string &path, const char *value);

    // ---- Consumer sessions, numbered from 1 in the order of their making ----

    std::vector<int> consumers() const;   // that have not been ended
    std::string consumer_address(int session) const;
    void *consumer_user_data(int session) const;
    std::vector<consumer_request> requests(int session) const;   // present ones, in order
    bool follows(int session, const std::string &path) const;
    void connected(int session, bool made, const char *address = "10.0.0.2", uint16_t port = 9000);
    void value(int session, const std::string &path, int64_t value);
    void no_value(int session, const std::string &path);
    /// What was on its way when the request was replaced or cleared: the callback of the nth request ever made on this session.
    void late_value(int session, size_t nth_request, const int64_t *value);
    size_t requests_ever(int session) const;

    // ---- The file ----

    bool file_is_open() const;
    std::string json(const std::string &path) const;   // compact JSON of what is there ("" for the root), or "absent"

    // ---- The web server ----

    bool serves(const std::string &path) const;
    web_reply request(const std::string &path, const char *query, const char *body, size_t buffer_size = 65536);

    // ---- Counters of queries, which are no effects and have no lines ----

    int udp_queries() const;

    // The handles that the library is given.
    zel_ember_session_t *provider() const;
    zel_ember_element_t *parent() const;

private:
    std::unique_ptr<state> my;
};

}  // namespace fake
