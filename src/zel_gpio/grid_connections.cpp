#include "zel_gpio/grid_connections.h"

namespace zel {

namespace {

// What the writer is given before something so that it writes it as it stands there: the comma depends on that.
void behind_an_object(json_writer &json)
{
    json.begin_object();
    json.end_object();
}

void behind_a_member(json_writer &json)
{
    json.begin_object();
    json.put("", 0);
}

void begin_with_input(json_writer &json, const connection &c)
{
    json.begin_object();
    json.put("input_class", c.input_class);
    json.put("input_id", c.input_id);
}

}  // namespace

template <typename Before, typename Members>
void connection_writer::write(piece &made, Before before, Members members)
{
    char text[128];
    json_writer json(text, sizeof text, zel_json_writer_start(text));
    before(json);
    const int begin = json.position();
    members(json);
    made.length = json.position() - begin;
    const bool written = json.position() >= 0 && made.length <= static_cast<int>(sizeof made.text);
    if (written) std::memcpy(made.text, text + begin, static_cast<size_t>(made.length));
    else made.length = -1;
}

void connection_writer::write_input(end_piece &input, const connection &c)
{
    input.word = c.input_class;
    input.id = c.input_id;
    write(input.made, behind_an_object, [&c](json_writer &json) { begin_with_input(json, c); });
}

void connection_writer::write_output(const connection &c)
{
    output_.word = c.output_class;
    output_.id = c.output_id;
    write(output_.made, behind_a_member, [&c](json_writer &json) {
        json.put("output_class", c.output_class);
        json.put("output_id", c.output_id);
    });
}

void connection_writer::write_flags(piece &flags, const connection &c)
{
    write(flags, behind_a_member, [&c](json_writer &json) {
        json.put("invert", c.inverted);
        if (c.allow_invert != nullptr) json.put("allow_invert", *c.allow_invert != 0);
        json.put("state", c.input_state != c.inverted);
        json.end_object();
    });
}

void connection_writer::put_first(const connection &c)
{
    first_ = false;
    begin_with_input(json_, c);
    copy(output_of(c));
    copy(flags_of(c));
}

}  // namespace zel
