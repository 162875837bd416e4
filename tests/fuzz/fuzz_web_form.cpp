// Forms and queries of any content. What is found lies inside the text, ends inside it, and is what a plain decoder finds.
#include "zel_www.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

const char *const keys[] = {"action", "inputID", "a b", "", "%", nullptr};
constexpr int most = 6;

void require(bool holds)
{
    if (!holds) __builtin_trap();
}

int hex(char c)
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

std::string decoded(const std::string &text)
{
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool whole = text[i] == '%' && i + 2 < text.size() && hex(text[i + 1]) >= 0 && hex(text[i + 2]) >= 0;
        const int byte = whole ? hex(text[i + 1]) * 16 + hex(text[i + 2]) : 0;
        if (byte != 0) {
            out += static_cast<char>(byte);
            i += 2;
        } else {
            out += text[i] == '+' ? ' ' : text[i];
        }
    }
    return out;
}

struct pair {
    int key;
    std::string value;
};

std::vector<pair> expected(const std::string &text)
{
    std::vector<pair> found;
    for (size_t begin = 0; begin <= text.size() && found.size() < most;) {
        const size_t end = std::min(text.find('&', begin), text.size());
        const std::string piece = text.substr(begin, end - begin);
        begin = end + 1;
        const size_t equals = piece.find('=');
        if (equals == std::string::npos) continue;
        const std::string name = decoded(piece.substr(0, equals));
        for (int key = 0; keys[key] != nullptr; ++key) {
            bool known = name != keys[key];
            for (const pair &each : found) known |= each.key == key;
            if (known) continue;
            found.push_back({key, decoded(piece.substr(equals + 1))});
            break;
        }
    }
    return found;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), strnlen(reinterpret_cast<const char *>(data), size));
    std::vector<char> form(text.c_str(), text.c_str() + text.size() + 1);
    zel_web_kvp_t pairs[most];
    const int count = zel_web_get_kvp(form.data(), keys, pairs, most);
    const std::vector<pair> wanted = expected(text);
    require(count == static_cast<int>(wanted.size()));
    for (int i = 0; i < count; ++i) {
        require(pairs[i].value >= form.data() && pairs[i].value + std::strlen(pairs[i].value) < form.data() + form.size());
        require(pairs[i].key == wanted[static_cast<size_t>(i)].key && pairs[i].value == wanted[static_cast<size_t>(i)].value);
        long number = 0;
        if (zel_web_key_valtol(pairs[i].key, pairs, most,
                               &number) == 0) require(std::to_string(number).size() <= std::strlen(pairs[i].value) + 1);
    }
    for (int i = count; i < most; ++i) require(pairs[i].key == -1 && pairs[i].value == nullptr);
    return 0;
}
