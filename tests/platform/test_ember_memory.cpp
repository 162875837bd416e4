// Memory: what is told in the long run needs none that is new, and when there is none, nothing is lost for good.

#include <cstdlib>
#include <new>

#include "ember_consumer_fixture.h"
#include "ember_provider_fixture.h"

namespace {

size_t allocations = 0;
int64_t fail_at = -1;        // the allocation that fails, counted from now on; negative: none
bool failed = false;

void *allocate(size_t size)
{
    ++allocations;
    if (fail_at >= 0 && fail_at-- == 0) {
        failed = true;
        throw std::bad_alloc();
    }
    if (void *memory = std::malloc(size))
        return memory;
    throw std::bad_alloc();
}

}  // namespace

void *operator new(size_t size) { return allocate(size); }
void *operator new[](size_t size) { return allocate(size); }
void operator delete(void *memory) noexcept { std::free(memory); }
void operator delete[](void *memory) noexcept { std::free(memory); }
void operator delete(void *memory, size_t) noexcept { std::free(memory); }
void operator delete[](void *memory, size_t) noexcept { std::free(memory); }

using namespace ember_test;

namespace {

using ember_memory = provider_fixture;

size_t drain(raw_peer &peer)
{
    uint8_t buffer[8192];
    size_t count = 0;
    for (ssize_t got; (got = recv(peer.fd(), buffer, sizeof(buffer), MSG_DONTWAIT)) > 0;)
        count += static_cast<size_t>(got);
    return count;
}

// Tries `act` with its first, second, third ... allocation failing, until none fails any more; how many failed.
template <typename action> int each_failure(action &&act)
{
    for (int nth = 0;; ++nth) {
        failed = false;
        fail_at = nth;
        act();
        fail_at = -1;
        if (!failed)
            return nth;
        if (nth > 2000) {
            ADD_FAILURE() << "no end of allocations";
            return nth;
        }
    }
}

}  // namespace

TEST_F(ember_memory, notifications_need_no_new_memory_in_the_long_run)
{
    std::vector<raw_peer> peers;
    for (int i = 0; i < 10; ++i) {
        peers.push_back(connected());
        look(peers.back(), {1, 1, 1, 1});
    }
    size_t received = 0;
    const auto rounds = [&](int count) {
        for (int i = 0; i < count; ++i) {
            set_integer(type_, i % 3);
            set_integer(status_, i % 2);
            provider().process();
            for (auto &peer : peers)
                received += drain(peer);
        }
    };
    rounds(100);
    received = 0;
    const size_t before = allocations;
    rounds(1000);
    EXPECT_EQ(allocations, before);
    EXPECT_GT(received, 10u * 1900 * 30);
}

TEST_F(ember_memory, a_failed_allocation_in_a_change_only_delays_the_news)
{
    auto peer = connected();
    look(peer, {1, 1, 1, 1});
    int64_t value = 0;
    EXPECT_GE(each_failure([&] {
        (void)set_integer(type_, ++value);
        fake_now += 200;
        provider().process();
    }), 0);
    int refused = 0;
    EXPECT_GT(each_failure([&] {
        const int64_t kept = std::exchange(fail_at, -1);
        const std::string text(static_cast<size_t>(5000 + ++value), 'a');     // longer than any room before it
        fail_at = kept;
        refused += set_text(functions_, text) != 0;
        provider().process();
    }), 0);
    EXPECT_GT(refused, 0);
    (void)set_integer(type_, 2);
    (void)set_text(functions_, "in the end");
    fake_now += 200;
    const lines said = heard(peer);
    EXPECT_NE(std::find(said.begin(), said.end(), "parameter 1.1.1.1.1 value=2 type=6"), said.end());
    EXPECT_NE(std::find(said.begin(), said.end(), "parameter 1.1.1.1.2 value='in the end' type=3"), said.end());
    EXPECT_FALSE(peer.is_closed());
}

TEST_F(ember_memory, a_failed_allocation_leaves_no_half_an_element)
{
    int added = 0;
    const int failures = each_failure([&] {
        added += zel_ember_add_string_param(session_, "a name too long for a string's own room",
                                            "a description that is long as well", 0, 3, "and a value of some length, too",
                                            nullptr, nullptr, sources_) != nullptr;
    });
    EXPECT_GT(failures, 5);
    EXPECT_EQ(added, 1);
    EXPECT_EQ(sources_->children.size(), 1u);
    EXPECT_EQ(sources_->children[0]->number, 1);
    auto peer = connected();
    EXPECT_EQ(answer(peer, build::get_directory({1, 1, 6})).size(), 2u);
}

TEST_F(ember_memory, a_client_is_dropped_alone_when_there_is_no_memory_for_it)
{
    auto watcher = connected();
    look(watcher, {1, 1, 1, 1, 7});
    const int failures = each_failure([&] {
        const int64_t kept = std::exchange(fail_at, -1);
        auto peer = connected();
        peer.send(build::get_directory({1, 1, 1, 1}));
        peer.send(build::set_text({1, 1, 1, 1, 2}, "a text that does not fit a string's own room"));
        fail_at = kept;
        for (int i = 0; i < 4; ++i)
            provider().process();
        fail_at = -1;
    });
    EXPECT_GT(failures, 3);
    set_integer(status_, 0);
    EXPECT_EQ(heard(watcher), lines{"parameter 1.1.1.1.7 value=false type=4"});
    auto peer = connected();
    EXPECT_EQ(answer(peer, build::get_directory({1, 1, 1, 1})).size(), 8u);
}

