#include "settings_reading.h"

#include "common/json_reading.h"
#include "common/json_text.h"
#include "json_lines.h"
#include "settings_checks.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <numeric>
#include <string_view>
#include <utility>

namespace zel {
namespace {

bool is_comment(std::string_view name)
{
    return name.starts_with('#');
}

// A name with one of the signs that patterns are made of would be taken for a row elsewhere in the table.
bool is_plain_name(std::string_view name)
{
    return !name.empty() && name.find_first_of(".[*") == std::string_view::npos;
}

// A value as it stands in the file, short enough for one line of a terminal.
std::string shown(const json_t *value)
{
    constexpr size_t longest = 60;
    std::string text = json_text(value, JSON_ENCODE_ANY | JSON_COMPACT).value_or("?");
    if (text.size() > longest) text = text.substr(0, longest) + "...";
    return text;
}

size_t edit_distance(std::string_view a, std::string_view b)
{
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = std::exchange(row[0], i);
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t replaced = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
            diagonal = std::exchange(row[j], std::min({replaced, row[j] + 1, row[j - 1] + 1}));
        }
    }
    return row.back();
}

std::string_view own_name(const setting &row)
{
    return row.pattern.substr(row.pattern.rfind('.') + 1);
}

// " (did you mean ...?)" for a name that is nearly one of those known there.
std::string hint(std::string_view name, std::string_view pattern)
{
    constexpr size_t nearest_allowed = 3;
    size_t nearest = nearest_allowed + 1;
    std::string text;
    for (const setting *row : members_of(pattern)) {
        const size_t distance = edit_distance(name.substr(0, 80), own_name(*row));
        if (distance >= nearest || distance >= own_name(*row).size()) continue;
        nearest = distance;
        text = " (did you mean \"" + std::string(own_name(*row)) + "\"?)";
    }
    return text;
}

bool is_numeric_address(const char *text)
{
    in6_addr address;
    return inet_pton(AF_INET, text, &address) == 1 || inet_pton(AF_INET6, text, &address) == 1;
}

bool is_choice(std::string_view word, std::string_view choices)
{
    while (!choices.empty()) {
        const size_t bar = choices.find('|');
        if (choices.substr(0, bar) == word) return true;
        choices = bar == std::string_view::npos ? std::string_view{} : choices.substr(bar + 1);
    }
    return false;
}

bool in_range(const setting &row, int64_t number)
{
    return number >= row.min && number <= row.max;
}

bool is_plain_text(const json_t *value)
{
    return json_is_string(value) && std::strlen(json_string_value(value)) == json_string_length(value);
}

bool is_accepted(const setting &row, const json_t *value)
{
    switch (row.kind) {
    case setting_kind::object:
    case setting_kind::map: return json_is_object(value);
    case setting_kind::array: return json_is_array(value) && in_range(row, static_cast<int64_t>(json_array_size(value)));
    case setting_kind::text: return is_plain_text(value) && in_range(row, static_cast<int64_t>(json_string_length(value)));
    case setting_kind::choice: return is_plain_text(value) && is_choice(json_string_value(value), row.choices);
    case setting_kind::address: return is_plain_text(value) && is_numeric_address(json_string_value(value));
    case setting_kind::number: return json_is_integer(value) && in_range(row, json_integer_value(value));
    case setting_kind::boolean: return json_is_boolean(value);
    }
    return false;
}

std::string refusal(const setting &row, const json_t *value)
{
    const std::string wanted = "must be " + accepted_values(row);
    const bool wrong_size = json_is_array(value) && row.kind == setting_kind::array;
    return wanted + ", not " + (wrong_size ? std::to_string(json_array_size(value)) : shown(value));
}

class reader {
public:
    explicit reader(settings_reading &result) : result_(result) {}

    // Settings that are in no array or map have one value each, given or not.
    void take_defaults()
    {
        for (const setting &row : settings_table()) {
            const bool single = row.pattern.find_first_of("[*") == std::string_view::npos;
            if (single) take_default(row);
        }
    }

