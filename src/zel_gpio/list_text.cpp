#include "zel_gpio/list_text.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "zel_debug.h"

namespace zel {

bool text_builder::add(std::string_view separator, std::string_view prefix, std::string_view text)
{
    if (cut_ || separator.size() + prefix.size() + text.size() >= size_ - length_) {
        cut_ = true;
        return false;
    }
    for (const std::string_view part : {separator, prefix, text}) {
        length_ += part.copy(buffer_ + length_, part.size());
    }
    buffer_[length_] = '\0';
    any_ = true;
    return true;
}

bool text_builder::add_joined(std::string_view separator, std::string_view prefix, std::string_view text)
{
    return add(any_ ? separator : std::string_view{}, prefix, text);
}

void warn_if_cut(const text_builder &text, const char *function, const char *what)
{
    if (text.cut()) log_message(1, "%s: List of %s is too long and ends after %zu bytes\n", function, what, text.length());
}

void saved_list::write(const char *const *list_names, const uint8_t *list_inverts, int32_t count)
{
    for (int32_t k = 0; k < count; ++k) {
        const char *const name = list_names[k] != nullptr ? list_names[k] : "";
        if (!names.add_joined(", ", name)) return;
        inverts.add_joined(", ", list_inverts[k] != 0 ? "1" : "0");
    }
}

void exchange_list::add(int32_t id, uint8_t invert)
{
    char number[sizeof("-2147483648")];
    std::snprintf(number, sizeof number, "%d", id);
    if (ids_.add_joined(",", number)) inverts_.add_joined(",", invert != 0 ? "1" : "0");
}

bool saved_pieces::next(std::string_view &piece)
{
    if (rest_ == nullptr) return false;
    const char *const end = std::strstr(rest_, ", ");
    piece = end != nullptr ? std::string_view(rest_, static_cast<size_t>(end - rest_)) : std::string_view(rest_);
    rest_ = end != nullptr ? end + 2 : nullptr;
    return true;
}

bool exchange_pieces::next(std::string_view &piece)
{
    if (rest_ == nullptr) return false;
    rest_ += std::strspn(rest_, ",");
    if (*rest_ == '\0') return false;
    piece = std::string_view(rest_, std::strcspn(rest_, ","));
    rest_ += piece.size();
    return true;
}

bool name_pieces::next(std::string_view &piece)
{
    if (rest_ == nullptr) return false;
    piece = std::string_view(rest_, std::strcspn(rest_, ","));
    rest_ = rest_[piece.size()] == ',' ? rest_ + piece.size() + 1 : nullptr;
    return true;
}

long leading_number(std::string_view piece)
{
    // Every piece ends at a comma or at the end of its text, where the conversion stops too.
    return piece.empty() ? 0 : std::strtol(piece.data(), nullptr, 10);
}

char *copy_of(std::string_view piece)
{
    char *const copy = static_cast<char *>(std::malloc(piece.size() + 1));
    if (copy == nullptr) return nullptr;
    std::memcpy(copy, piece.data(), piece.size());
    copy[piece.size()] = '\0';
    return copy;
}

}  // namespace zel
