// Reading ends, stays inside its input, and agrees with itself; what is written is read back.

#include <cmath>

#include "ember_fuzz.h"

namespace {

namespace ber = zel::ember::ber;

size_t walk(ber::reader &r, std::span<const uint8_t> whole, size_t depth, bool enter_all)
{
    size_t count = 0;
    for (ber::item found; r.next(found); ++count) {
        if (!found.contents.empty())
            FUZZ_CHECK(found.contents.data() >= whole.data() &&
                       found.contents.data() + found.contents.size() <= whole.data() + whole.size());
        if (!found.is_constructed() || !(enter_all || count % 2) || !r.enter())
            continue;
        FUZZ_CHECK(depth < ber::max_depth);
        count += walk(r, whole, depth + 1, enter_all);
        r.leave();
    }
    return count;
}

void check_values(std::span<const uint8_t> contents)
{
    ber::writer w;
    if (const auto number = ber::to_integer(contents)) {
        w.integer(*number);
        FUZZ_CHECK(w.message().size() <= contents.size() + 2);
        FUZZ_CHECK(ber::to_integer(w.message().subspan(2)) == number);
    }
    if (const auto real = ber::to_real(contents)) {
        w.clear();
        w.real(*real);
        const auto back = ber::to_real(w.message().subspan(2));
        FUZZ_CHECK(back && (std::isnan(*real) ? std::isnan(*back) : *back == *real));
    }
    uint32_t numbers[32];
    if (const auto count = ber::to_path(contents, numbers)) {
        w.clear();
        w.path({numbers, *count});
        uint32_t again[32];
        const auto back = ber::to_path(w.message().subspan(2), again);
        FUZZ_CHECK(back == count && std::equal(numbers, numbers + *count, again));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::span<const uint8_t> message(data, size);
    const auto verdict = ber::check(message);
    ber::reader all(message), some(message);
    (void)walk(all, message, 0, true);
    FUZZ_CHECK(all.failed() == (verdict != ber::verdict::sound));
    (void)walk(some, message, 0, false);
    // What is stepped over is looked at less closely, never more.
    FUZZ_CHECK(!some.failed() || all.failed());
    check_values(message.first(std::min<size_t>(size, 40)));
    return 0;
}
