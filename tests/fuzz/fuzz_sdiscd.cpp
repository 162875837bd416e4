// Messages of any content and a network that says anything, against the discovery daemon's logic; texts against their checks.
//
// Input: operations, each one byte and what it needs (see the table below). After every operation what must hold is looked at.
#include "discovery.h"

#include <zel_debug.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <string_view>

extern "C" void log_message(int, const char *format, ...)
{
    char text[512];
    va_list values;
    va_start(values, format);
    vsnprintf(text, sizeof text, format, values);
    va_end(values);
}

using namespace zel::sdiscd;

namespace {

void require(bool holds)
{
    if (!holds) __builtin_trap();
}

// Takes what the logic asks for and complains where it asks for nonsense.
struct network final : dnssd {
    std::map<uint32_t, announcement> published;
    std::set<uint32_t> browsed, resolved;

    void publish(uint32_t number, const announcement &what) override
    {
        require(number != 0 && is_service_name(what.place.service.name) && is_service_type(what.place.service.type));
        require(what.port != 0);
        for (const std::string &text : what.txt) require(text.size() <= longest_txt_string && is_printable(text));
        published[number] = what;
    }
    void withdraw(uint32_t number) override { require(published.erase(number) == 1); }
    void browse(uint32_t number, const question &what) override
    {
        require(is_service_type(what.type) && browsed.insert(number).second);
    }
    void stop_browsing(uint32_t number) override { require(browsed.erase(number) == 1); }
    void resolve(uint32_t number, const service_place &what) override
    {
        require(is_service_name(what.service.name) && resolved.insert(number).second);
    }
    void stop_resolving(uint32_t number) override { require(resolved.erase(number) == 1); }
};

struct machine final : surroundings {
    // Per link: the services that its client believes in. One that returned is told again of what it knows.
    struct client {
        std::set<std::string> believes;
        bool returned = false;
    };
    std::map<uint32_t, client> clients;
    bool processes_run = false;

    bool send(uint32_t link, message_type type, std::span<const uint8_t> record) override
    {
        require(clients.contains(link));
        client &to = clients[link];
        browse_record browse{};
        std::memcpy(static_cast<void *>(&browse), record.data(), std::min(record.size(), sizeof browse));
        if (type == new_service) require(strnlen(browse.name, 64) > 0 && (to.believes.insert(browse.name).second || to.returned));
        if (type == service_removed) require(to.believes.erase(browse.name) == 1);
        if (type == service_resolved) require(record.size() == sizeof(resolve_record));
        return true;
    }
    std::string interface_reference(int32_t index) override { return index % 2 == 0 ? "eth0" : "eth1"; }
    int32_t interface_index(const std::string &reference) override { return reference == "eth0" ? 2 : 1; }
    bool is_running(const process_identity &) override { return processes_run; }
};

class input {
public:
    input(const uint8_t *data, size_t size) : data_(data), left_(size) {}
    bool empty() const { return left_ == 0; }
    uint8_t byte()
    {
        if (left_ == 0) return 0;
        --left_;
        return *data_++;
    }
    std::string_view bytes(size_t wanted)
    {
        const size_t length = std::min(wanted, left_);
        const std::string_view taken(reinterpret_cast<const char *>(data_), length);
        data_ += length;
        left_ -= length;
        return taken;
    }

private:
    const uint8_t *data_;
    size_t left_;
};

struct world {
    network net;
    machine around;
    discovery logic{net, around};
    int64_t now = 1000;
    std::map<std::string, uint32_t> links;
    std::map<std::string, int32_t> pids;
    std::map<std::pair<std::string, int32_t>, std::set<std::string>> away;   // what a process that lost its link believes in
    uint32_t last_link = 0;

    void connect(input &in)
    {
        const std::string name(1, static_cast<char>('a' + in.byte() % 3));
        const int32_t pid = in.byte() % 2 + 1;
        if (links.contains(name)) disconnect(name);
        links[name] = ++last_link;
        around.clients[last_link] = {};
        if (const auto before = away.find({name, pid}); before != away.end()) around.clients[last_link] = {before->second, true};
        for (const int32_t each : {1, 2}) away.erase({name, each});
        pids[name] = pid;
        logic.client_connected(last_link, name, {pid, 1}, now);
    }
    void disconnect(const std::string &name)
    {
        logic.client_disconnected(links[name], now);
        away[{name, pids[name]}] = around.clients[links[name]].believes;
        around.clients.erase(links[name]);
        links.erase(name);
    }
    uint32_t some_link(input &in) { return links.empty() ? 0 : std::next(links.begin(), in.byte() % links.size())->second; }

