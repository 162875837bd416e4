#include "zel_json.h"

#include <gtest/gtest.h>
#include <jansson.h>

#include <climits>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

// A document in a buffer of a given size; remembers the first -1 as the writer itself does.
class document {
public:
    explicit document(size_t size = 65536) : buf_(new char[size]), size_(size), pos_(zel_json_writer_start(buf_.get())) {}

    document &obj(const char *name = nullptr) { return call(zel_json_writer_new_obj, name); }
    document &array(const char *name = nullptr) { return call(zel_json_writer_new_array, name); }
    document &integer(const char *name, int64_t value) { return call(zel_json_writer_put_int, name, value); }
    document &text(const char *name, const char *value) { return call(zel_json_writer_put_str, name, value); }
    document &boolean(const char *name, int value) { return call(zel_json_writer_put_bool, name, value); }
    document &end_obj() { return call(zel_json_writer_end_obj); }
    document &end_array() { return call(zel_json_writer_end_array); }

    int position() const { return pos_; }
    int finish() { return zel_json_writer_finish(buf_.get(), size_, pos_); }
    // The finished text, or "-1".
    std::string str()
    {
        const int length = finish();
        if (length < 0) return "-1";
        EXPECT_EQ(strlen(buf_.get()), static_cast<size_t>(length));
        return buf_.get();
    }

private:
    template <class Function, class... Arguments>
    document &call(Function function, Arguments... arguments)
    {
        pos_ = function(buf_.get(), size_, pos_, arguments...);
        return *this;
    }

    std::unique_ptr<char[]> buf_;  // of the exact size, so that the address sanitizer sees a byte too many
    size_t size_;
    int pos_;
};

std::string written(const char *text)
{
    document doc;
    doc.text(nullptr, text);
    return doc.str();
}

document &small_grid(document &doc)
{
    doc.obj().array("list").obj().text("class", "relay\n").integer("id", -3).boolean("state", 1).end_obj().obj().end_obj();
    return doc.end_array().array("none").end_array().obj("empty").end_obj().text("last", "\xc3\xbc\xff").end_obj();
}

constexpr char small_grid_text[] =
    "{\"list\":[{\"class\":\"relay\\n\",\"id\":-3,\"state\":true},{}],\"none\":[],\"empty\":{},"
    "\"last\":\"\xc3\xbc\xef\xbf\xbd\"}";

// The same rules once more, byte by byte and from the code points up.
std::string expected_string(const std::string &text)
{
    std::string out = "\"";
    for (size_t i = 0; i < text.size();) {
        const auto byte = [&](size_t k) { return i + k < text.size() ? static_cast<unsigned char>(text[i + k]) : 0u; };
        const unsigned first = byte(0);
        const size_t wanted = first < 0x80 ? 1 : first < 0xC0 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : first < 0xF8 ? 4 : 0;
        size_t length = wanted == 0 ? 0 : 1;
        unsigned point = wanted == 1 ? first : first & (0x7Fu >> wanted);
        while (length != 0 && length < wanted && (byte(length) & 0xC0) == 0x80) {
            point = point << 6 | (byte(length) & 0x3F);
            ++length;
            // What is known of the code point so far must still allow a valid one.
            const unsigned rest = 6 * static_cast<unsigned>(wanted - length);
            const unsigned lowest = point << rest, highest = lowest | ((1u << rest) - 1);
            static constexpr unsigned smallest[] = {0, 0, 0x80, 0x800, 0x10000};
            if (highest < smallest[wanted] || lowest > 0x10FFFF || (lowest >= 0xD800 && highest <= 0xDFFF)) {
                length -= 1;
                break;
            }
        }
        if (wanted == 2 && first < 0xC2) length = 1;
        if (first > 0xF4) length = wanted == 0 ? 0 : 1;
        char escape[8];
        if (length != wanted || wanted == 0) {
            out += "\xEF\xBF\xBD";
            length = length == 0 ? 1 : length;
        } else if (wanted > 1) {
            out += text.substr(i, length);
        } else if (first == '"' || first == '\\') {
            out += {'\\', static_cast<char>(first)};
        } else if (first < 0x20) {
            snprintf(escape, sizeof escape, "\\u%04x", first);
            out += first == '\n' ? "\\n" : first == '\t' ? "\\t" : first == '\r' ? "\\r" : first == '\b' ? "\\b"
                 : first == '\f' ? "\\f" : escape;
        } else {
            out += static_cast<char>(first);
        }
        i += length;
    }
    return out + "\"";
}

}  // namespace

TEST(json_writer, a_document_is_compact_and_its_commas_are_where_they_belong)
{
    document doc;
    EXPECT_EQ(small_grid(doc).str(), small_grid_text);
}

