// BER as Ember+ uses it: a pull reader over a whole message, definite and indefinite lengths alike, and a writer that
// works from the last byte to the first, so that every length is known when its turn comes and is written minimal.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace zel::ember::ber {

enum tag : uint8_t {
    tag_boolean = 0x01,
    tag_integer = 0x02,
    tag_octets = 0x04,
    tag_null = 0x05,
    tag_real = 0x09,
    tag_utf8 = 0x0C,
    tag_relative_oid = 0x0D,
    tag_sequence = 0x30,
    tag_set = 0x31,
    tag_other = 0x1F,   // a number above 30, which Glow does not have: only ever skipped
};
constexpr uint8_t constructed = 0x20;
constexpr uint8_t application(unsigned number) { return static_cast<uint8_t>(0x60 | number); }
constexpr uint8_t context(unsigned number) { return static_cast<uint8_t>(0xA0 | number); }

constexpr size_t max_depth = 96;   // containers inside each other; a path of 15 numbered nodes needs 65

struct item {
    uint8_t tag = 0;                      // first byte, with class and form
    std::span<const uint8_t> contents;    // of a primitive; empty for a constructed one
    bool is_constructed() const { return tag & constructed; }
};

// Walks a message container by container. After next() returned a constructed item, enter() goes into it; without that
// the next call of next() steps over it. An error ends every container at once and stays.
class reader {
public:
    explicit reader(std::span<const uint8_t> message) : at_(message.data()), levels_{{{at_ + message.size(), false}}} {}

    bool next(item &found);
    bool enter();
    void leave();
    bool failed() const { return failed_; }
    bool too_deep() const { return too_deep_; }

private:
    struct level { const uint8_t *end; bool indefinite; };
    struct header { uint8_t tag; bool indefinite; size_t length; };

    bool fail();
    bool read_header(header &h, const uint8_t *end);
    bool read_long_tag(const uint8_t *end);
    bool read_length(header &h, const uint8_t *end);
    bool at_end_mark(const level &l) const;
    void skip_pending();
    bool skip_indefinite();

    const uint8_t *at_;
    size_t depth_ = 0;
    bool pending_ = false;      // the item last returned is constructed and was not entered
    header pending_header_{};
    bool failed_ = false;
    bool too_deep_ = false;
    std::array<level, max_depth + 1> levels_;
};

enum class verdict : uint8_t { sound, broken, too_deep };
// Looks at a message down to its last container.
verdict check(std::span<const uint8_t> message);

std::optional<int64_t> to_integer(std::span<const uint8_t> contents);
std::optional<double> to_real(std::span<const uint8_t> contents);
// Numbers of a RELATIVE-OID into `path`; the count, or nothing if it is broken or longer than `path`.
std::optional<size_t> to_path(std::span<const uint8_t> contents, std::span<uint32_t> path);

class writer {
public:
    // Containers are closed before their contents are known to be complete: take a mark, write the contents backwards,
    // then put the header before everything written since the mark.
    size_t mark() const { return size_; }
    void header(uint8_t tag, size_t mark);

    void integer(int64_t value);
    void boolean(bool value);
    void real(double value);
    void null();
    void utf8(std::string_view text);
    void path(std::span<const uint32_t> numbers);
    void bytes(std::span<const uint8_t> bytes);

    std::span<const uint8_t> message() const { return {buffer_.data() + buffer_.size() - size_, size_}; }
    void clear() { size_ = 0; }      // keeps the memory

private:
    uint8_t *before(size_t count);   // room in front of what is written
    void byte(uint8_t value) { *before(1) = value; }

    std::vector<uint8_t> buffer_;    // filled from its end
    size_t size_ = 0;
};

}  // namespace zel::ember::ber
