// The commands of zelctl: one table of names, arguments, requests and ways to print the answer.
#pragma once

#include "common/json_reading.h"

#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace zel {

// A command line that cannot be understood; the text says why.
struct usage_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct command_row {
    std::string_view name;
    size_t least_arguments, most_arguments;
    std::string_view options;    // that it takes, each followed by a blank; "=" behind one that has a value
    std::string_view arguments;  // as the help shows them
    std::string_view meaning;
    json_t *(*request)(const struct command_words &words);   // a new reference; may throw usage_error
    std::string (*print)(const json_t *answer);              // null: nothing is printed
};

struct option_word {
    std::string_view name;  // with its dashes
    std::string value;
};

// The words behind a command's name, taken apart.
struct command_words {
    const command_row *command;
    std::vector<std::string> arguments;
    std::vector<option_word> options;

    bool has(std::string_view option) const;
    const std::string *value_of(std::string_view option) const;  // null: not given
};

std::span<const command_row> command_table();

// `words`: the command's name and what follows it. Throws usage_error.
command_words take_command(const std::vector<std::string> &words);

// A whole number from `min` to `max`. Throws usage_error that names `what`.
int64_t number_argument(std::string_view text, std::string_view what, int64_t min, int64_t max);

}  // namespace zel