TEST(ember_memory_start, a_session_that_finds_no_memory_does_not_start)
{
    int started = 0;
    const int failures = each_failure([&] {
        zel_ember_session_config_t config{};
        zel_ember_session_t *provider = zel_ember_session_init(&config);
        config.provider_addr = "127.0.0.1:9";
        zel_ember_session_t *consumer = zel_ember_session_init(&config);
        started += provider != nullptr && consumer != nullptr;
        zel_ember_session_term(provider);
        zel_ember_session_term(consumer);
    });
    EXPECT_GT(failures, 2);
    EXPECT_EQ(started, 1);
}

namespace {

class ember_consumer_memory : public consumer_fixture {
protected:
    ~ember_consumer_memory() override { end(); }
};

}  // namespace

TEST_F(ember_consumer_memory, a_consumer_knows_the_level_in_the_end_whatever_allocation_failed)
{
    zel_ember_session_config_t config{};
    auto *provider = zel_ember_session_init(&config);
    auto *unit = zel_ember_add_node(provider, "a node with a long identifier", nullptr, 0, nullptr);
    auto *status = zel_ember_add_boolean_param(provider, "status", nullptr, 0, 3, 1, nullptr, nullptr, unit);
    auto *name = zel_ember_add_string_param(provider, "name", nullptr, 0, 3, "", nullptr, nullptr, unit);
    sessions_.add(provider);
    const std::string address = "127.0.0.1:" + std::to_string(zel_ember_get_port(provider));
    int64_t level = 1;
    struct view { int64_t level = -1; size_t length = 0; } seen;
    const auto on_level = [](void *to, const char *, uint32_t, const void *value) {
        static_cast<view *>(to)->level = value != nullptr ? *static_cast<const int64_t *>(value) : -1;
    };
    const auto on_name = [](void *to, const char *, uint32_t, const void *value) {
        static_cast<view *>(to)->length = value != nullptr ? strlen(static_cast<const char *>(value)) : 0;
    };
    int rounds = 0;
    const int failures = each_failure([&] {
        const int64_t kept = std::exchange(fail_at, -1);
        seen = {};
        level = 1 - level;
        const std::string text(100 + static_cast<size_t>(++rounds) % 50, 'x');
        start(address);
        (void)zel_ember_get_param(session_, "a node with a long identifier/name", &seen, on_name);
        fail_at = kept;
        int followed = -1;
        for (int i = 0; i < 40; ++i) {
            if (followed != 0)
                followed = zel_ember_get_param(session_, "a node with a long identifier/status", &seen, on_level);
            if (i == 20) {
                (void)zel_ember_set_param(provider, nullptr, 0, 0, status, &level, sizeof(level), nullptr, nullptr);
                (void)zel_ember_set_param(provider, nullptr, 0, 0, name, text.c_str(), text.size() + 1, nullptr, nullptr);
            }
            // The consumer alone: the provider has tests of its own.
            zel_ember_process_fds(session_, nullptr);
            const int64_t rest = std::exchange(fail_at, -1);
            zel_ember_process_fds(provider, nullptr);
            fail_at = rest;
        }
        fail_at = -1;
        (void)zel_ember_set_param(provider, nullptr, 0, 0, status, &level, sizeof(level), nullptr, nullptr);
        (void)zel_ember_set_param(provider, nullptr, 0, 0, name, text.c_str(), text.size() + 1, nullptr, nullptr);
        EXPECT_TRUE(until([&] { pass(300); return seen.level == level && seen.length == text.size(); })) << "failure " << rounds;
        end();
    });
    EXPECT_GT(failures, 20);
    sessions_.remove(provider);
    zel_ember_session_term(provider);
}

TEST_F(ember_consumer_memory, a_value_that_is_set_has_one_result_whatever_allocation_failed)
{
    zel_ember_session_config_t config{};
    auto *provider = zel_ember_session_init(&config);
    auto *unit = zel_ember_add_node(provider, "a node with a long identifier", nullptr, 0, nullptr);
    auto *name = zel_ember_add_string_param(provider, "name", nullptr, 0, 3, "", nullptr, nullptr, unit);
    sessions_.add(provider);
    const std::string address = "127.0.0.1:" + std::to_string(zel_ember_get_port(provider));
    struct outcome { int results = 0; size_t length = 0; } seen;
    const auto on_done = [](void *to, const char *, uint32_t, const void *value) {
        ++static_cast<outcome *>(to)->results;
        static_cast<outcome *>(to)->length = value != nullptr ? strlen(static_cast<const char *>(value)) : 0;
    };
    int rounds = 0;
    const int failures = each_failure([&] {
        const int64_t kept = std::exchange(fail_at, -1);
        seen = {};
        const std::string text(100 + static_cast<size_t>(++rounds) % 50, 'x');
        start(address);
        fail_at = kept;
        int accepted = -1;
        for (int i = 0; i < 40; ++i) {
            if (accepted != 0)
                accepted = zel_ember_set_param(session_, "a node with a long identifier/name", 0, 0, nullptr, text.c_str(),
                                               text.size() + 1, &seen, on_done);
            zel_ember_process_fds(session_, nullptr);
            const int64_t rest = std::exchange(fail_at, -1);
            zel_ember_process_fds(provider, nullptr);
            fail_at = rest;
        }
        fail_at = -1;
        EXPECT_EQ(accepted, 0);
        EXPECT_TRUE(until([&] { pass(300); return seen.results > 0; })) << "failure " << rounds;
        if (seen.length != 0) {
            EXPECT_EQ(seen.length, text.size());
            EXPECT_EQ(name->text, text);
        }
        pass(4000);
        EXPECT_EQ(seen.results, 1) << "failure " << rounds;
        end();
    });
    EXPECT_GT(failures, 20);
    EXPECT_EQ(seen.length, name->text.size());       // the last time nothing failed
    sessions_.remove(provider);
    zel_ember_session_term(provider);
}
