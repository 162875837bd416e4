// The unit's web server.
#include <cstdlib>

#include "fake_state.h"

namespace fake {

bool unit::serves(const std::string &path) const
{
    for (const zel_web_url_handler_t *handler : my->web_handlers)
        if (path == handler->path)
            return true;
    return false;
}

web_reply unit::request(const std::string &path, const char *query, const char *body, size_t buffer_size)
{
    for (const zel_web_url_handler_t *handler : my->web_handlers) {
        if (path != handler->path)
            continue;
        // Buffers of exactly their sizes, so that an overrun is seen.
        const std::unique_ptr<char[]> buffer(new char[buffer_size]);
        const size_t query_len = query == nullptr ? 0 : std::strlen(query), body_len = body == nullptr ? 0 : std::strlen(body);
        const std::unique_ptr<char[]> query_copy(query == nullptr ? nullptr : strcpy(new char[query_len + 1], query));
        const std::unique_ptr<char[]> body_copy(body == nullptr ? nullptr : strcpy(new char[body_len + 1], body));
        std::memset(buffer.get(), 'x', buffer_size);
        web_reply reply{0, 200, "", false};
        char *text = nullptr;
        size_t length = 0;
        reply.result = handler->func(nullptr, query_copy.get(), query_len, body_copy.get(), body_len, &reply.status, &text,
                                     &length, nullptr, buffer.get(), buffer_size);
        reply.has_text = text != nullptr;
        if (text != nullptr)
            reply.text.assign(text, length);
        return reply;
    }
    misuse("nothing serves %s", path.c_str());
}

namespace {

int hex(char c)
{
    return c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

void form_decode(char *text)
{
    char *out = text;
    for (; *text != 0; ++text, ++out) {
        *out = *text == '+' ? ' ' : *text;
        if (*text == '%' && hex(text[1]) >= 0 && hex(text[2]) >= 0) {
            *out = static_cast<char>(hex(text[1]) * 16 + hex(text[2]));
            text += 2;
        }
    }
    *out = 0;
}

int index_of(const char *key, const char *const *keys)
{
    for (int i = 0; keys[i] != nullptr; ++i)
        if (std::strcmp(keys[i], key) == 0)
            return i;
    return -1;
}

}  // namespace
}  // namespace fake

using namespace fake;

extern "C" {

int zel_web_server_add_handler(const zel_web_url_handler_t *handler)
{
    if (must_fail(format("web add %s", handler->path)))
        return -1;
    now().web_handlers.push_back(handler);
    return 0;
}

int zel_web_get_kvp(char *text, const char *const *keys, zel_web_kvp_t *pairs, int max_pairs)
{
    for (int i = 0; i < max_pairs; ++i)
        pairs[i] = {-1, nullptr};
    int found = 0;
    for (char *rest = nullptr, *piece = strtok_r(text, "&", &rest); piece != nullptr; piece = strtok_r(nullptr, "&", &rest)) {
        char *value = std::strchr(piece, '=');
        if (value == nullptr)
            continue;
        *value++ = 0;
        form_decode(piece);
        form_decode(value);
        const int key = index_of(piece, keys);
        if (key >= 0 && found < max_pairs && zel_web_key_val(key, pairs, found) == nullptr)
            pairs[found++] = {key, value};
    }
    return found;
}

const char *zel_web_key_val(int key, const zel_web_kvp_t *pairs, int max_pairs)
{
    for (int i = 0; i < max_pairs; ++i)
        if (pairs[i].key == key && key >= 0)
            return pairs[i].value;
    return nullptr;
}

int zel_web_key_valtol(int key, const zel_web_kvp_t *pairs, int max_pairs, long *number)
{
    const char *text = zel_web_key_val(key, pairs, max_pairs);
    if (text == nullptr || *text == 0)
        return -1;
    char *end = nullptr;
    errno = 0;
    const long value = std::strtol(text, &end, 10);
    if (*end != 0 || errno != 0 || *text == ' ' || *text == '+')
        return -1;
    *number = value;
    return 0;
}

}  // extern "C"