    void value(std::string_view pattern, const std::string &place, const json_t *given)
    {
        const setting &row = *find_setting(pattern);
        if (!is_accepted(row, given)) return wrong(place, refusal(row, given));
        if (row.store != nullptr) row.store(result_.settings, given);
        if (row.kind == setting_kind::object) members(pattern, place, given);
        if (row.kind == setting_kind::map) entries_of_map(pattern, place, given);
        if (row.kind == setting_kind::array) entries_of_array(pattern, place, given);
    }

private:
    void wrong(const std::string &place, std::string text) { result_.mistakes.push_back({place, std::move(text), 0}); }

    void take_default(const setting &row)
    {
        if (row.fallback.empty()) return;
        const json_handle value(json_loadb(row.fallback.data(), row.fallback.size(), JSON_DECODE_ANY, nullptr));
        row.store(result_.settings, value.get());
    }

    void members(std::string_view pattern, const std::string &place, const json_t *object)
    {
        const char *name;
        json_t *given;
        json_object_foreach(const_cast<json_t *>(object), name, given) {
            const std::string member = member_place(pattern, name);
            if (is_comment(name)) continue;
            if (is_plain_name(name) && find_setting(member) != nullptr) value(member, member_place(place, name), given);
            else wrong(member_place(place, name), "there is no such setting" + hint(name, pattern));
        }
        for (const setting *row : members_of(pattern)) {
            if (row->required && json_object_getn(object, own_name(*row).data(), own_name(*row).size()) == nullptr) {
                wrong(place, "\"" + std::string(own_name(*row)) + "\" is missing");
            }
        }
    }

    void new_entry(const std::string &pattern, std::string_view name)
    {
        const setting &row = *find_setting(pattern);
        if (row.enter == nullptr) return;
        row.enter(result_.settings, name);
        for (const setting *member : members_of(pattern)) take_default(*member);
    }

    void entries_of_map(std::string_view pattern, const std::string &place, const json_t *map)
    {
        const char *name;
        json_t *given;
        json_object_foreach(const_cast<json_t *>(map), name, given) {
            if (is_comment(name)) continue;
            new_entry(member_place(pattern, "*"), name);
            value(member_place(pattern, "*"), member_place(place, name), given);
        }
    }

    void entries_of_array(std::string_view pattern, const std::string &place, const json_t *array)
    {
        const std::string entry = std::string(pattern) + "[]";
        for (size_t index = 0; index < json_array_size(array); ++index) {
            new_entry(entry, {});
            value(entry, entry_place(place, index), json_array_get(array, index));
        }
    }

    settings_reading &result_;
};

// The file is known to be a small regular one that was read a moment ago.
std::string whole_text(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void find_lines(const std::string &path, std::vector<mistake> &mistakes)
{
    const std::string text = whole_text(path);
    const json_lines lines(text);
    for (mistake &each : mistakes) each.line = lines.line_of(each.place);
    for (const auto &[place, line] : lines.repeated()) {
        const bool in_comment = is_comment(place) || place.find(".#") != std::string::npos;
        if (!in_comment) mistakes.push_back({place, "is given twice", line});
    }
    std::ranges::stable_sort(mistakes, {}, &mistake::line);
}

}  // namespace

settings_reading read_settings(const std::string &path)
{
    settings_reading result;
    const json_reading file = read_json_file(path.c_str());
    if (file.state != json_state::good) {
        result.mistakes.push_back({"", file.problem, 0});
        return result;
    }
    reader whole(result);
    whole.take_defaults();
    whole.value("", "", file.root.get());
    check_settings(result.settings, result.mistakes);
    find_lines(path, result.mistakes);
    return result;
}

std::string describe(const std::string &path, const mistake &wrong)
{
    std::string text = path + ":";
    if (wrong.line > 0) text += std::to_string(wrong.line) + ":";
    if (!wrong.place.empty()) text += " " + wrong.place + ":";
    return text + " " + wrong.text;
}

}  // namespace zel
