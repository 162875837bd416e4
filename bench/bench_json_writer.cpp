// Cost of writing a grid document of usual size with our JSON writer, beside RapidJSON's writer over a buffer that has its
// room already. Both are given the same zero-terminated texts and must give the same document; rounds alternate, so that a
// busy machine slows both down.
#include "zel_json.h"

#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr int connections = 500;
constexpr int rounds = 401;
constexpr size_t room = 256 * 1024;

struct connection {
    const char *input_class;
    int input_id;
    const char *output_class;
    int output_id;
    bool invert, allow_invert, state;
};

std::vector<connection> grid()
{
    static constexpr const char *inputs[] = {"physical", "virtual", "event", "user_button"};
    static constexpr const char *outputs[] = {"relay", "physical", "user_led", "event"};
    std::vector<connection> result;
    for (int i = 0; i < connections; ++i) {
        result.push_back({inputs[i % 4], i % 67, outputs[i / 3 % 4], i % 31, i % 5 == 0, i % 2 == 0, i % 3 == 0});
    }
    return result;
}

int write_with_ours(char *buf, size_t size, const std::vector<connection> &list)
{
    int pos = zel_json_writer_start(buf);
    pos = zel_json_writer_new_obj(buf, size, pos, nullptr);
    pos = zel_json_writer_new_array(buf, size, pos, "connections");
    for (const connection &entry : list) {
        pos = zel_json_writer_new_obj(buf, size, pos, nullptr);
        pos = zel_json_writer_put_str(buf, size, pos, "input_class", entry.input_class);
        pos = zel_json_writer_put_int(buf, size, pos, "input_id", entry.input_id);
        pos = zel_json_writer_put_str(buf, size, pos, "output_class", entry.output_class);
        pos = zel_json_writer_put_int(buf, size, pos, "output_id", entry.output_id);
        pos = zel_json_writer_put_bool(buf, size, pos, "invert", entry.invert);
        pos = zel_json_writer_put_bool(buf, size, pos, "allow_invert", entry.allow_invert);
        pos = zel_json_writer_put_bool(buf, size, pos, "state", entry.state);
        pos = zel_json_writer_end_obj(buf, size, pos);
    }
    pos = zel_json_writer_end_array(buf, size, pos);
    pos = zel_json_writer_end_obj(buf, size, pos);
    return zel_json_writer_finish(buf, size, pos);
}

// The names come as variables, as ours do: in both, the length of a name is found at run time.
void write_with_peer(rapidjson::StringBuffer &buffer, const std::vector<connection> &list)
{
    buffer.Clear();
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.StartObject();
    writer.Key("connections");
    writer.StartArray();
    for (const connection &entry : list) {
        writer.StartObject();
        writer.Key("input_class");
        writer.String(entry.input_class);
        writer.Key("input_id");
        writer.Int(entry.input_id);
        writer.Key("output_class");
        writer.String(entry.output_class);
        writer.Key("output_id");
        writer.Int(entry.output_id);
        writer.Key("invert");
        writer.Bool(entry.invert);
        writer.Key("allow_invert");
        writer.Bool(entry.allow_invert);
        writer.Key("state");
        writer.Bool(entry.state);
        writer.EndObject();
    }
    writer.EndArray();
    writer.EndObject();
}

template <class Function>
double nanoseconds(const Function &function)
{
    const auto start = std::chrono::steady_clock::now();
    function();
    return std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values)
{
    std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

}  // namespace

int main()
{
    const std::vector<connection> list = grid();
    std::vector<char> buf(room);
    rapidjson::StringBuffer buffer(nullptr, room);
    int length = write_with_ours(buf.data(), buf.size(), list);
    write_with_peer(buffer, list);
    if (length < 0 || std::string(buf.data()) != buffer.GetString()) {
        std::fprintf(stderr, "bench_json_writer: the two documents differ\n");
        return 1;
    }
    std::vector<double> ours, peer;
    for (int round = 0; round < rounds; ++round) {
        ours.push_back(nanoseconds([&] { length = write_with_ours(buf.data(), buf.size(), list); }));
        peer.push_back(nanoseconds([&] { write_with_peer(buffer, list); }));
    }
    std::printf("| json writer, %d bytes | %.0f ns | RapidJSON %.0f ns | ratio %.2f |\n", length, median(ours), median(peer),
                median(ours) / median(peer));
    return 0;
}
