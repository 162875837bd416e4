#include "zel_www.h"

#include <charconv>
#include <cstring>

namespace {

int hex_digit(char digit)
{
    if (digit >= '0' && digit <= '9') return digit - '0';
    const char lower = static_cast<char>(digit | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// The byte that the three characters at `text` stand for; 0 for %00, which stays as it is written, as what is no sequence does.
int encoded_byte(const char *text)
{
    const int high = text[0] == '%' ? hex_digit(text[1]) : -1;
    const int low = high >= 0 ? hex_digit(text[2]) : -1;
    return low >= 0 ? high * 16 + low : 0;
}

void decode_in_place(char *text)
{
    char *out = text;
    while (*text != '\0') {
        const int byte = encoded_byte(text);
        *out++ = byte != 0 ? static_cast<char>(byte) : *text == '+' ? ' ' : *text;
        text += byte != 0 ? 3 : 1;
    }
    *out = '\0';
}

// Cuts the text up to the next '&' off and returns what follows, or null.
char *cut_piece(char *text)
{
    char *const end = std::strchr(text, '&');
    if (end == nullptr) return nullptr;
    *end = '\0';
    return end + 1;
}

int key_index(const char *name, const char *const *keys)
{
    for (int i = 0; keys[i] != nullptr; ++i) {
        if (std::strcmp(keys[i], name) == 0) return i;
    }
    return -1;
}

// 1 when the piece gave a pair.
int take_piece(char *piece, const char *const *keys, zel_web_kvp_t *pairs, int count)
{
    char *const equals = std::strchr(piece, '=');
    if (equals == nullptr) return 0;
    *equals = '\0';
    decode_in_place(piece);
    const int key = key_index(piece, keys);
    if (key < 0 || zel_web_key_val(key, pairs, count) != nullptr) return 0;
    decode_in_place(equals + 1);
    pairs[count] = {key, equals + 1};
    return 1;
}

}  // namespace

int zel_web_get_kvp(char *text, const char *const *keys, zel_web_kvp_t *pairs, int max_pairs)
{
    if (pairs == nullptr) return 0;
    for (int i = 0; i < max_pairs; ++i) pairs[i] = {-1, nullptr};
    int count = 0;
    while (text != nullptr && keys != nullptr && count < max_pairs) {
        char *const next = cut_piece(text);
        count += take_piece(text, keys, pairs, count);
        text = next;
    }
    return count;
}

const char *zel_web_key_val(int key, const zel_web_kvp_t *pairs, int max_pairs)
{
    if (pairs == nullptr || key < 0) return nullptr;
    for (int i = 0; i < max_pairs; ++i) {
        if (pairs[i].key == key) return pairs[i].value;
    }
    return nullptr;
}

int zel_web_key_valtol(int key, const zel_web_kvp_t *pairs, int max_pairs, long *number)
{
    const char *text = zel_web_key_val(key, pairs, max_pairs);
    if (text == nullptr || number == nullptr) return -1;
    if (text[0] == '+' && text[1] != '-') ++text;
    const char *const end = text + std::strlen(text);
    long value;
    const auto [stop, error] = std::from_chars(text, end, value);
    if (error != std::errc{} || stop != end) return -1;
    *number = value;
    return 0;
}
