// Our consumer and our provider, connected to each other.

#include "ember_consumer_fixture.h"
#include "provider.h"

#include <algorithm>
#include <map>
#include <random>

using namespace ember_test;

namespace {

class ember_pair : public consumer_fixture {
protected:
    ember_pair() { open(0); }
    ~ember_pair() override
    {
        end();
        shut();
    }

    void open(uint16_t port)
    {
        zel_ember_session_config_t config{};
        config.listen_port = port;
        provider_ = zel_ember_session_init(&config);
        ASSERT_NE(provider_, nullptr);
        port_ = zel_ember_get_port(provider_);
        sessions_.add(provider_);
    }
    void shut()
    {
        if (provider_ == nullptr)
            return;
        sessions_.remove(provider_);
        zel_ember_session_term(std::exchange(provider_, nullptr));
    }
    void connect() { start("127.0.0.1:" + std::to_string(port_), 10, ember::monotonic_ms); }

    zel_ember_element_t *node(const char *name, zel_ember_element_t *parent = nullptr)
    {
        return zel_ember_add_node(provider_, name, nullptr, 0, parent);
    }
    zel_ember_element_t *boolean(const char *name, bool value, zel_ember_element_t *parent)
    {
        return zel_ember_add_boolean_param(provider_, name, nullptr, 0, 3, value, nullptr, nullptr, parent);
    }
    zel_ember_element_t *text(const char *name, const std::string &value, zel_ember_element_t *parent)
    {
        return zel_ember_add_string_param(provider_, name, nullptr, 0, 3, value.c_str(), nullptr, nullptr, parent);
    }
    void set(zel_ember_element_t *parameter, int64_t value)
    {
        EXPECT_EQ(zel_ember_set_param(provider_, nullptr, 0, 0, parameter, &value, sizeof(value), nullptr, nullptr), 0);
    }

    zel_ember_session_t *provider_ = nullptr;
    uint16_t port_ = 0;
};

}  // namespace

TEST_F(ember_pair, a_value_and_its_changes_arrive)
{
    auto *status = boolean("status", true, node("gpio 1", node("unit")));
    connect();
    char path[64];
    ASSERT_EQ(zel_ember_get_path(provider_, status, path, sizeof(path)), 0);
    ASSERT_EQ(follow(path), 0);
    ASSERT_TRUE(until_told({"up", "/unit/gpio 1/status = 1 (4)"}));
    set(status, 0);
    set(status, 1);
    set(status, 0);
    EXPECT_TRUE(until_told({"up", "/unit/gpio 1/status = 1 (4)", "/unit/gpio 1/status = 0 (4)", "/unit/gpio 1/status = 1 (4)",
                            "/unit/gpio 1/status = 0 (4)"}));
}

TEST_F(ember_pair, an_element_that_goes_and_comes_back_is_followed_again)
{
    auto *unit = node("unit");
    auto *status = boolean("status", true, unit);
    connect();
    (void)follow("unit/status");
    ASSERT_TRUE(until_told({"up", "unit/status = 1 (4)"}));
    zel_ember_remove_element(provider_, status);
    ASSERT_TRUE(until_told({"up", "unit/status = 1 (4)", "unit/status = none"}));
    status = boolean("status", true, unit);
    ASSERT_TRUE(until([&] { return told_.size() == 4; }));
    set(status, 0);
    EXPECT_TRUE(until_told({"up", "unit/status = 1 (4)", "unit/status = none", "unit/status = 1 (4)", "unit/status = 0 (4)"}));
}

TEST_F(ember_pair, a_node_that_goes_and_comes_back_is_walked_again)
{
    auto *unit = node("unit");
    auto *gpio = node("gpio", unit);
    (void)boolean("status", true, gpio);
    connect();
    (void)follow("unit/gpio/status");
    ASSERT_TRUE(until_told({"up", "unit/gpio/status = 1 (4)"}));
    zel_ember_remove_element(provider_, gpio);
    ASSERT_TRUE(until_told({"up", "unit/gpio/status = 1 (4)", "unit/gpio/status = none"}));
    gpio = node("gpio", unit);
    (void)boolean("other", true, gpio);
    auto *status = boolean("status", false, gpio);
    ASSERT_TRUE(until([&] { return told_.size() == 4; }));
    set(status, 1);
    EXPECT_TRUE(until_told({"up", "unit/gpio/status = 1 (4)", "unit/gpio/status = none", "unit/gpio/status = 0 (4)",
                            "unit/gpio/status = 1 (4)"}));
}

TEST_F(ember_pair, a_provider_that_starts_again_with_other_numbers_is_followed_by_name)
{
    (void)boolean("status", true, node("unit"));
    connect();
    (void)follow("unit/status");
    ASSERT_TRUE(until_told({"up", "unit/status = 1 (4)"}));
    for (int round = 0; round < 3; ++round) {
        told_.clear();
        shut();
        ASSERT_TRUE(until_told({"down"}));
        open(port_);
        for (int i = 0; i <= round; ++i)
            (void)node(("before " + std::to_string(i)).c_str());
        (void)boolean("status", round % 2, node("unit"));
        ASSERT_TRUE(until_told({"down", "up", "unit/status = " + std::to_string(round % 2) + " (4)"}));
    }
}

