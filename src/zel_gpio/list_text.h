// Lists as texts. Two forms exist: the saved form (names or inverts joined by ", ", in the configuration file and the tree) and
// the exchange form (decimal ids or inverts joined by ",", between the web, the tree and the list setters).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "zel_gpio/records.h"

namespace zel {

// Texts hold a full list of names of this length, each with a separator and an invert mark.
inline constexpr size_t longest_listed_name = 64;
inline constexpr size_t list_text_size = list_size * (longest_listed_name + sizeof(", ") - 1 + sizeof("!") - 1) + 1;

// Builds a text in a buffer of fixed size. An entry is written whole or not at all; after the first one that does not fit
// nothing more is added, so that parallel texts stay parallel.
class text_builder {
public:
    text_builder(char *buffer, size_t size) : buffer_(buffer), size_(size) { buffer_[0] = '\0'; }
    text_builder(const text_builder &) = delete;
    text_builder &operator=(const text_builder &) = delete;

    bool add(std::string_view separator, std::string_view prefix, std::string_view text);
    bool add(std::string_view separator, std::string_view text) { return add(separator, {}, text); }
    // As add(); the separator is left out before the first entry.
    bool add_joined(std::string_view separator, std::string_view prefix, std::string_view text);
    bool add_joined(std::string_view separator, std::string_view text) { return add_joined(separator, {}, text); }

    const char *text() const { return buffer_; }
    size_t length() const { return length_; }
    bool cut() const { return cut_; }

private:
    char *buffer_;
    size_t size_, length_ = 0;
    bool cut_ = false, any_ = false;
};

template <size_t size>
class bounded_text : public text_builder {
public:
    bounded_text() : text_builder(storage_, size) {}

private:
    char storage_[size];
};

using list_text = bounded_text<list_text_size>;

// Says in the log that a list was cut at a whole entry.
void warn_if_cut(const text_builder &text, const char *function, const char *what);

// A list in the saved form: names and inverts, with as many entries in the one as in the other.
struct saved_list {
    list_text names, inverts;

    void write(const char *const *list_names, const uint8_t *list_inverts, int32_t count);
};

// A list in the exchange form.
class exchange_list {
public:
    void add(int32_t id, uint8_t invert);
    const char *ids() const { return ids_.text(); }
    const char *inverts() const { return inverts_.text(); }

private:
    bounded_text<list_size * sizeof("-1999") + 1> ids_, inverts_;
};

// Walks the pieces of a saved text, cut at each ", ". An empty text has one empty piece.
class saved_pieces {
public:
    explicit saved_pieces(const char *text) : rest_(text) {}
    // False when the text, which may be null, is used up.
    bool next(std::string_view &piece);

private:
    const char *rest_;
};

// Walks the pieces of an exchange text, cut at each ","; empty pieces are skipped.
class exchange_pieces {
public:
    explicit exchange_pieces(const char *text) : rest_(text) {}
    bool next(std::string_view &piece);

private:
    const char *rest_;
};

// Walks the names of a list, cut at each ","; only an empty text has none.
class name_pieces {
public:
    explicit name_pieces(const char *text) : rest_(text[0] != '\0' ? text : nullptr) {}
    bool next(std::string_view &piece);

private:
    const char *rest_;
};

// The leading decimal number of a piece, 0 if there is none, the nearest long if it does not fit.
long leading_number(std::string_view piece);
inline uint8_t invert_of(std::string_view piece) { return leading_number(piece) != 0; }

// A heap copy of the piece, or null.
char *copy_of(std::string_view piece);

}  // namespace zel
