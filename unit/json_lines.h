// On which line of a JSON text each value stands. The parser tells lines only for syntax errors, but a mistake in a setting
// should be reported where it was made.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace zel {

// Place of a member or entry: "pins[3].in_pin"; the root is "".
std::string member_place(std::string_view parent, std::string_view name);
std::string entry_place(std::string_view parent, size_t index);

class json_lines {
public:
    // `text` is known to be well-formed JSON.
    explicit json_lines(std::string_view text);

    // Line of a value, counting from 1; that of the nearest enclosing value for one that is not there.
    int line_of(std::string_view place) const;
    struct repetition {
        std::string place;
        int line;  // of the later one
    };
    // Members that are given more than once, in the text's order.
    const std::vector<repetition> &repeated() const { return repeated_; }

private:
    void value(const std::string &place);
    void object(const std::string &place);
    void array(const std::string &place);
    std::string string_token();
    void skip_blanks();
    bool take(char c);

    std::string_view text_;
    size_t position_ = 0;
    int line_ = 1;
    std::unordered_map<std::string, int> lines_;
    std::vector<repetition> repeated_;
};

}  // namespace zel