TEST_F(ember_pair, many_consumers_follow_one_parameter)
{
    auto *status = boolean("status", false, node("unit"));
    struct follower { zel_ember_session_t *session; int64_t last = -1; size_t calls = 0; };
    std::vector<follower> followers(50);
    const std::string address = "127.0.0.1:" + std::to_string(port_);
    for (auto &f : followers) {
        zel_ember_session_config_t config{};
        config.provider_addr = address.c_str();
        f.session = zel_ember_session_init(&config);
        ASSERT_NE(f.session, nullptr);
        sessions_.add(f.session);
        const auto on_level = [](void *to, const char *, uint32_t, const void *value) {
            static_cast<follower *>(to)->last = value != nullptr ? *static_cast<const int64_t *>(value) : -1;
            ++static_cast<follower *>(to)->calls;
        };
        ASSERT_EQ(zel_ember_get_param(f.session, "unit/status", &f, on_level), 0);
    }
    const auto all_at = [&](int64_t level) {
        return std::all_of(followers.begin(), followers.end(), [&](const auto &f) { return f.last == level; });
    };
    ASSERT_TRUE(until([&] { return all_at(0); }));
    for (int64_t level : {1, 0, 1}) {
        set(status, level);
        ASSERT_TRUE(until([&] { return all_at(level); }));
    }
    for (auto &f : followers) {
        EXPECT_EQ(f.calls, 4u);
        sessions_.remove(f.session);
        zel_ember_session_term(f.session);
    }
}

TEST_F(ember_pair, both_in_one_descriptor_set_as_a_host_has_them)
{
    auto *status = boolean("status", true, node("unit"));
    connect();
    (void)follow("unit/status");
    for (int round = 0; round < 2000 && told_.size() < 3; ++round) {
        fd_set ready;
        FD_ZERO(&ready);
        int highest = -1;
        zel_ember_set_fds(provider_, &ready, &highest);
        zel_ember_set_fds(session_, &ready, &highest);
        timeval limit{10, 0};
        ASSERT_GT(select(highest + 1, &ready, nullptr, nullptr, &limit), 0);
        zel_ember_process_fds(provider_, &ready);
        zel_ember_process_fds(session_, &ready);
        if (told_.size() == 2)
            set(status, 0);
    }
    EXPECT_EQ(told_, (lines{"up", "unit/status = 1 (4)", "unit/status = 0 (4)"}));
}

TEST_F(ember_pair, a_session_that_is_not_ready_is_not_served)
{
    connect();
    fd_set none;
    FD_ZERO(&none);
    for (int i = 0; i < 10; ++i)
        zel_ember_process_fds(session_, &none);
    EXPECT_EQ(told_, lines{});
}

// Random trees, changed at random while a consumer follows everything: in the end it knows what is there.
TEST_F(ember_pair, random_trees_are_known_to_the_consumer_as_they_are)
{
    struct parameter { zel_ember_element_t *element; std::string shown; };
    for (unsigned seed = 1; seed <= 15; ++seed) {
        std::mt19937 random(seed);
        std::vector<std::pair<zel_ember_element_t *, std::string>> nodes;
        std::map<std::string, parameter> parameters;
        std::map<std::string, std::string> known;
        connect();
        const auto on_any = [](void *to, const char *path, uint32_t kind, const void *value) {
            (*static_cast<std::map<std::string, std::string> *>(to))[path] =
                value == nullptr ? "none" : kind == 3 ? static_cast<const char *>(value)
                                                      : std::to_string(*static_cast<const int64_t *>(value));
        };
        const auto change = [&](parameter &p) {
            if (p.element->is_text()) {
                p.shown = std::string(random() % 3000, static_cast<char>('a' + random() % 26));
                ASSERT_EQ(zel_ember_set_param(provider_, nullptr, 0, 0, p.element, p.shown.c_str(), p.shown.size() + 1, nullptr,
                                              nullptr), 0);
            } else {
                const int64_t value = p.element->kind == ember::element_kind::boolean ? random() % 2 : random() % 5;
                p.shown = std::to_string(value);
                set(p.element, value);
            }
        };
        for (int i = 0; i < 120; ++i) {
            const bool at_root = nodes.empty() || random() % 8 == 0;
            using place = std::pair<zel_ember_element_t *, std::string>;
            const auto [parent, above] = at_root ? place{nullptr, ""} : nodes[random() % nodes.size()];
            const std::string name = "e " + std::to_string(i);
            const std::string path = above + "/" + name;
            int32_t number = 0;
            switch (random() % 4) {
            case 0:
                if (std::count(path.begin(), path.end(), '/') < 12)
                    nodes.emplace_back(node(name.c_str(), parent), path);
                break;
            case 1:
                parameters[path] = {boolean(name.c_str(), true, parent), "1"};
                break;
            case 2:
                number = static_cast<int32_t>(1000 + random() % 1000000 * 200) + i;
                parameters[path] = {zel_ember_add_enum_param(provider_, name.c_str(), "x", number, 3, 2, "a\nb\nc",
                                                             nullptr, nullptr, parent), "2"};
                ASSERT_NE(parameters[path].element, nullptr);
                break;
            default:
                parameters[path] = {text(name.c_str(), "start", parent), "start"};
                break;
            }
            if (parameters.contains(path)) {
                ASSERT_EQ(zel_ember_get_param(session_, path.c_str(), &known, on_any), 0);
            }
            if (!parameters.empty())
                change(std::next(parameters.begin(), static_cast<long>(random() % parameters.size()))->second);
            if (random() % 10 == 0 && !parameters.empty()) {
                const auto gone = std::next(parameters.begin(), static_cast<long>(random() % parameters.size()));
                zel_ember_remove_element(provider_, gone->second.element);
                zel_ember_clear_param_cb(session_, gone->first.c_str());
                known.erase(gone->first);
                parameters.erase(gone);
            }
            if (random() % 3 == 0)
                sessions_.turn(0);
        }
        const auto all_known = [&] {
            return std::ranges::all_of(parameters, [&](const auto &p) { return known[p.first] == p.second.shown; });
        };
        EXPECT_TRUE(until(all_known)) << "seed " << seed;
        end();
        shut();
        open(0);
    }
}
