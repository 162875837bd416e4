// "Eth Link Down" follows the interface's carrier. In a network of the test's own, which needs the right to make one.
#include "running_unit.h"
#include "two_hosts.h"

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdio>

using namespace zel;
using namespace zel::test;

namespace {

constexpr const char *settings = R"(, "interface": "zel0", "relays": {"base_pin": 1, "count": 1})";

class own_network : public testing::Test {
protected:
    void SetUp() override
    {
        if (!enter_own_network()) GTEST_SKIP() << "no network namespace or no veth interfaces here";
    }
    static bool add_link() { return ip({"link", "add", "zel0", "type", "veth", "peer", "name", "zel1"}); }
    static bool carrier(bool on)
    {
        return ip({"link", "set", "zel0", "up"}) && ip({"link", "set", "zel1", on ? "up" : "down"});
    }
    // The state that the next "Eth Link Down" event tells.
    static int next_event(control_link &watcher)
    {
        const json_handle line = watcher.next();
        EXPECT_EQ(text_of(line, "change"), "event");
        EXPECT_EQ(text_of(line, "name"), "Eth Link Down");
        return number_of(line, "state");
    }
    static bool link_up(const unit_root &root)
    {
        const json_handle answer = control_link(root).ask(R"({"request":"unit"})");
        return json_is_true(json_object_get(json_object_get(answer.get(), "unit"), "link_up"));
    }
};

}  // namespace

TEST_F(own_network, the_event_follows_the_carrier)
{
    ASSERT_TRUE(add_link() && carrier(true));
    const unit_root root(settings);
    unit_process unit(root);
    ASSERT_TRUE(unit.ready()) << unit.process().err.rest();
    ASSERT_TRUE(unit.process().err.await("Interface zel0 is up"));
    EXPECT_TRUE(link_up(root));
    control_link watcher(root);
    ASSERT_TRUE(is_ok(watcher.ask(R"({"request":"watch"})")));
    for (int i = 0; i < 2; ++i) {
        ASSERT_TRUE(carrier(false));
        EXPECT_EQ(next_event(watcher), 1);
        ASSERT_TRUE(carrier(true));
        EXPECT_EQ(next_event(watcher), 0);
    }
    ASSERT_TRUE(ip({"link", "set", "zel0", "down"}));
    EXPECT_EQ(next_event(watcher), 1);
    EXPECT_EQ(unit.stop(), 0) << unit.process().err.rest();
}

TEST_F(own_network, an_interface_that_comes_goes_or_changes_its_name_is_noticed)
{
    const unit_root root(settings);
    unit_process unit(root);
    ASSERT_TRUE(unit.ready());
    ASSERT_TRUE(unit.process().err.await("Interface zel0 is down"));  // there is none
    control_link watcher(root);
    ASSERT_TRUE(is_ok(watcher.ask(R"({"request":"watch"})")));
    ASSERT_TRUE(ip({"link", "add", "other0", "type", "veth", "peer", "name", "other1"}));  // no business of ours
    ASSERT_TRUE(ip({"link", "set", "other0", "up"}) && ip({"link", "set", "other1", "up"}));
    ASSERT_TRUE(add_link() && carrier(true));
    EXPECT_EQ(next_event(watcher), 0);
    ASSERT_TRUE(ip({"link", "del", "zel0"}));
    EXPECT_EQ(next_event(watcher), 1);
    ASSERT_TRUE(ip({"link", "set", "other0", "down"}) && ip({"link", "set", "other0", "name", "zel0"}));
    ASSERT_TRUE(ip({"link", "set", "zel0", "up"}));
    EXPECT_EQ(next_event(watcher), 0);
    ASSERT_TRUE(ip({"link", "set", "zel0", "down"}) && ip({"link", "set", "zel0", "name", "other0"}));
    EXPECT_EQ(next_event(watcher), 1);
    ASSERT_TRUE(ip({"link", "set", "other0", "up"}));
    ASSERT_TRUE(add_link() && carrier(true));
    EXPECT_EQ(next_event(watcher), 0);
    EXPECT_EQ(unit.stop(), 0) << unit.process().err.rest();
}

TEST_F(own_network, a_relay_that_follows_the_event_is_on_from_the_start_without_a_carrier)
{
    const unit_root root(settings);
    write_file(root.config(), R"({"gpio": {"relay": {"relay_0": {"triggers": "Eth Link Down", "trigger_invert": "0"}}}})");
    unit_process unit(root);
    ASSERT_TRUE(unit.ready());
    ASSERT_TRUE(unit.process().err.await("Interface zel0 is down"));
    const run_result pins = zelctl(root, {"pins"});
    EXPECT_EQ(pins.out, "PIN  NAME     DIRECTION  IN USE  ACTIVE LOW  LEVEL\n1    Relay 1  output     yes                 on\n");
    EXPECT_EQ(unit.stop(), 0) << unit.process().err.rest();
}
