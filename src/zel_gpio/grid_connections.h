// The connections of the grid as objects of its document. There are thousands that differ in a few bytes: what recurs is given to
// the writer once per document and copied from then on.
#pragma once

#include <cstdint>

#include "zel_gpio/json_writer.h"

namespace zel {

struct connection {
    const char *input_class;      // a constant word, as the other is
    int32_t input_id;
    const char *output_class;
    int32_t output_id;
    bool inverted;
    const uint8_t *allow_invert;  // null: not written
    bool input_state;
};

class connection_writer {
public:
    // `json` is in the array of connections, which is empty yet.
    explicit connection_writer(json_writer &json) : json_(json) {}
    void put(const connection &c)
    {
        if (first_) return put_first(c);
        const piece &input = input_of(c), &output = output_of(c), &flags = flags_of(c);
        json_writer json = json_;   // which can be in registers
        json.copy(input.text, input.length);
        json.copy(output.text, output.length);
        json.copy(flags.text, flags.length);
        json_ = json;
    }

private:
    // What the writer made of some members.
    struct piece {
        char text[80];
        int length = -1;   // below 0: not made, or it could not be
    };
    struct end_piece {
        const char *word = nullptr;
        int32_t id = 0;
        piece made;

        bool is_of(const char *class_word, int32_t number) const { return word == class_word && id == number; }
    };
    const piece &input_of(const connection &c)
    {
        end_piece &input = inputs_[static_cast<uint32_t>(c.input_id) % inputs_kept];
        if (!input.is_of(c.input_class, c.input_id)) write_input(input, c);
        return input.made;
    }
    const piece &output_of(const connection &c)
    {
        if (!output_.is_of(c.output_class, c.output_id)) write_output(c);
        return output_.made;
    }
    // To the end of the object.
    const piece &flags_of(const connection &c)
    {
        const int allowance = c.allow_invert == nullptr ? 2 : *c.allow_invert != 0;
        piece &flags = flags_[(allowance * 2 + c.inverted) * 2 + c.input_state];
        if (flags.length < 0) write_flags(flags, c);
        return flags;
    }
    void copy(const piece &made) { json_.copy(made.text, made.length); }
    template <typename Before, typename Members> static void write(piece &made, Before before, Members members);
    static void write_input(end_piece &input, const connection &c);
    void write_output(const connection &c);
    static void write_flags(piece &flags, const connection &c);
    void put_first(const connection &c);

    static constexpr uint32_t inputs_kept = 256;   // all triggers at once

    json_writer &json_;
    bool first_ = true;
    end_piece inputs_[inputs_kept], output_;
    piece flags_[12];
};

}  // namespace zel
