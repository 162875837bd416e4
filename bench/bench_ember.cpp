// What Ember+ costs: coding of parameters (in processor time) and, in bench_ember_link.cpp, exchanges with clients. Medians of
// interleaved rounds.

#include "bench_ember.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <new>

#include "glow.h"
#include "s101.h"

void *operator new(size_t size)
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void *memory = std::malloc(size))
        return memory;
    throw std::bad_alloc();
}
void operator delete(void *memory) noexcept { std::free(memory); }
void operator delete(void *memory, size_t) noexcept { std::free(memory); }

namespace {

namespace glow = zel::ember::glow;
namespace s101 = zel::ember::s101;
using bytes = std::vector<uint8_t>;

// Of this thread: coding waits for nothing, and what else the machine does is not part of it.
double processor_seconds()
{
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

constexpr int directory_size = 100;

void put_directory(zel::ember::ber::writer &w)
{
    namespace field = glow::parameter_field;
    const uint32_t where[] = {1, 1, 1, 1};
    for (uint32_t i = directory_size; i > 0; --i) {
        const size_t mark = w.mark();
        glow::put_integer(w, field::type, glow::type_enum);
        glow::put_utf8(w, field::enumeration, "disabled\ninput\noutput");
        glow::put_integer(w, field::access, 3);
        glow::put_integer(w, field::value, i % 3);
        glow::put_utf8(w, field::identifier, "type");
        glow::close_contents(w, mark);
        glow::close_numbered(w, true, i, mark);
    }
    glow::close_children(w, 0);
    glow::close_qualified(w, false, where, 0);
    glow::close_root(w, 0);
}

struct counter final : glow::sink {
    size_t parameters = 0;
    void element_begin(const glow::element &e) override { parameters += e.contents.current.kind == glow::value_kind::integer; }
};

void bench_coding()
{
    std::vector<double> encode, decode;
    bytes frames;
    zel::ember::ber::writer w;
    for (int round = 0; round < 41; ++round) {
        constexpr int messages = 200;
        double start = processor_seconds();
        for (int i = 0; i < messages; ++i) {
            w.clear();
            frames.clear();
            put_directory(w);
            s101::append_message(frames, w.message());
        }
        encode.push_back(messages * directory_size / (processor_seconds() - start));
        counter found;
        s101::decoder decoder(1 << 20);
        start = processor_seconds();
        for (int i = 0; i < messages; ++i)
            for (std::span<const uint8_t> rest = frames; !rest.empty();) {
                s101::event what;
                rest = rest.subspan(decoder.feed(rest, what));
                if (what == s101::event::message)
                    (void)glow::read_message(decoder.message(), found);
            }
        decode.push_back(static_cast<double>(found.parameters) / (processor_seconds() - start));
    }
    std::printf("coding of full parameters in directories of %d, frames included | encode %.2f million/s | "
                "decode %.2f million/s\n",
                directory_size, median(encode) / 1e6, median(decode) / 1e6);
}

}  // namespace

int main()
{
    bench_coding();
    bench_round_trips();
    bench_notifications();
    return 0;
}
