// Two units on one machine, each with its daemons and an address of its own on the loopback interface, wired by hand: a contact of
// the one switches a relay of the other.
#include "running_unit.h"
#include "two_hosts.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <signal.h>

using namespace zel;
using namespace zel::test;

namespace {

using clock = std::chrono::steady_clock;

std::string settings_of(const std::string &name, const std::string &address)
{
    return "{\"friendly_name\": \"" + name + "\", \"interface\": \"lo\", \"pins\": [{\"in_pin\": 1, \"out_pin\": 101}], " +
           "\"relays\": {\"base_pin\": 201, \"count\": 2}, \"virtual_count\": 2, \"servers\": {\"ember\": {\"address\": \"" +
           address + "\"}, \"web\": {\"address\": \"" + address + "\"}}}\n";
}

// A unit with its daemons, and someone who turns its grid.
class studio {
public:
    studio(const std::string &name, const std::string &address) { write_file(root_.settings(), settings_of(name, address)); }

    bool start()
    {
        unit_.reset();
        unit_ = std::make_unique<unit_process>(root_, environment{}, std::vector<std::string>{"--with-daemons"});
        return unit_->ready();
    }
    void kill() { unit_.reset(); }
    bool stop() { return unit_->stop() == 0; }
    testing::AssertionResult ctl(const std::vector<std::string> &words) const
    {
        const run_result result = zelctl(root_, words);
        if (result.status == 0) return testing::AssertionSuccess();
        return testing::AssertionFailure() << result.err;
    }
    // Waits until what zelctl prints of it holds the text; the last of it if it never does.
    testing::AssertionResult await(const std::string &command, const std::string &text, bool wanted = true) const
    {
        const auto deadline = clock::now() + patience;
        run_result result;
        do {
            result = zelctl(root_, {command, "--json"});
            if ((result.out.find(text) != std::string::npos) == wanted) return testing::AssertionSuccess();
            (void)poll(nullptr, 0, 20);
        } while (clock::now() < deadline);
        return testing::AssertionFailure() << result.out << result.err;
    }
    testing::AssertionResult await_relay(bool on) const
    {
        const auto deadline = clock::now() + patience;
        run_result result;
        do {
            result = zelctl(root_, {"relays", "--json"});
            const json_handle answer(json_loads(result.out.c_str(), 0, nullptr));
            const json_t *const relay = json_array_get(json_object_get(answer.get(), "relays"), 0);
            if (json_is_boolean(json_object_get(relay, "state")) && json_is_true(json_object_get(relay, "state")) == on) {
                return testing::AssertionSuccess();
            }
            (void)poll(nullptr, 0, 20);
        } while (clock::now() < deadline);
        return testing::AssertionFailure() << result.out << result.err;
    }
    // Settings may reach the disk a moment after the unit has answered.
    bool await_saved(const std::string &text) const
    {
        const auto deadline = clock::now() + patience;
        while (read_file(root_.config()).find(text) == std::string::npos) {
            if (clock::now() >= deadline) return false;
            (void)poll(nullptr, 0, 20);
        }
        return true;
    }
    bool has_source(const std::string &name) const { return zelctl(root_, {"grid", "--json"}).out.find(name) != std::string::npos; }

private:
    unit_root root_;
    std::unique_ptr<unit_process> unit_;
};

class two_studios : public testing::Test {
protected:
    void SetUp() override
    {
        if (!enter_own_network()) GTEST_SKIP() << "no network namespace or no veth interfaces here";
        ASSERT_TRUE(a.start() && b.start());
    }
    // Contact 1 of A drives A's first virtual output, which B's first virtual input follows, which drives B's first relay.
    void wire()
    {
        ASSERT_TRUE(a.ctl({"set-port", "GPI 1", "input", "--mode", "momentary"}));
        ASSERT_TRUE(a.ctl({"set-port", "vGPO 1", "output"}));
        ASSERT_TRUE(a.ctl({"connect", "GPI 1", "vGPO 1"}));
        ASSERT_TRUE(b.await("grid", "vGPO1@Studio A"));
        ASSERT_TRUE(b.ctl({"set-port", "vGPI 1", "input", "--source", "vGPO1@Studio A"}));
        ASSERT_TRUE(b.ctl({"connect", "vGPI 1", "Relay 1"}));
    }
    void expect_presses_to_arrive()
    {
        for (const bool on : {true, false, true}) {
            ASSERT_TRUE(a.ctl({on ? "press" : "release", "1"}));
            ASSERT_TRUE(b.await_relay(on));
        }
    }

    studio a{"Studio A", "127.0.0.2"}, b{"Studio B", "127.0.0.3"};
};

}  // namespace

TEST_F(two_studios, a_press_here_switches_a_relay_there)
{
    wire();
    expect_presses_to_arrive();
    EXPECT_FALSE(a.has_source("vGPO1@Studio A")) << "a unit is offered its own output as a source";
    EXPECT_TRUE(a.stop() && b.stop());
}

TEST_F(two_studios, what_was_wired_works_again_after_both_were_killed)
{
    wire();
    expect_presses_to_arrive();
    ASSERT_TRUE(a.await_saved("\"trigger\": \"GPI 1\"") && b.await_saved("\"triggers\": \"vGPI 1\""));
    a.kill();
    b.kill();
    ASSERT_TRUE(b.start() && a.start());
    ASSERT_TRUE(b.await_relay(false));
    expect_presses_to_arrive();
}

TEST_F(two_studios, a_relay_goes_off_when_the_unit_that_holds_it_on_is_gone_for_good)
{
    wire();
    expect_presses_to_arrive();
    ASSERT_TRUE(b.await_relay(true));
    a.kill();
    EXPECT_TRUE(b.await_relay(false));
    ASSERT_TRUE(a.start());
    expect_presses_to_arrive();
}

TEST_F(two_studios, an_output_that_is_taken_back_is_no_source_any_more_unless_it_is_followed)
{
    ASSERT_TRUE(a.ctl({"set-port", "vGPO 1", "output"}));
    ASSERT_TRUE(a.ctl({"set-port", "vGPO 2", "output"}));
    ASSERT_TRUE(b.await("grid", "vGPO1@Studio A") && b.await("grid", "vGPO2@Studio A"));
    ASSERT_TRUE(b.ctl({"set-port", "vGPI 1", "input", "--source", "vGPO1@Studio A"}));
    EXPECT_FALSE(b.ctl({"set-port", "vGPI 1", "input", "--source", "No such source"})) << "and nothing has changed:";
    ASSERT_TRUE(a.ctl({"set-port", "vGPO 1", "disabled"}));
    ASSERT_TRUE(a.ctl({"set-port", "vGPO 2", "disabled"}));
    EXPECT_TRUE(b.await("grid", "vGPO2@Studio A", false));
    EXPECT_TRUE(b.has_source("vGPO1@Studio A"));
}
