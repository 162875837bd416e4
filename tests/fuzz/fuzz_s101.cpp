// Any stream, cut in any way, gives the same messages; any message goes through a stream unchanged.

#include <algorithm>

#include "ember_fuzz.h"

namespace {

namespace s101 = zel::ember::s101;

struct found {
    s101::event what;
    std::vector<uint8_t> message;
    bool operator==(const found &) const = default;
};

std::vector<found> decode(std::span<const uint8_t> stream, size_t piece)
{
    std::vector<found> all;
    s101::decoder decoder(4096);
    while (!stream.empty()) {
        auto part = stream.first(std::min(piece, stream.size()));
        stream = stream.subspan(part.size());
        while (!part.empty()) {
            s101::event what;
            const size_t used = decoder.feed(part, what);
            FUZZ_CHECK(used > 0 && used <= part.size());
            part = part.subspan(used);
            if (what == s101::event::too_long)
                return all;
            if (what != s101::event::none)
                all.push_back({what, {}});
            if (what == s101::event::message)
                all.back().message.assign(decoder.message().begin(), decoder.message().end());
        }
    }
    return all;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::span<const uint8_t> stream(data, size);
    const auto bytewise = decode(stream, 1);
    for (const size_t piece : {size_t{7}, std::max<size_t>(size, 1)}) {
        const auto piecewise = decode(stream, piece);
        // Pieces may differ only where a bound was reached.
        const size_t common = std::min(bytewise.size(), piecewise.size());
        FUZZ_CHECK(std::equal(bytewise.begin(), bytewise.begin() + static_cast<std::ptrdiff_t>(common), piecewise.begin()));
    }
    const auto message = stream.first(std::min<size_t>(size, 4096));
    std::vector<uint8_t> frames;
    s101::append_message(frames, message);
    const auto back = decode(frames, 13);
    FUZZ_CHECK(back.size() == 1 && back[0].what == s101::event::message);
    FUZZ_CHECK(std::ranges::equal(back[0].message, message));
    return 0;
}
