// Many units and many virtual outputs on one loopback network of the test's own.
#include "running_unit.h"
#include "two_hosts.h"
#include "zel_ipc.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>

using namespace zel;
using namespace zel::test;

namespace {

using clock_type = std::chrono::steady_clock;

template <typename condition> bool await(const condition &holds)
{
    const auto deadline = clock_type::now() + 2 * patience;
    while (!holds()) {
        if (clock_type::now() >= deadline) return false;
        (void)poll(nullptr, 0, 20);
    }
    return true;
}

std::string address_of(int unit) { return "127.0.1." + std::to_string(unit + 1); }
std::string name_of(int unit) { return "Unit " + std::to_string(unit + 1); }

void write_settings(const unit_root &root, int unit, int pins, int virtual_count)
{
    std::string table;
    for (int pin = 1; pin <= pins; ++pin) {
        table += std::string(pin > 1 ? ", " : "") + "{\"in_pin\": " + std::to_string(pin) + ", \"out_pin\": " + std::to_string(100 + pin) + "}";
    }
    write_file(root.settings(), "{\"friendly_name\": \"" + name_of(unit) + "\", \"interface\": \"lo\", \"pins\": [" + table +
                                    "], \"virtual_count\": " + std::to_string(virtual_count) +
                                    ", \"servers\": {\"ember\": {\"address\": \"" + address_of(unit) + "\"}, \"web\": {\"address\": \"" +
                                    address_of(unit) + "\"}}}");
}

// One section of the library's configuration: `count` objects, each made by `object`.
template <typename maker> std::string objects(const char *prefix, int count, const maker &object)
{
    std::string text;
    for (int i = 0; i < count; ++i) {
        text += std::string(i > 0 ? ", " : "") + "\"" + prefix + std::to_string(i) + "\": " + object(i);
    }
    return text;
}

// Virtual output n follows pin n.
std::string source_config(int ports)
{
    const std::string physical = objects("gpio_", ports, [](int) {
        return std::string(R"({"type": 1, "handler": "", "handler_invert": "", "input_mode": 1})");
    });
    const std::string outputs = objects("vgpio_", ports, [](int i) {
        return R"({"type": 2, "trigger": "GPI )" + std::to_string(i + 1) + R"(", "invert_trigger": "0"})";
    });
    const std::string count = std::to_string(ports);
    return R"({"gpio": {"physical": {"phys_gpio_count": )" + count + ", " + physical + R"(}, "virtual": {"virtual_gpio_count": )" + count +
           ", " + outputs + "}}}";
}

// Input n takes its level from output n % ports of unit n / ports.
std::string follower_config(int units, int ports)
{
    const std::string inputs = objects("vgpio_", units * ports, [&](int i) {
        return R"({"type": 1, "handler": "", "handler_invert": "", "vgpo_src": "vGPO)" + std::to_string(i % ports + 1) + "@" +
               name_of(i / ports) + "\"}";
    });
    return R"({"gpio": {"virtual": {"virtual_gpio_count": )" + std::to_string(units * ports) + ", " + inputs + "}}}";
}

class running {
public:
    explicit running(const unit_root &root) : unit(root, {}, {"--with-daemons"}), link(root) {}
    void press(int pin) { (void)link.ask("{\"request\":\"press\",\"pin\":" + std::to_string(pin) + "}"); }
    void release(int pin) { (void)link.ask("{\"request\":\"release\",\"pin\":" + std::to_string(pin) + "}"); }

    unit_process unit;
    control_link link;
};

// The indexes of inputs that are on and of those that follow nothing.
std::pair<std::set<int>, int> levels_of(running &unit)
{
    const json_handle answer = unit.link.ask(R"({"request":"ports"})");
    std::pair<std::set<int>, int> result{{}, 0};
    size_t i;
    json_t *port;
    json_array_foreach(json_object_get(answer.get(), "ports"), i, port)
    {
        if (json_is_true(json_object_get(port, "state"))) result.first.insert(static_cast<int>(i));
        if (!json_is_true(json_object_get(port, "source_valid"))) ++result.second;
    }
    return result;
}

// Connections to port 9000 that are up, counted where they were made.
int links_to_providers()
{
    std::ifstream table("/proc/thread-self/net/tcp");
    int count = 0;
    for (std::string line; std::getline(table, line);) {
        std::istringstream words(line);
        std::string number, local, remote, state;
        words >> number >> local >> remote >> state;
        count += remote.ends_with(":2328") && state == "01";
    }
    return count;
}

}  // namespace

class many_units : public testing::Test {
protected:
    void SetUp() override
    {
        if (!enter_own_network()) GTEST_SKIP() << "no network namespace here";
    }
};

