#include "live_changes.h"

#include "common/json_reading.h"
#include "panel.h"
#include "zel_gpio.h"
#include "zel_sys.h"

#include <algorithm>
#include <cstring>

namespace zel {
namespace {

constexpr const char *queries[] = {"grid", "getFreeGpio=0", "getFreeGpio=1"};
constexpr const char *kind_names[] = {"triggers", "handlers", "ports", "sources", "relays", "pins", "leds", "buttons"};
constexpr size_t first_size = size_t{64} << 10, largest_size = size_t{64} << 20;

bool ends_before_state(std::string_view text)
{
    return text.ends_with("\"state\":") || text.ends_with("\"vgpo_src_valid\":");
}

// Length of the truth value that begins there, or 0.
size_t truth_length(std::string_view text)
{
    return text.starts_with("true") ? 4 : text.starts_with("false") ? 5 : 0;
}

// The part of a document that lists items, without the connections between them, which are many.
std::string items_of(const std::string &document)
{
    const size_t end = document.find(",\"connections\":[");   // no name holds this: its quotes would be escaped
    return end == std::string::npos ? document : document.substr(0, end) + "}";
}

int number_in(const json_t *object, const char *key)
{
    const json_t *const value = json_object_get(object, key);
    return json_is_integer(value) ? static_cast<int>(json_integer_value(value)) : -1;
}

std::string changes_of(const std::map<int, int> &before, const std::map<int, int> &now)
{
    std::string list;
    for (const auto &[id, level] : now) {
        const auto known = before.find(id);
        if (known != before.end() && known->second == level) continue;
        list += (list.empty() ? "[" : ",[") + std::to_string(id) + "," + std::to_string(level) + "]";
    }
    return list;
}

}  // namespace

bool differ_in_states_only(std::string_view a, std::string_view b)
{
    while (true) {
        const auto [in_a, in_b] = std::ranges::mismatch(a, b);
        const size_t at = static_cast<size_t>(in_a - a.begin());
        if (at == a.size() && at == b.size()) return true;
        const size_t a_length = truth_length(a.substr(at)), b_length = truth_length(b.substr(at));
        if (a_length == 0 || b_length == 0 || !ends_before_state(a.substr(0, at))) return false;
        a.remove_prefix(at + a_length);
        b.remove_prefix(at + b_length);
    }
}

// A text that does not fit is a failure; so is a unit without ports, whose text stays empty.
std::string live_changes::write(const char *query, const std::string &last) const
{
    for (size_t size = std::max(first_size, last.size() * 2); size <= largest_size; size *= 4) {
        if (buffer_.size() < size) buffer_.resize(size);
        int status = 200;
        char *reply = nullptr;
        size_t length = 0;
        (void)url_handler_gpioGrid.func(nullptr, query, std::strlen(query), nullptr, 0, &status, &reply, &length, nullptr,
                                        buffer_.data(), buffer_.size());
        if (status == 200) return reply != nullptr ? std::string(reply, length) : "";
    }
    return "";
}

void live_changes::take_document_levels(snapshot &shot) const
{
    const auto take = [&](const json_t *list) {
        for (size_t i = 0; i < json_array_size(list); ++i) {
            const json_t *const each = json_array_get(list, i);
            const char *const word = json_string_value(json_object_get(each, "class"));
            const json_t *const state = json_object_get(each, "state"), *const valid = json_object_get(each, "vgpo_src_valid");
            const int index = number_in(each, "index");
            if (word == nullptr || std::strcmp(word, "event") == 0) continue;
            shot.now[std::strcmp(word, "relay") == 0 ? relays : ports][index] = json_is_true(state);
            if (valid != nullptr) shot.now[sources][index] = json_is_true(valid);
        }
    };
    for (const std::string &text : shot.texts) {
        const std::string items = items_of(text);
        const json_handle document(json_loadb(items.data(), items.size(), 0, nullptr));
        for (const char *list : {"inputs", "outputs", "gpio"}) take(json_object_get(document.get(), list));
    }
}

void live_changes::take_table_levels(level_tables &now) const
{
    for (const trigger_t &each : trigger_list) {
        if (each.name != nullptr) now[triggers][each.id] = each.state != 0;
    }
    for (const handler_t &each : handler_list) {
        if (each.name != nullptr) now[handlers][each.id] = each.state != 0;
    }
}

void live_changes::take_panel_levels(level_tables &now) const
{
    const auto port_level = [&now](int32_t index) {
        const auto found = now[ports].find(index);
        return found != now[ports].end() && found->second != 0;
    };
    for (const panel_pin &each : panel_pins(unit_)) now[pins][each.pin] = pin_level(each, port_level(each.port));
    for (int number = 1; number <= unit_.settings.user_buttons; ++number) {
        now[leds][number] = zel_gpio_get_user_button_state(number - 1) != 0;
        now[buttons][number] = port_level(*unit_.ports.index_of({port_kind::user_button, number}));
    }
}

live_changes::snapshot live_changes::look() const
{
    snapshot shot;
    for (size_t i = 0; i < std::size(queries); ++i) shot.texts[i] = write(queries[i], last_.texts[i]);
    if (shot.texts == last_.texts) {
        for (const kind each : {ports, sources, relays}) shot.now[each] = last_.now[each];
    } else {
        take_document_levels(shot);
    }
    take_table_levels(shot.now);
    take_panel_levels(shot.now);
    return shot;
}

void live_changes::begin()
{
    last_ = look();
}

void live_changes::tell(const sink &out)
{
    snapshot now = look();
    std::string data;
    for (size_t i = 0; i < kind_count; ++i) {
        const std::string list = changes_of(last_.now[i], now.now[i]);
        if (!list.empty()) data += std::string(data.empty() ? "{\"" : ",\"") + kind_names[i] + "\":[" + list + "]";
    }
    bool same_grid = true;
    for (size_t i = 0; i < now.texts.size(); ++i) same_grid &= differ_in_states_only(last_.texts[i], now.texts[i]);
    last_ = std::move(now);
    if (!data.empty()) out("levels", data + "}");
    if (!same_grid) out("grid", "{}");
}

}  // namespace zel
