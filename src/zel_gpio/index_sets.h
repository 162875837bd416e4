// Sets of record indexes, one set per trigger. They answer "who listens to this trigger" in index order without a walk over
// the tables, so that an event costs what its listeners cost. Members are hints: a member may have stopped listening, which
// whoever walks the set finds out and erases; a listener is never missing.
#pragma once

#include <cstdint>

namespace zel {

class index_sets {
public:
    // Makes `sets` empty sets over indexes 0 .. universe - 1. False if memory is short.
    bool allocate(int32_t sets, int32_t universe);
    void release();

    void insert(int32_t set, int32_t index);
    void erase(int32_t set, int32_t index);
    // The smallest member that is not below `from`, or -1. Members may come and go between calls.
    int32_t next(int32_t set, int32_t from) const;

private:
    uint64_t *words_of(int32_t set) const { return block_ + static_cast<int64_t>(set) * stride_; }
    uint64_t *summary_of(int32_t set) const { return words_of(set) + word_count_; }

    uint64_t *block_ = nullptr;  // per set: its words, then one summary bit per word
    int32_t sets_ = 0;
    int32_t universe_ = 0;
    int32_t word_count_ = 0;
    int32_t stride_ = 0;
};

}  // namespace zel