TEST(json_writer, empty_documents_and_bare_values_are_documents_too)
{
    EXPECT_EQ(document().obj().end_obj().str(), "{}");
    EXPECT_EQ(document().array().end_array().str(), "[]");
    EXPECT_EQ(document().integer(nullptr, 7).str(), "7");
    EXPECT_EQ(document().str(), "");
    EXPECT_EQ(document().array().array().end_array().array().end_array().end_array().str(), "[[],[]]");
    EXPECT_EQ(document().array().integer(nullptr, 1).integer(nullptr, 2).boolean(nullptr, 0).text(nullptr, "").end_array().str(),
              "[1,2,false,\"\"]");
}

TEST(json_writer, brackets_commas_and_colons_inside_strings_do_not_confuse_the_commas)
{
    EXPECT_EQ(document().array().text(nullptr, "[").text(nullptr, "{").text(nullptr, ":").text(nullptr, ",").integer(nullptr, 1)
                        .end_array().str(),
              R"(["[","{",":",",",1])");
    EXPECT_EQ(document().obj().text("a[", "{").integer("b{", 1).end_obj().str(), R"({"a[":"{","b{":1})");
}

TEST(json_writer, numbers_are_written_in_full)
{
    EXPECT_EQ(document().array().integer(nullptr, 0).integer(nullptr, -1).integer(nullptr, INT64_MAX).integer(nullptr, INT64_MIN)
                        .end_array().str(),
              "[0,-1,9223372036854775807,-9223372036854775808]");
}

TEST(json_writer, any_number_but_zero_is_true)
{
    EXPECT_EQ(document().array().boolean(nullptr, 1).boolean(nullptr, 0).boolean(nullptr, -2).end_array().str(),
              "[true,false,true]");
}

TEST(json_writer, what_json_reserves_is_escaped_in_names_and_values)
{
    EXPECT_EQ(written("a\"b\\c/d"), R"("a\"b\\c/d")");
    EXPECT_EQ(written("\b\f\n\r\t\x01\x1f\x7f"), "\"\\b\\f\\n\\r\\t\\u0001\\u001f\x7f\"");
    EXPECT_EQ(document().obj().integer("\"\n\xff", 1).end_obj().str(), "{\"\\\"\\n\xef\xbf\xbd\":1}");
}

TEST(json_writer, well_formed_utf_8_is_kept_and_malformed_is_replaced)
{
    const struct { const char *text, *expected; } table[] = {
        {"\xc3\xbc\xe2\x82\xac\xf0\x9f\x94\x8a", "\xc3\xbc\xe2\x82\xac\xf0\x9f\x94\x8a"},
        {"\xf4\x8f\xbf\xbf\xed\x9f\xbf\xee\x80\x80", "\xf4\x8f\xbf\xbf\xed\x9f\xbf\xee\x80\x80"},
        {"a\xff" "b", "a\xef\xbf\xbd" "b"},
        {"cut \xe2\x82", "cut \xef\xbf\xbd"},
        {"cut \xf0\x9f\x94", "cut \xef\xbf\xbd"},
        {"\xc3(", "\xef\xbf\xbd("},
        {"\xc0\xaf", "\xef\xbf\xbd\xef\xbf\xbd"},
        {"\xed\xa0\x80", "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd"},
        {"\xf4\x90\x80\x80", "\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd"},
        {"\x80\xbf", "\xef\xbf\xbd\xef\xbf\xbd"},
        {"\xe2\x82\"", "\xef\xbf\xbd\\\""},
    };
    for (const auto &row : table) EXPECT_EQ(written(row.text), "\"" + std::string(row.expected) + "\"");
}

TEST(json_writer, strings_of_every_length_and_content_are_written_as_the_rules_say)
{
    std::mt19937 random(20240229);
    const std::string special = "\"\\\n\x01\x1f\x7f\x80\xbf\xc2\xc3\xe0\xa0\xe2\x82\xac\xed\x9f\xf0\x90\xf4\x8f\xf5\xff";
    for (int round = 0; round < 40000; ++round) {
        std::string text(random() % 70, ' ');
        const unsigned kind = random() % 4;
        for (char &byte : text) {
            const bool odd = kind == 3 || (kind != 0 && random() % (kind == 1 ? 20 : 3) == 0);
            byte = odd ? special[random() % special.size()] : static_cast<char>(0x20 + random() % 0x60);
        }
        ASSERT_EQ(written(text.c_str()), expected_string(text));
    }
}

TEST(json_writer, every_document_is_read_back_by_a_parser)
{
    for (int first = 1; first < 256; ++first) {
        const char text[] = {'x', static_cast<char>(first), 'y', '\0'};
        document doc;
        const std::string json = doc.obj().text(text, text).end_obj().str();
        json_error_t error;
        json_t *const root = json_loads(json.c_str(), 0, &error);
        ASSERT_NE(root, nullptr) << json << error.text;
        const std::string expected = first < 0x80 ? text : "x\xef\xbf\xbdy";
        EXPECT_EQ(json_string_value(json_object_get(root, expected.c_str())), expected);
        json_decref(root);
    }
}

TEST(json_writer, a_text_that_fits_exactly_is_taken_and_one_byte_less_is_refused)
{
    const size_t length = strlen(small_grid_text);
    for (size_t size = 0; size <= length + 2; ++size) {
        document doc(size);
        EXPECT_EQ(small_grid(doc).str(), size > length ? small_grid_text : "-1") << size;
    }
}

TEST(json_writer, each_kind_of_call_stops_at_the_end_of_the_buffer)
{
    const struct { std::function<void(document &)> write; size_t length; } table[] = {
        {[](document &doc) { doc.obj("n"); }, 5}, {[](document &doc) { doc.array("n"); }, 5},
        {[](document &doc) { doc.integer("n", -9223372036854775807 - 1); }, 24}, {[](document &doc) { doc.boolean("n", 0); }, 9},
        {[](document &doc) { doc.text("n", "a\x01\xc3\xbc\xff"); }, 18}, {[](document &doc) { doc.text("\\", ""); }, 7},
        {[](document &doc) { doc.end_obj(); }, 1}, {[](document &doc) { doc.end_array(); }, 1}};
    for (const auto &row : table) {
        for (size_t size = 1; size <= row.length + 2; ++size) {
            document doc(size);
            row.write(doc);
            EXPECT_EQ(doc.position(), size > row.length ? static_cast<int>(row.length) : -1) << size << " of " << row.length;
        }
    }
}

TEST(json_writer, minus_one_is_handed_on_and_ends_as_minus_one)
{
    char buf[64] = "untouched";
    EXPECT_EQ(zel_json_writer_new_obj(buf, sizeof buf, -1, nullptr), -1);
    EXPECT_EQ(zel_json_writer_new_array(buf, sizeof buf, -1, "a"), -1);
    EXPECT_EQ(zel_json_writer_put_int(buf, sizeof buf, -1, "a", 1), -1);
    EXPECT_EQ(zel_json_writer_put_str(buf, sizeof buf, -1, "a", "b"), -1);
    EXPECT_EQ(zel_json_writer_put_bool(buf, sizeof buf, -1, "a", 1), -1);
    EXPECT_EQ(zel_json_writer_end_obj(buf, sizeof buf, -1), -1);
    EXPECT_EQ(zel_json_writer_end_array(buf, sizeof buf, -1), -1);
    EXPECT_EQ(zel_json_writer_finish(buf, sizeof buf, -1), -1);
    EXPECT_STREQ(buf, "untouched");
}

TEST(json_writer, positions_that_no_call_gave_are_refused)
{
    char buf[8] = "";
    for (const int pos : {8, 9, INT_MAX, -2, INT_MIN}) {
        EXPECT_EQ(zel_json_writer_put_int(buf, sizeof buf, pos, nullptr, 1), -1) << pos;
        EXPECT_EQ(zel_json_writer_end_obj(buf, sizeof buf, pos), -1) << pos;
        EXPECT_EQ(zel_json_writer_finish(buf, sizeof buf, pos), -1) << pos;
    }
    EXPECT_EQ(zel_json_writer_finish(buf, 0, 0), -1);
    EXPECT_EQ(zel_json_writer_start(nullptr), -1);
    EXPECT_EQ(zel_json_writer_put_int(nullptr, 8, 0, nullptr, 1), -1);
}

TEST(json_writer, the_end_is_seen_also_in_a_buffer_said_to_be_larger_than_positions_reach)
{
    char buf[64];
    int pos = zel_json_writer_new_array(buf, SIZE_MAX, zel_json_writer_start(buf), nullptr);
    pos = zel_json_writer_end_array(buf, SIZE_MAX, zel_json_writer_put_int(buf, SIZE_MAX, pos, nullptr, 5));
    EXPECT_EQ(zel_json_writer_finish(buf, SIZE_MAX, pos), 3);
    EXPECT_STREQ(buf, "[5]");
}

TEST(json_writer, a_null_text_is_an_empty_one)
{
    EXPECT_EQ(document().obj().text("a", nullptr).end_obj().str(), R"({"a":""})");
}

TEST(json_writer, a_call_that_does_not_fit_leaves_what_was_written_before)
{
    char buf[16];
    const int pos = zel_json_writer_put_int(buf, sizeof buf, zel_json_writer_new_array(buf, sizeof buf, 0, nullptr), nullptr, 12);
    ASSERT_EQ(pos, 3);
    EXPECT_EQ(zel_json_writer_put_str(buf, sizeof buf, pos, nullptr, "does not fit any more"), -1);
    const int end = zel_json_writer_end_array(buf, sizeof buf, pos);
    EXPECT_EQ(zel_json_writer_finish(buf, sizeof buf, end), 4);
    EXPECT_STREQ(buf, "[12]");
}
