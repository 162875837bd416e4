// The daemon's logic in a made-up world: a network that does what the test says, clients whose messages are kept, and a clock
// that the test moves.
#pragma once

#include "discovery.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace zel::sdiscd::test {

inline constexpr const char *vgpo = "_zelvgpo._tcp";

struct fake_network final : dnssd {
    std::map<uint32_t, announcement> published;
    std::map<uint32_t, question> browsed;
    std::map<uint32_t, service_place> resolved;
    int publish_calls = 0, withdraw_calls = 0;

    void publish(uint32_t number, const announcement &what) override
    {
        ++publish_calls;
        published[number] = what;
    }
    void withdraw(uint32_t number) override
    {
        ++withdraw_calls;
        EXPECT_EQ(published.erase(number), 1u);
    }
    void browse(uint32_t number, const question &what) override { EXPECT_TRUE(browsed.emplace(number, what).second); }
    void stop_browsing(uint32_t number) override { EXPECT_EQ(browsed.erase(number), 1u); }
    void resolve(uint32_t number, const service_place &what) override { EXPECT_TRUE(resolved.emplace(number, what).second); }
    void stop_resolving(uint32_t number) override { EXPECT_EQ(resolved.erase(number), 1u); }

    std::vector<std::string> published_names() const
    {
        std::vector<std::string> names;
        for (const auto &[number, what] : published) names.push_back(what.place.service.name);
        return names;
    }
    uint32_t number_of(const std::string &name) const
    {
        for (const auto &[number, what] : published) {
            if (what.place.service.name == name) return number;
        }
        return 0;
    }
    uint32_t browser_on(const std::string &interface) const
    {
        for (const auto &[number, what] : browsed) {
            if (what.interface == interface) return number;
        }
        return 0;
    }
    uint32_t resolver_of(const std::string &name, const std::string &interface = "eth0") const
    {
        for (const auto &[number, what] : resolved) {
            if (what.service.name == name && what.interface == interface) return number;
        }
        return 0;
    }
};

struct fake_machine final : surroundings {
    struct message {
        uint32_t link;
        message_type type;
        std::string bytes;
    };
    std::vector<message> sent;
    std::map<int32_t, std::string> interfaces{{1, "lo"}, {2, "eth0"}, {3, "eth1"}};
    std::set<int32_t> running;        // processes
    std::set<uint32_t> broken_links;

    bool send(uint32_t link, message_type type, std::span<const uint8_t> record) override
    {
        if (broken_links.contains(link)) return false;
        sent.push_back({link, type, std::string(reinterpret_cast<const char *>(record.data()), record.size())});
        return true;
    }
    std::string interface_reference(int32_t index) override
    {
        return interfaces.contains(index) ? interfaces[index] : index <= 0 ? "eth0" : "#" + std::to_string(index);
    }
    int32_t interface_index(const std::string &reference) override
    {
        for (const auto &[index, name] : interfaces) {
            if (name == reference) return index;
        }
        return 0;
    }
    bool is_running(const process_identity &process) override { return running.contains(process.pid); }
};

class world : public testing::Test {
protected:
    fake_network net;
    fake_machine machine;
    std::unique_ptr<discovery> logic = std::make_unique<discovery>(net, machine);
    int64_t now = 1'000'000;
    uint32_t links = 0;