    // A sound record with the fuzzer's bytes laid over one place of it.
    template <class record>
    void send_changed(input &in, message_type type, record of)
    {
        std::string bytes(reinterpret_cast<const char *>(&of), sizeof of);
        const size_t at = (in.byte() * 256u + in.byte()) % bytes.size();
        const std::string_view change = in.bytes(in.byte());
        bytes.replace(at, std::min(change.size(), bytes.size() - at), change.substr(0, bytes.size() - at));
        logic.message(some_link(in), type, bytes, now);
    }
    void look(input &in)
    {
        lookup_record record{};
        std::strcpy(record.type, "_zelvgpo._tcp");
        send_changed(in, browse_request, record);
    }
    void publish(input &in)
    {
        publish_record record{};
        record.port = 9000;
        record.name[0] = static_cast<char>('p' + in.byte() % 4);
        std::strcpy(record.type, "_zelvgpo._tcp");
        std::strcpy(record.txt, "\"path=/a/b\"");
        send_changed(in, publish_request, record);
    }
    void resolve(input &in)
    {
        send_changed(in, resolve_request, make_browse_record(2, {"_zelvgpo._tcp", std::string(1, static_cast<char>('p' + in.byte() % 4))}));
    }
    void raw(input &in)
    {
        const uint8_t type = in.byte();
        logic.message(some_link(in), type, in.bytes(in.byte()), now);
    }
    void found(input &in)
    {
        const bool local = in.byte() % 2 != 0;
        logic.found(in.byte() % 16, std::string(in.bytes(in.byte() % 70)), local);
    }
    void found_usual(input &in) { logic.found(in.byte() % 16, std::string(1, static_cast<char>('p' + in.byte() % 4)), in.byte() % 2 != 0); }
    void lost(input &in) { logic.lost(in.byte() % 16, std::string(1, static_cast<char>('p' + in.byte() % 4))); }
    void resolved(input &in)
    {
        service_details details{std::string(in.bytes(in.byte())), "10.0.0.1", in.byte(), {}};
        details.txt.emplace_back(in.bytes(in.byte()));
        logic.resolved(in.byte() % 32, details);
    }
    void unresolved(input &in) { logic.unresolved(in.byte() % 32); }
    void anew(input &in) { logic.browsing_anew(in.byte() % 16); }
    void outcome(input &in) { logic.published(in.byte() % 16, static_cast<publish_outcome>(in.byte() % 3)); }
    void pass(input &in)
    {
        around.processes_run = in.byte() % 2 != 0;
        now += in.byte() * 100;
    }
    void leave(input &in)
    {
        if (!links.empty()) disconnect(std::next(links.begin(), in.byte() % links.size())->first);
    }
};

using operation = void (world::*)(input &);
constexpr operation operations[] = {
    &world::connect, &world::leave, &world::look, &world::publish, &world::resolve, &world::raw, &world::found,
    &world::found_usual, &world::lost, &world::resolved, &world::unresolved, &world::anew, &world::outcome, &world::pass,
};

void check_texts(std::string_view text)
{
    std::string problem;
    const auto strings = read_txt(text, problem);
    require(strings.has_value() == problem.empty());
    if (!strings) return;
    for (const std::string &each : *strings) require(!each.empty() && each.size() <= longest_txt_string);
    const std::string written = write_txt(*strings, text.size() * 4 + 16);
    const auto again = read_txt(written, problem);
    if (is_printable(text)) require(again && *again == *strings);
    require(write_txt(*strings, 100).size() <= 100);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    check_texts({reinterpret_cast<const char *>(data), size});
    input in(data, size);
    world one;
    while (!in.empty()) {
        (one.*operations[in.byte() % std::size(operations)])(in);
        one.logic.tick(one.now);
        const auto due = one.logic.next_due();
        require(!due || *due > one.now);
    }
    one.around.processes_run = false;
    while (!one.links.empty()) one.disconnect(one.links.begin()->first);
    one.now += discovery::look_again_ms;
    one.logic.tick(one.now);
    require(one.logic.client_count() == 0 && one.net.published.empty() && one.net.browsed.empty() && one.net.resolved.empty());
    return 0;
}
