// A consumer session that several virtual inputs share: who hears of its connection, whoever made it.

#include <gtest/gtest.h>

#include "grid_test.h"
#include "vgpo_units.h"
#include "zel_gpio/vgpi_links.h"

using namespace vgpo_units;
using fake::unit;

namespace {

void resolve_at(unit &u, const char *name, const char *address, const std::string &path)
{
    resolve(u, name, address, 9000, "\"path=" + path + "\"");
}

// Inputs 0 and 1 follow two sources of one unit over session 1, which input 0 made.
void start_sharing(unit &u)
{
    describe(u, {near, beside});
    ASSERT_EQ(u.start(), 0);
    resolve_at(u, near, "10.0.0.2", "/near");
    resolve_at(u, beside, "10.0.0.2", "/beside");
    ASSERT_EQ(port(0).vgpi_session, port(1).vgpi_session);
}

}  // namespace

TEST(a_shared_session, still_tells_its_users_of_the_link_when_its_maker_has_left)
{
    unit u;
    start_sharing(u);
    zel::close_vgpi_session(0);
    ASSERT_EQ(port(1).vgpo_src_valid, 1);
    u.connected(1, false);
    EXPECT_EQ(port(1).vgpo_src_valid, 0);
    u.take();
    u.connected(1, true);
    EXPECT_EQ(port(1).vgpo_src_valid, 1);
    EXPECT_LINES(u.take_of("consumer"), "consumer 1 get /beside/type");
}

TEST(a_shared_session, is_not_taken_for_the_one_that_its_maker_has_now)
{
    unit u;
    start_sharing(u);
    resolve_at(u, far, "10.0.0.3", "/far");
    ASSERT_EQ(u.write("gpio/virtual/vgpio 1/vgpio source", far), 0);
    ASSERT_NE(port(0).vgpi_session, port(1).vgpi_session);
    const int made_later = u.consumers().back();
    u.connected(1, false);
    EXPECT_EQ(port(0).vgpo_src_valid, 1);
    EXPECT_EQ(port(1).vgpo_src_valid, 0);
    u.connected(1, true);
    u.connected(made_later, false, "10.0.0.3");
    EXPECT_EQ(port(0).vgpo_src_valid, 0);
    EXPECT_EQ(port(1).vgpo_src_valid, 1);
}

TEST(a_session, whose_levels_could_not_be_asked_for_still_tells_its_maker_of_the_link)
{
    unit u;
    describe(u, {near});
    ASSERT_EQ(u.start(), 0);
    u.fail("consumer 1 get /near/status", 1);
    resolve(u, near);
    ASSERT_EQ(port(0).vgpi_provider_addr, nullptr);
    u.connected(1, true);
    EXPECT_EQ(port(0).vgpo_src_valid, 1);
}

TEST(a_session, that_is_one_of_two_to_its_address_is_known_by_the_input_that_made_it)
{
    unit u;
    describe(u, {near, beside});
    ASSERT_EQ(u.start(), 0);
    u.fail("consumer 1 get " + std::string("/near/status"));
    resolve_at(u, near, "10.0.0.2", "/near");
    resolve_at(u, beside, "10.0.0.2", "/beside");
    ASSERT_EQ(u.consumers().size(), 2u);
    u.heal();
    u.take();
    u.connected(1, true);
    EXPECT_LINES(u.take_of("consumer"), "consumer 1 get /near/type");
    u.connected(1, false);
    EXPECT_EQ(port(0).vgpo_src_valid, 0);
    EXPECT_EQ(port(1).vgpo_src_valid, 1);
}

TEST(a_session, whose_maker_went_to_another_unit_does_not_speak_for_that_unit)
{
    unit u;
    start_sharing(u);
    resolve_at(u, far, "10.0.0.3", "/far");
    u.fail("consumer 1 get /beside/status");
    ASSERT_EQ(zel::connect_vgpi_to_vgpo(1), -1);
    u.heal();
    ASSERT_EQ(u.write("gpio/virtual/vgpio 1/vgpio source", far), 0);
    u.connected(1, false);
    EXPECT_EQ(port(0).vgpo_src_valid, 1) << "10.0.0.3 has not gone";
}
