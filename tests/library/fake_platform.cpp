#include "fake_platform.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>

#include "fake_state.h"

namespace fake {

namespace {

state *current;
bool library_was_started;

__attribute__((format(printf, 1, 0))) std::string format_list(const char *text, va_list args)
{
    char buffer[8192];
    std::vsnprintf(buffer, sizeof buffer, text, args);
    return buffer;
}

int call_back(void *arg, int32_t source, uint8_t level, uintptr_t context)
{
    auto *call = static_cast<handler_call *>(arg);
    write_line(format("callback %s source %d state %u context %lu", call->name.c_str(), source, level,
                      static_cast<unsigned long>(context)));
    if (call->hook)
        call->hook(source, level, context);
    return 0;
}

}  // namespace

state &now()
{
    if (current == nullptr)
        misuse("a platform function was called while there is no unit");
    return *current;
}

void misuse(const char *text, ...)
{
    va_list args;
    va_start(args, text);
    std::fprintf(stderr, "fake platform: %s\n", format_list(text, args).c_str());
    va_end(args);
    std::abort();
}

std::string format(const char *text, ...)
{
    va_list args;
    va_start(args, text);
    std::string result = format_list(text, args);
    va_end(args);
    return result;
}

void write_line(const std::string &line) { now().journal.push_back(line); }

bool must_fail(const std::string &line, bool quiet)
{
    state &s = now();
    bool fails = s.calls++ == s.nth_to_fail;
    for (fault &f : s.faults) {
        if (fails || f.left == 0 || !begins_with(line, f.call))
            continue;
        fails = true;
        if (f.left > 0)
            --f.left;
    }
    if (fails)
        s.fired = true;
    if (fails || !quiet)
        s.journal.push_back(fails ? line + " failed" : line);
    return fails;
}

std::string joined(const lines &list)
{
    std::string all;
    for (const std::string &line : list)
        all += line + "\n";
    return all;
}

bool begins_with(std::string_view line, std::string_view prefix)
{
    if (line.substr(0, prefix.size()) != prefix)
        return false;
    if (prefix.empty() || line.size() == prefix.size())
        return true;
    const char next = line[prefix.size()];
    return next == ' ' || next == '/' || prefix.back() == ' ' || prefix.back() == '/';
}

lines only(const lines &list, const std::vector<std::string> &prefixes)
{
    lines result;
    for (const std::string &line : list)
        if (std::any_of(prefixes.begin(), prefixes.end(), [&](const std::string &p) { return begins_with(line, p); }))
            result.push_back(line);
    return result;
}

lines without(const lines &list, const std::vector<std::string> &prefixes)
{
    lines result;
    for (const std::string &line : list)
        if (std::none_of(prefixes.begin(), prefixes.end(), [&](const std::string &p) { return begins_with(line, p); }))
            result.push_back(line);
    return result;
}

int32_t message::int_at(size_t offset) const
{
    int32_t number = -1111111;
    if (offset + sizeof number <= payload.size())
        std::memcpy(&number, payload.data() + offset, sizeof number);
    return number;
}

std::string message::text_at(size_t offset, size_t size) const
{
    std::string text;
    for (size_t i = offset; i < offset + size && i < payload.size() && payload[i] != 0; ++i)
        text += static_cast<char>(payload[i]);
    return text;
}

// ---- Description ----

unit::unit() : my(std::make_unique<state>())
{
    if (current != nullptr)
        misuse("there is a unit already");
    current = my.get();
    my->json_root = new_json(zel_json_obj::object);
}

unit::~unit()
{
    if (my->running)
        stop();
    for (zel_sys_gpio *pin : my->pins) {
        close(pin->fd);
        delete pin;
    }
    for (zel_ipc_client *client : my->clients)
        delete client;
    for (zel_ember_session *session : my->sessions)
        delete session;
    release_elements(my->ember_root);
    release_json(my->json_root);
    delete my->file;
    current = nullptr;
}

unit &unit::gpi(int32_t in_pin, int32_t out_pin, bool in_active_low, bool out_active_low)
{
    my->phys_cfg.push_back({in_pin, in_active_low, out_pin, out_active_low, 0});
    return *this;
}

unit &unit::cough(int32_t in_pin, bool in_active_low)
{
    my->phys_cfg.push_back({in_pin, in_active_low, in_pin + 100, 0, 1});
    return *this;
}

unit &unit::gpis(int count)
{
    for (int i = 0; i < count; ++i)
        gpi(1 + static_cast<int32_t>(my->phys_cfg.size()), 101 + static_cast<int32_t>(my->phys_cfg.size()));
    return *this;
}

unit &unit::coughs(int count)
{
    for (int i = 0; i < count; ++i)
        cough(1 + static_cast<int32_t>(my->phys_cfg.size()));
    return *this;
}

unit &unit::relays(int32_t count, int32_t base_pin)
{
    my->relay_count = count;
    my->relay_base_pin = base_pin;
    return *this;
}

unit &unit::virtuals(int32_t count) { return my->virtual_count = count, *this; }
unit &unit::buttons(int32_t count) { return my->button_count = count, *this; }
unit &unit::udp(bool enabled) { return my->udp_config.udp_enabled = enabled, *this; }
unit &unit::friendly_name(const std::string &name) { return my->udp_config.friendly_name = name, *this; }
unit &unit::interface_index(int index) { return my->publish_config.interface_index = index, *this; }
unit &unit::product(const std::string &id) { return my->product = id, *this; }
unit &unit::without_udp_config() { return my->has_udp_config = false, *this; }
unit &unit::without_parent() { return my->has_parent = false, *this; }
unit &unit::without_publish_config() { return my->has_publish_config = false, *this; }
unit &unit::null_phys_cfg() { return my->phys_cfg_is_null = true, *this; }
unit &unit::phys_count(int32_t count) { return my->phys_count = count, *this; }

unit &unit::ember(uint16_t port, const char *parent_name)
{
    my->ember_port = port;
    my->provider = std::make_unique<zel_ember_session>();
    my->ember_root = new_element("node", "", nullptr);
    my->ember_parent = new_element("node", parent_name, my->ember_root);
    return *this;
}

unit &unit::config(const std::string &json)
{
    release_json(my->json_root);
    my->json_root = parse_json(json);
    return *this;
}

unit &unit::set_json(const std::string &path, const std::string &json)
{
    put_json(my->json_root, "gpio/" + path, parse_json(json));
    return *this;
}

unit &unit::set(const std::string &path, int value)
{
    zel_json_obj *number = new_json(zel_json_obj::integer);
    number->number = value;
    put_json(my->json_root, "gpio/" + path, number);
    return *this;
}

unit &unit::set_boolean(const std::string &path, bool value)
{
    zel_json_obj *flag = new_json(zel_json_obj::boolean);
    flag->number = value;
    put_json(my->json_root, "gpio/" + path, flag);
    return *this;
}

unit &unit::set(const std::string &path, const char *value)
{
    zel_json_obj *text = new_json(zel_json_obj::text);
    set_json_text(text, value);
    put_json(my->json_root, "gpio/" + path, text);
    return *this;
}

// ---- Life and host ----

int32_t unit::start()
{
    if (library_was_started)
        misuse("the library can be started once per process: run this program's tests one by one, as ctest does");
    library_was_started = true;
    my->running = true;
    const int32_t count = my->phys_count >= 0 ? my->phys_count : static_cast<int32_t>(my->phys_cfg.size());
    // A table of exactly the size that the library may read.
    std::vector<gpio_phys_cfg_t> table(my->phys_cfg);
    table.resize(std::max<size_t>(static_cast<size_t>(count), 1));
    table.shrink_to_fit();
    return zel_gpio_init(my->phys_cfg_is_null ? nullptr : table.data(), count, my->relay_base_pin, my->relay_count,
                         my->virtual_count, my->button_count, my->has_udp_config ? &my->udp_config : nullptr,
                         my->has_publish_config ? &my->publish_config : nullptr, my->provider.get(), my->ember_port,
                         my->has_parent ? my->ember_parent : nullptr);
}

void unit::stop()
{
    my->running = false;
    zel_gpio_term();
}

bool unit::running() const { return my->running; }

int32_t unit::handler(const std::string &name, std::function<void(int32_t, uint8_t, uintptr_t)> hook)
{
    my->handlers.push_back(std::make_unique<handler_call>(handler_call{name, std::move(hook)}));
    return zel_gpio_register_handler(name.c_str(), call_back, my->handlers.back().get());
}

int32_t unit::led_handler(int32_t led_id, std::function<void(int32_t, uint8_t, uintptr_t)> hook)
{
    my->handlers.push_back(std::make_unique<handler_call>(handler_call{format("User LED %lld", led_id + 1LL), std::move(hook)}));
    return zel_gpio_register_user_led_handler(led_id, call_back, my->handlers.back().get());
}

int32_t unit::trigger(const std::string &name) { return zel_gpio_register_trigger(name.c_str()); }

int32_t unit::trigger_id(const std::string &name)
{
    for (const trigger_t &t : trigger_list)
        if (t.name != nullptr && name == t.name)
            return t.id;
    return -1;
}

int32_t unit::handler_id(const std::string &name)
{
    for (const handler_t &h : handler_list)
        if (h.name != nullptr && name == h.name)
            return h.id;
    return -1;
}

void unit::raise(const std::string &name)
{
    if (trigger_id(name) == -1)
        misuse("no trigger is called '%s'", name.c_str());
    zel_gpio_notify_trigger_event(trigger_id(name), 1);
}

void unit::clear(const std::string &name)
{
    if (trigger_id(name) == -1)
        misuse("no trigger is called '%s'", name.c_str());
    zel_gpio_notify_trigger_event(trigger_id(name), 0);
}

// ---- Journal and faults ----

const lines &unit::journal() const { return my->journal; }
lines unit::journal_of(const std::string &prefix) const { return only(my->journal, {prefix}); }

lines unit::take()
{
    lines all;
    all.swap(my->journal);
    return all;
}

lines unit::take_of(const std::string &prefix) { return only(take(), {prefix}); }
size_t unit::mark() const { return my->journal.size(); }

lines unit::since(size_t mark, const std::string &prefix) const
{
    const lines rest(my->journal.begin() + static_cast<ptrdiff_t>(std::min(mark, my->journal.size())), my->journal.end());
    return only(rest, {prefix});
}

bool unit::logged(const std::string &line) const
{
    return std::find(my->journal.begin(), my->journal.end(), "log " + line) != my->journal.end();
}

int unit::count_of(const std::string &prefix) const { return static_cast<int>(journal_of(prefix).size()); }
void unit::note(const std::string &line) { my->journal.push_back(line); }

unit &unit::fail(const std::string &call, int times)
{
    my->faults.push_back({call, times == 0 ? -1 : times});
    return *this;
}

unit &unit::fail_nth(int nth)
{
    my->nth_to_fail = my->calls + nth;
    return *this;
}

void unit::heal()
{
    my->faults.clear();
    my->nth_to_fail = -1;
}

bool unit::fault_fired() const { return my->fired; }
int unit::calls() const { return my->calls; }
int unit::udp_queries() const { return my->udp_queries; }

}  // namespace fake

// ---- Logging ----

extern "C" void log_message(int level, const char *text, ...)
{
    va_list args;
    va_start(args, text);
    std::string line = fake::format_list(text, args);
    va_end(args);
    if (!line.empty() && line.back() == '\n')
        line.pop_back();
    else
        line += " (no line feed)";
    fake::write_line(fake::format("log %d ", level) + line);
}
