#include "zel_gpio/index_sets.h"

#include <bit>
#include <cstdlib>

namespace zel {

namespace {

constexpr int32_t bits = 64;

constexpr int32_t words_for(int32_t count)
{
    return (count + bits - 1) / bits;
}

constexpr uint64_t bit(int32_t index)
{
    return uint64_t{1} << (index % bits);
}

// Index of the first set bit at or behind `from` in `count` words, or -1.
int32_t first_bit(const uint64_t *words, int32_t count, int32_t from)
{
    int32_t word = from / bits;
    if (word >= count) return -1;
    uint64_t rest = words[word] & ~(bit(from) - 1);
    while (rest == 0) {
        if (++word == count) return -1;
        rest = words[word];
    }
    return word * bits + std::countr_zero(rest);
}

}  // namespace

bool index_sets::allocate(int32_t sets, int32_t universe)
{
    release();
    const int32_t word_count = words_for(universe), stride = word_count + words_for(word_count);
    if (stride == 0) return true;
    block_ = static_cast<uint64_t *>(std::calloc(static_cast<size_t>(sets) * static_cast<size_t>(stride), sizeof(uint64_t)));
    if (block_ == nullptr) return false;
    sets_ = sets;
    universe_ = universe;
    word_count_ = word_count;
    stride_ = stride;
    return true;
}

void index_sets::release()
{
    std::free(block_);
    *this = index_sets{};
}

void index_sets::insert(int32_t set, int32_t index)
{
    if (set < 0 || set >= sets_ || index < 0 || index >= universe_) return;
    const int32_t word = index / bits;
    words_of(set)[word] |= bit(index);
    summary_of(set)[word / bits] |= bit(word);
}

void index_sets::erase(int32_t set, int32_t index)
{
    if (set < 0 || set >= sets_ || index < 0 || index >= universe_) return;
    const int32_t word = index / bits;
    words_of(set)[word] &= ~bit(index);
    if (words_of(set)[word] == 0) summary_of(set)[word / bits] &= ~bit(word);
}

int32_t index_sets::next(int32_t set, int32_t from) const
{
    if (set < 0 || set >= sets_ || from >= universe_) return -1;
    const uint64_t *const words = words_of(set);
    const int32_t word = from / bits;
    const int32_t here = first_bit(words, word + 1, from);
    if (here != -1) return here;
    const int32_t later = first_bit(summary_of(set), words_for(word_count_), word + 1);
    return later == -1 ? -1 : first_bit(words, word_count_, later * bits);
}

}  // namespace zel