    // The link of a client that connects.
    uint32_t connect(const std::string &name, int32_t pid = 100)
    {
        logic->client_connected(++links, name, {pid, static_cast<uint64_t>(pid) * 7}, now);
        machine.running.insert(pid);
        return links;
    }
    void disconnect(uint32_t link) { logic->client_disconnected(link, now); }
    void pass(int64_t ms)
    {
        now += ms;
        logic->tick(now);
    }
    template <class record>
    void send(uint32_t link, message_type type, const record &of)
    {
        logic->message(link, type, {reinterpret_cast<const char *>(&of), sizeof of}, now);
        logic->tick(now);
    }
    void look(uint32_t link, int32_t interface = 2, const char *type = vgpo)
    {
        lookup_record record{};
        record.interface = interface;
        std::strcpy(record.type, type);
        send(link, browse_request, record);
    }
    void publish(uint32_t link, const std::string &name, uint16_t port = 9000, const char *txt = "\"path=/a/b\"", int32_t interface = 2)
    {
        publish_record record{};
        record.interface = interface;
        record.port = port;
        std::memcpy(record.name, name.data(), std::min(name.size(), sizeof record.name));
        std::strcpy(record.type, vgpo);
        std::strcpy(record.txt, txt);
        send(link, publish_request, record);
    }
    void unpublish(uint32_t link, const std::string &name)
    {
        logic->message(link, unpublish_request, {name.c_str(), name.size() + 1}, now);
        logic->tick(now);
    }
    // The client answers each report of a new service by asking for its details, as the library does.
    void ask_back(uint32_t link)
    {
        const auto all = machine.sent;
        for (const auto &each : all) {
            if (each.link == link && each.type == new_service) logic->message(link, resolve_request, each.bytes, now);
        }
    }
    void found(const std::string &name, bool local = false, const char *interface = "eth0")
    {
        logic->found(net.browser_on(interface), name, local);
        logic->tick(now);
    }
    void lost(const std::string &name, const char *interface = "eth0")
    {
        logic->lost(net.browser_on(interface), name);
        logic->tick(now);
    }
    static service_details at(const std::string &address, uint16_t port = 9000, const std::string &path = "/a/b")
    {
        return {"host.local", address, port, {"path=" + path}};
    }
    void resolve(const std::string &name, const service_details &details, const char *interface = "eth0")
    {
        const uint32_t number = net.resolver_of(name, interface);
        ASSERT_NE(number, 0u) << name << " is not being resolved";
        logic->resolved(number, details);
        pass(lookups::settle_ms);
    }
    void fail_to_resolve(const std::string &name, const char *interface = "eth0")
    {
        const uint32_t number = net.resolver_of(name, interface);
        ASSERT_NE(number, 0u);
        logic->unresolved(number);
        logic->tick(now);
    }
    void settle(const std::string &name, publish_outcome outcome = publish_outcome::established)
    {
        const uint32_t number = net.number_of(name);
        ASSERT_NE(number, 0u) << name << " is not published";
        logic->published(number, outcome);
        logic->tick(now);
    }
    // What that link was sent since the last call: "found NAME", "gone NAME", "NAME at ADDRESS:PORT TXT on INDEX" ...
    std::vector<std::string> told(uint32_t link)
    {
        std::vector<std::string> all;
        for (const auto &each : machine.sent) {
            if (each.link == link) all.push_back(line_of(each));
        }
        std::erase_if(machine.sent, [link](const auto &each) { return each.link == link; });
        return all;
    }
    using lines = std::vector<std::string>;
    // The daemon ends and another one takes its place.
    void restart()
    {
        std::vector<kept_client> kept = logic->kept();
        net = fake_network();
        logic = std::make_unique<discovery>(net, machine);
        logic->restore(std::move(kept), now);
        logic->tick(now);
    }

private:
    static std::string line_of(const fake_machine::message &message)
    {
        browse_record browse{};
        resolve_record details{};
        std::memcpy(static_cast<void *>(&browse), message.bytes.data(), std::min(message.bytes.size(), sizeof browse));
        std::memcpy(static_cast<void *>(&details), message.bytes.data(), std::min(message.bytes.size(), sizeof details));
        switch (message.type) {
        case new_service: return "found " + std::string(browse.name);
        case service_removed: return "gone " + std::string(browse.name);
        case name_collision: return "collision " + std::string(browse.name);
        case resolve_failed: return "failed";
        case service_resolved:
            return std::string(details.name) + " at " + details.address + ":" + std::to_string(details.port) + " " + details.txt +
                   " on " + std::to_string(details.interface);
        default: return "?";
        }
    }
};

}  // namespace zel::sdiscd::test
