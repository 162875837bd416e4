#include "keyed_digest.h"

#include <sys/random.h>

#include <bit>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <system_error>

namespace zel::web {
namespace {

struct sip_state {
    uint64_t a, b, c, d;

    void rounds(int count)
    {
        for (; count > 0; --count) {
            a += b;
            c += d;
            b = std::rotl(b, 13) ^ a;
            d = std::rotl(d, 16) ^ c;
            a = std::rotl(a, 32);
            c += b;
            a += d;
            b = std::rotl(b, 17) ^ c;
            d = std::rotl(d, 21) ^ a;
            c = std::rotl(c, 32);
        }
    }

    void take(uint64_t word)
    {
        d ^= word;
        rounds(2);
        a ^= word;
    }

    uint64_t folded() const { return a ^ b ^ c ^ d; }
};

// Little-endian, `count` bytes of up to eight.
uint64_t word_at(const char *bytes, size_t count)
{
    uint64_t word = 0;
    for (size_t i = 0; i < count; ++i) word |= static_cast<uint64_t>(static_cast<unsigned char>(bytes[i])) << (8 * i);
    return word;
}

}  // namespace

keyed_digest keyed_digest::with_random_key()
{
    std::array<uint64_t, 2> key{};
    if (getrandom(key.data(), sizeof key, 0) != static_cast<ssize_t>(sizeof key)) {
        throw std::system_error(errno, std::generic_category(), "getrandom");
    }
    return keyed_digest(key);
}

digest keyed_digest::of(std::string_view text) const
{
    sip_state state{key_[0] ^ 0x736f6d6570736575ULL, key_[1] ^ 0x646f72616e646f6dULL ^ 0xee, key_[0] ^ 0x6c7967656e657261ULL,
                    key_[1] ^ 0x7465646279746573ULL};
    const uint64_t length = text.size();
    for (; text.size() >= 8; text.remove_prefix(8)) state.take(word_at(text.data(), 8));
    state.take(word_at(text.data(), text.size()) | length << 56);
    state.c ^= 0xee;
    state.rounds(4);
    digest result;
    result[0] = state.folded();
    state.b ^= 0xdd;
    state.rounds(4);
    result[1] = state.folded();
    return result;
}

bool same_digest(const digest &a, const digest &b)
{
    return ((a[0] ^ b[0]) | (a[1] ^ b[1])) == 0;
}

}  // namespace zel::web