TEST_F(many_units, are_followed_by_64_inputs_over_one_link_each)
{
    constexpr int units = 8, ports = 8;
    std::vector<std::unique_ptr<unit_root>> roots;
    std::vector<std::unique_ptr<running>> sources;
    for (int i = 0; i < units; ++i) {
        roots.push_back(std::make_unique<unit_root>());
        write_settings(*roots.back(), i, ports, ports);
        write_file(roots.back()->config(), source_config(ports));
        sources.push_back(std::make_unique<running>(*roots.back()));
        ASSERT_TRUE(sources.back()->unit.ready());
    }
    const unit_root follower_root;
    write_settings(follower_root, units, 0, units * ports);
    write_file(follower_root.config(), follower_config(units, ports));
    running follower(follower_root);
    ASSERT_TRUE(follower.unit.ready());
    EXPECT_TRUE(await([&] { return levels_of(follower).second == 0; })) << levels_of(follower).second << " inputs follow nothing";
    EXPECT_EQ(links_to_providers(), units);

    std::set<int> wanted;
    for (int i = 0; i < units * ports; i += 5) {
        sources[static_cast<size_t>(i / ports)]->press(i % ports + 1);
        wanted.insert(i);
    }
    EXPECT_TRUE(await([&] { return levels_of(follower).first == wanted; })) << levels_of(follower).first.size() << " of " << wanted.size();
    sources[3].reset();
    EXPECT_TRUE(await([&] { return levels_of(follower).second == ports; }));
    sources[3] = std::make_unique<running>(*roots[3]);
    for (int i = 3 * ports; i < 4 * ports; ++i) wanted.erase(i);
    EXPECT_TRUE(await([&] { return levels_of(follower) == std::pair(wanted, 0); }));
    EXPECT_EQ(links_to_providers(), units);
}

namespace {

struct publish_record {
    int32_t interface;
    char name[64], type[64], domain[64];
    uint16_t port;
    char txt[1024];
    char padding[2];
} __attribute__((packed));
static_assert(sizeof(publish_record) == 1224);

constexpr int announced_units = 100, outputs_each = 8;

std::string announced_name(int i)
{
    return "vGPO" + std::to_string(i % outputs_each + 1) + "@Announced " + std::to_string(i / outputs_each);
}

// A client of a discovery daemon of its own that offers what 100 units would.
class announcer {
public:
    announcer()
    {
        write_settings(root_, 20, 0, 0);
        daemon_ = child_process({ZEL_BIN "/zel_sdiscd", "--root", root_.path()});
        setenv("ZEL_ROOT", root_.path().c_str(), 1);
        client_ = zel_ipc_client_init("zel_sdiscd", "announcer", [](zel_ipc_client_t *, uint8_t, const void *, uint32_t) {}, nullptr);
    }
    ~announcer() { zel_ipc_client_term(client_); }
    void announce()
    {
        for (int i = 0; i < announced_units * outputs_each; ++i) {
            publish_record record{};
            record.interface = 1;
            std::snprintf(record.name, sizeof record.name, "%s", announced_name(i).c_str());
            std::strcpy(record.type, "_zelvgpo._tcp");
            record.port = static_cast<uint16_t>(10000 + i / outputs_each);
            std::snprintf(record.txt, sizeof record.txt, "\"path=/unit/gpio/virtual/vgpio %d\"", i % outputs_each + 1);
            send(9, &record, sizeof record);
        }
    }
    void withdraw()
    {
        for (int i = 0; i < announced_units * outputs_each; ++i) {
            const std::string name = announced_name(i);
            send(10, name.c_str(), static_cast<uint32_t>(name.size() + 1));
        }
    }
    // To be called while waiting for something.
    void serve()
    {
        fd_set readfds;
        FD_ZERO(&readfds);
        int maxfd = -1;
        zel_ipc_client_set_fds(client_, &readfds, &maxfd);
        timeval nothing{};
        if (select(maxfd + 1, &readfds, nullptr, nullptr, &nothing) >= 0) zel_ipc_client_process_fds(client_, &readfds);
    }

private:
    void send(uint8_t type, const void *payload, uint32_t length)
    {
        ASSERT_EQ(zel_ipc_client_send(client_, type, payload, length), 0);
        serve();
    }

    unit_root root_;
    child_process daemon_;
    zel_ipc_client_t *client_;
};

size_t listed(running &unit)
{
    const json_handle answer = unit.link.ask(R"({"request":"grid"})");
    return json_array_size(json_object_get(json_object_get(answer.get(), "grid"), "vgpo_src_list"));
}

long memory_kib(pid_t process)
{
    std::ifstream table("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(table, line);) {
        if (line.starts_with("VmRSS:")) return std::stol(line.substr(6));
    }
    return -1;
}

}  // namespace

TEST_F(many_units, come_and_go_without_growth_of_memory)
{
    announcer units;
    const unit_root root;
    write_settings(root, 0, 0, 1);
    write_file(root.config(), R"({"gpio": {"virtual": {"virtual_gpio_count": 1, "vgpio_0": {"type": 0}}}})");
    running watcher(root);
    ASSERT_TRUE(watcher.unit.ready());
    constexpr int cycles = 4, settled = 1;
    long before = 0;
    for (int cycle = 0; cycle < cycles; ++cycle) {
        units.announce();
        ASSERT_TRUE(await([&] { units.serve(); return listed(watcher) == 1 + announced_units * outputs_each; })) << listed(watcher);
        units.withdraw();
        ASSERT_TRUE(await([&] { units.serve(); return listed(watcher) == 1; })) << listed(watcher);
        if (cycle == settled) before = memory_kib(watcher.unit.process().pid());
    }
    const long after = memory_kib(watcher.unit.process().pid());
    std::printf("%ld KiB after %d rounds, %ld KiB after %d\n", before, settled + 1, after, cycles);
    EXPECT_LT(after - before, ZEL_MEMORY_MARGIN_KIB);
}
