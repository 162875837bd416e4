#include "json_lines.h"

#include "common/json_reading.h"

namespace zel {

std::string member_place(std::string_view parent, std::string_view name)
{
    return parent.empty() ? std::string(name) : std::string(parent).append(".").append(name);
}

std::string entry_place(std::string_view parent, size_t index)
{
    return std::string(parent) + "[" + std::to_string(index) + "]";
}

json_lines::json_lines(std::string_view text) : text_(text)
{
    value("");
}

int json_lines::line_of(std::string_view place) const
{
    for (std::string inner(place);;) {
        const auto found = lines_.find(inner);
        if (found != lines_.end()) return found->second;
        const size_t end = inner.find_last_of(".[");
        if (inner.empty()) return 1;
        inner.resize(end == std::string::npos ? 0 : end);
    }
}

void json_lines::skip_blanks()
{
    for (; position_ < text_.size(); ++position_) {
        const char c = text_[position_];
        if (c == '\n') ++line_;
        else if (c != ' ' && c != '\t' && c != '\r') return;
    }
}

bool json_lines::take(char c)
{
    skip_blanks();
    if (position_ >= text_.size() || text_[position_] != c) return false;
    ++position_;
    return true;
}

std::string json_lines::string_token()
{
    skip_blanks();
    const size_t begin = position_;
    for (++position_; position_ < text_.size() && text_[position_] != '"'; ++position_) {
        if (text_[position_] == '\\') ++position_;
    }
    position_ = position_ < text_.size() ? position_ + 1 : text_.size();
    const std::string_view token = text_.substr(begin, position_ - begin);
    const json_handle decoded(json_loadb(token.data(), token.size(), JSON_DECODE_ANY | JSON_ALLOW_NUL, nullptr));
    return decoded ? std::string(json_string_value(decoded.get()), json_string_length(decoded.get())) : std::string(token);
}

void json_lines::object(const std::string &place)
{
    while (!take('}') && position_ < text_.size()) {
        skip_blanks();
        const int key_line = line_;
        const std::string member = member_place(place, string_token());
        if (!lines_.emplace(member, key_line).second) repeated_.push_back({member, key_line});
        take(':');
        value(member);
        take(',');
    }
}

void json_lines::array(const std::string &place)
{
    for (size_t index = 0; !take(']') && position_ < text_.size(); ++index) {
        skip_blanks();
        const std::string entry = entry_place(place, index);
        lines_.emplace(entry, line_);
        value(entry);
        take(',');
    }
}

void json_lines::value(const std::string &place)
{
    if (take('{')) return object(place);
    if (take('[')) return array(place);
    if (position_ < text_.size() && text_[position_] == '"') {
        string_token();
        return;
    }
    const size_t end = text_.find_first_of(",]} \t\r\n", position_);
    position_ = end == std::string_view::npos ? text_.size() : end;
}

}  // namespace zel
