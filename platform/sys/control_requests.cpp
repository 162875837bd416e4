#include "control_requests.h"

#include "pin.h"
#include "zel_sys.h"

#include <charconv>

namespace zel {
namespace {

std::string move_contact(int32_t pin, int pressed, request_effects &effects)
{
    if (zel_sys_sim_press(pin, pressed) != 0) return "error pin " + std::to_string(pin) + " is not simulated";
    effects.moves_contact = true;
    return "ok " + std::to_string(pin) + " " + std::to_string(pressed);
}

std::string press(int32_t pin, request_effects &effects)
{
    return move_contact(pin, 1, effects);
}

std::string release(int32_t pin, request_effects &effects)
{
    return move_contact(pin, 0, effects);
}

std::string read_level(int32_t pin, request_effects &)
{
    const pin_state *const state = find_pin_state(pin);
    const bool known = state != nullptr && state->open != nullptr;
    const int level = known ? state->level : zel_sys_sim_level(pin);
    if (level < 0) return "error pin " + std::to_string(pin) + " is not open";
    return "ok " + std::to_string(pin) + " " + std::to_string(level);
}

const char *direction_word(int32_t direction)
{
    return direction == direction_output ? "out" : "in";
}

std::string list(int32_t, request_effects &)
{
    std::string pins;
    int count = 0;
    for (const auto &[number, state] : pin_states()) {
        if (state.open == nullptr) continue;
        ++count;
        pins += " " + std::to_string(number) + ":" + direction_word(state.direction) + ":" + std::to_string(state.level);
    }
    return "ok " + std::to_string(count) + pins;
}

std::string watch(int32_t, request_effects &effects)
{
    effects.watches = true;
    return "ok watching";
}

std::string help(int32_t, request_effects &)
{
    return "ok press N | release N | read N | list | watch | help";
}

struct request_row {
    std::string_view word;
    bool takes_pin;
    std::string (*answer)(int32_t pin, request_effects &effects);
};

constexpr request_row rows[] = {
    {"press", true, press}, {"release", true, release}, {"read", true, read_level},
    {"list", false, list},  {"watch", false, watch},    {"help", false, help},
};

std::string_view next_word(std::string_view &text)
{
    constexpr std::string_view blanks = " \t\r";
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    const std::string_view word = text.substr(0, text.find_first_of(blanks));
    text.remove_prefix(word.size());
    return word;
}

bool is_pin_number(std::string_view word, int32_t &pin)
{
    const auto [rest, error] = std::from_chars(word.data(), word.data() + word.size(), pin);
    return error == std::errc() && rest == word.data() + word.size() && pin >= 0;
}

}  // namespace

std::string answer_request(std::string_view request, request_effects &effects)
{
    const std::string_view word = next_word(request);
    const std::string_view argument = next_word(request);
    const bool ended = next_word(request).empty();
    for (const request_row &row : rows) {
        if (row.word != word) continue;
        int32_t pin = -1;
        if (row.takes_pin && (!is_pin_number(argument, pin) || !ended)) return "error needs one pin number";
        if (!row.takes_pin && !argument.empty()) return "error takes nothing behind it";
        return row.answer(pin, effects);
    }
    return "error no such request, try help";
}

std::string change_text(int32_t pin, int32_t direction, int level)
{
    return "pin " + std::to_string(pin) + " " + direction_word(direction) + " " + std::to_string(level) + "\n";
}

}  // namespace zel
