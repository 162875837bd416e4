// Units that come, move and go at random while inputs choose among them at random. After every step: as many sessions as the
// inputs hold between them, one for each address, and none of an input that has no source.
#include <gtest/gtest.h>

#include <random>
#include <set>

#include "child_process.h"
#include "grid_test.h"
#include "vgpo_units.h"

using namespace vgpo_units;
using fake::unit;

namespace {

constexpr int inputs = 6, services = 5;

std::string name_of(unsigned service) { return "vGPO" + std::to_string(service) + "@Studio"; }

class studio {
public:
    explicit studio(unsigned seed) : random_(seed)
    {
        u_.virtuals(inputs).ember();
        for (int v = 0; v < inputs; ++v) {
            const std::string key = "virtual/vgpio_" + std::to_string(v);
            u_.set(key + "/type", 1).set(key + "/handler", "Record").set(key + "/handler_invert", "0");
            if (v % 2 == 0) u_.set(key + "/vgpo_src", name_of(static_cast<unsigned>(v)).c_str());
        }
    }

    void live(int steps)
    {
        ASSERT_EQ(u_.start(), 0);
        u_.handler("Record", [this](int32_t, uint8_t, uintptr_t) { interfere(); });
        for (int i = 0; i < steps && !testing::Test::HasFailure(); ++i) {
            step();
            check();
        }
        u_.stop();
        EXPECT_TRUE(u_.consumers().empty());
    }

private:
    unsigned any(unsigned end) { return random_() % end; }

    // Now and then a callback changes things in the middle of a step; never while it is called by its own change.
    void interfere()
    {
        if (inside_ || any(8) != 0) return;
        inside_ = true;
        step();
        inside_ = false;
    }

    void step()
    {
        switch (any(9)) {
            case 0:
            case 1: find(any(services)); break;
            case 2: remove(u_, name_of(any(services)).c_str()); break;
            case 3: choose(name_of(any(services))); break;
            case 4: choose(any(2) == 0 ? "" : "vGPO77@Nowhere"); break;
            case 5: turn(); break;
            case 6: change_link(); break;
            default: answer(); break;
        }
    }

    void find(unsigned service)
    {
        resolve(u_, name_of(service).c_str(), ("10.0.0." + std::to_string(any(3))).c_str(), 9000, "path=/" + name_of(service));
    }

    void choose(const std::string &source)
    {
        (void)u_.write("gpio/virtual/vgpio " + std::to_string(1 + any(inputs)) + "/vgpio source", source.c_str());
    }

    void turn()
    {
        (void)u_.write("gpio/virtual/vgpio " + std::to_string(1 + any(inputs)) + "/type",
                       any(4) == 0 ? static_cast<int>(any(3)) : 1);
    }

    int any_session()
    {
        const std::vector<int> sessions = u_.consumers();
        return sessions.empty() ? 0 : sessions[any(static_cast<unsigned>(sessions.size()))];
    }

    void change_link()
    {
        if (const int session = any_session()) u_.connected(session, any(2) == 0, ("10.0.0." + std::to_string(any(3))).c_str());
    }

    void answer()
    {
        const int session = any_session();
        if (session == 0 || u_.requests_ever(session) == 0) return;
        const int64_t value = any(4);
        u_.late_value(session, any(static_cast<unsigned>(u_.requests_ever(session))), any(5) == 0 ? nullptr : &value);
    }

    void check()
    {
        std::set<const void *> sessions;
        std::set<std::string> addresses;
        for (int i = 0; i < inputs; ++i) {
            const zel::gpio_port_t &input = port(i);
            if (input.vgpi_session == nullptr) {
                EXPECT_EQ(input.vgpi_provider_addr, nullptr) << i;
                continue;
            }
            EXPECT_EQ(input.type, 1u) << i;
            ASSERT_NE(input.vgpo_src, nullptr) << i;
            EXPECT_STRNE(input.vgpo_src, "") << i;
            ASSERT_NE(input.vgpi_provider_addr, nullptr) << i;
            sessions.insert(input.vgpi_session);
            addresses.insert(input.vgpi_provider_addr);
        }
        EXPECT_EQ(u_.consumers().size(), sessions.size());
        EXPECT_EQ(addresses.size(), sessions.size());
        EXPECT_LE(zel::remote_vgpos.count, static_cast<uint32_t>(services));
    }

    unit u_;
    std::mt19937 random_;
    bool inside_ = false;
};

void run(unsigned seed)
{
    std::printf("seed %u\n", seed);
    SCOPED_TRACE("seed " + std::to_string(seed) + ", repeated with ZEL_TEST_SEED");
    EXPECT_CHILD_SUCCEEDS(studio(seed).live(3000));
}

TEST(random_links, keep_one_session_for_each_address_that_is_followed)
{
    for (const unsigned seed : {1u, 2u, 3u, 4u}) run(seed);
}

TEST(random_links, of_a_fresh_seed_keep_one_session_for_each_address_that_is_followed)
{
    const char *const wanted = std::getenv("ZEL_TEST_SEED");
    run(wanted != nullptr ? static_cast<unsigned>(std::strtoul(wanted, nullptr, 10)) : std::random_device{}());
}

}  // namespace
