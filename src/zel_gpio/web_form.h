// The form of a web request, decoded, with the values of a fixed table of keys.
#pragma once

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "zel_www.h"

namespace zel {

inline constexpr int form_keys = 6;

class web_form {
public:
    // Works on a copy, as decoding changes the text.
    web_form(const char *text, size_t length, const char *const *keys) : copy_(strndup(text, length))
    {
        if (copy_ != nullptr) found_ = zel_web_get_kvp(copy_, keys, pairs_, form_keys);
    }
    ~web_form() { std::free(copy_); }
    web_form(const web_form &) = delete;
    web_form &operator=(const web_form &) = delete;

    bool copied() const { return copy_ != nullptr; }
    bool empty() const { return found_ <= 0; }
    const char *text(int key) const { return zel_web_key_val(key, pairs_, form_keys); }
    // False if the value is absent or no number; `number` is then left alone.
    bool number(int key, long &number) const { return zel_web_key_valtol(key, pairs_, form_keys, &number) != -1; }

private:
    char *copy_;
    zel_web_kvp_t pairs_[form_keys] = {};
    int found_ = 0;
};

// A number that does not fit is turned into one that no table has, never into one that a table might have.
inline int32_t index_from(long number)
{
    return number < INT32_MIN || number > INT32_MAX ? INT32_MAX : static_cast<int32_t>(number);
}

// Answers with an empty JSON object. False if not even that fits.
bool reply_with_empty_object(char **reply, size_t *reply_len, char *buf, size_t size);

inline constexpr int status_failed = 501;

}  // namespace zel
