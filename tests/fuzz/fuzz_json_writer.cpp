// Hostile names and values, in buffers of any size: the text is JSON that says the same, or the writer says that it does not fit.
//
// Input: a buffer size in two bytes, then steps, each a byte and for most of them a text up to the next zero byte.
#include "zel_json.h"

#include <jansson.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

void require(bool holds)
{
    if (!holds) __builtin_trap();
}

bool is_utf8(const std::string &text)
{
    json_t *const value = json_string(text.c_str());   // null for what is none
    json_decref(value);
    return value != nullptr;
}

struct steps {
    const uint8_t *data;
    size_t size;

    uint8_t byte()
    {
        if (size == 0) return 0;
        --size;
        return *data++;
    }
    std::string text()
    {
        std::string result;
        for (uint8_t each = byte(); each != 0; each = byte()) result += static_cast<char>(each);
        return result;
    }
};

// What is written, beside what a JSON library makes of the same steps; names that stand twice are left out there.
struct both {
    std::vector<char> buffer;
    int pos = 0;
    json_t *root = json_object();
    std::vector<json_t *> open{root};
    bool comparable = true;

    bool in_array() const { return json_is_array(open.back()); }
    void add(const std::string &name, json_t *value, const std::string &text = "")
    {
        comparable &= is_utf8(name) && is_utf8(text);
        if (in_array()) (void)json_array_append_new(open.back(), value);
        else if (comparable && json_object_get(open.back(), name.c_str()) == nullptr) (void)json_object_set_new(open.back(),
            name.c_str(), value);
        else comparable = false, json_decref(value);
    }
};

void run(steps &input, both &doc)
{
    char *const buf = doc.buffer.data();
    const size_t size = doc.buffer.size();
    while (input.size > 0) {
        const uint8_t what = input.byte() % 6;
        const std::string given = what < 5 ? input.text() : "";
        const char *const name = doc.in_array() ? nullptr : given.c_str();
        if (what == 0) {
            const std::string value = input.text();
            doc.pos = zel_json_writer_put_str(buf, size, doc.pos, name, value.c_str());
            doc.add(given, is_utf8(value) ? json_string(value.c_str()) : json_null(), value);
        } else if (what == 1) {
            const int64_t value = static_cast<int64_t>(input.byte() * 0x0123456789abcdefULL);
            doc.pos = zel_json_writer_put_int(buf, size, doc.pos, name, value);
            doc.add(given, json_integer(value));
        } else if (what == 2) {
            const int value = input.byte() & 1;
            doc.pos = zel_json_writer_put_bool(buf, size, doc.pos, name, value);
            doc.add(given, json_boolean(value));
        } else if (what < 5 && doc.open.size() < 50) {
            json_t *const inner = what == 3 ? json_object() : json_array();
            doc.pos = what == 3 ? zel_json_writer_new_obj(buf, size, doc.pos, name) : zel_json_writer_new_array(buf, size,
                doc.pos, name);
            json_incref(inner);
            doc.add(given, inner);
            doc.open.push_back(inner);
        } else if (what == 5 && doc.open.size() > 1) {
            doc.pos = doc.in_array() ? zel_json_writer_end_array(buf, size, doc.pos) : zel_json_writer_end_obj(buf, size,
                doc.pos);
            json_decref(doc.open.back());
            doc.open.pop_back();
        }
    }
    while (doc.open.size() > 1) {
        doc.pos = doc.in_array() ? zel_json_writer_end_array(buf, size, doc.pos) : zel_json_writer_end_obj(buf, size, doc.pos);
        json_decref(doc.open.back());
        doc.open.pop_back();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    steps input{data, size};
    both doc;
    const size_t room = static_cast<size_t>(input.byte()) << 8 | input.byte();
    doc.buffer.resize(room + 1, 'x');
    doc.pos = zel_json_writer_new_obj(doc.buffer.data(), doc.buffer.size(), zel_json_writer_start(doc.buffer.data()), nullptr);
    run(input, doc);
    doc.pos = zel_json_writer_end_obj(doc.buffer.data(), doc.buffer.size(), doc.pos);
    const int length = zel_json_writer_finish(doc.buffer.data(), doc.buffer.size(), doc.pos);
    require(length < static_cast<int>(doc.buffer.size()) && length >= -1);
    if (length >= 0) {
        require(doc.buffer[static_cast<size_t>(length)] == '\0' && std::strlen(doc.buffer.data()) == static_cast<size_t>(length));
        json_t *const read = json_loadb(doc.buffer.data(), static_cast<size_t>(length), 0, nullptr);
        require(read != nullptr);
        require(!doc.comparable || json_equal(read, doc.root) == 1);
        json_decref(read);
    }
    json_decref(doc.root);
    return 0;
}
