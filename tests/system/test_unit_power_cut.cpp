// The unit is killed while it writes its configuration, again and again; what it had taken up long enough before must be there.
#include "running_unit.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <signal.h>

#include <deque>
#include <random>

using namespace zel;
using namespace zel::test;

namespace {

using clock_type = std::chrono::steady_clock;

constexpr int rounds = 200;
constexpr int relays = 8;
// A set is written within 100 ms; the rest is for a writer thread that has to wait for a busy processor and disk.
constexpr std::chrono::milliseconds promised{100}, allowance{200};

// Every step connects one relay to the trigger or takes it away, in the order of a Gray code, so that the set of connected
// relays alone tells how many steps (modulo 256) had been taken.
unsigned gray(unsigned step)
{
    const unsigned turn = step % (1U << relays);
    return turn ^ turn >> 1;
}

unsigned connected_relays(const json_t *root)
{
    const json_t *const list = json_object_get(json_object_get(root, "gpio"), "relay");
    unsigned set = 0;
    for (int i = 0; i < relays; ++i) {
        const json_t *const relay = json_object_get(list, ("relay_" + std::to_string(i)).c_str());
        const char *const triggers = json_string_value(json_object_get(relay, "triggers"));
        if (triggers != nullptr && std::string(triggers) == "On Air") set |= 1U << i;
    }
    return set;
}

std::string step_request(unsigned step)
{
    const unsigned before = gray(step - 1), after = gray(step), changed = before ^ after;
    int relay = 0;
    while (changed >> relay != 1U) ++relay;
    return std::string(R"({"request":")") + ((after & changed) != 0 ? "connect" : "disconnect") +
           R"(","input":"On Air","output":"Relay )" + std::to_string(relay + 1) + "\"}";
}

struct taken_step {
    unsigned number;
    clock_type::time_point answered;
};

}  // namespace

TEST(unit_power_cut, a_kill_at_any_moment_leaves_a_valid_file_with_every_older_change)
{
    const unit_root root(R"(, "relays": {"base_pin": 1, "count": 8}, "triggers": ["On Air"], "log_level": "error")");
    std::mt19937 random(20240917);  // the moments differ with the machine all the same
    unsigned step = 0;
    std::chrono::milliseconds worst_age{0};
    for (int round = 0; round < rounds; ++round) {
        unit_process unit(root);
        ASSERT_TRUE(unit.ready()) << "round " << round << ": " << unit.process().err.rest();
        control_link link(root);
        std::deque<taken_step> taken;
        const auto end = clock_type::now() + std::chrono::microseconds(random() % 220000);
        while (clock_type::now() < end && taken.size() < 120) {
            ASSERT_TRUE(is_ok(link.ask(step_request(step + 1))));
            taken.push_back({++step, clock_type::now()});
            // Changes come in bursts and with pauses, so that kills meet both waiting and writing.
            if (random() % 8 == 0) (void)poll(nullptr, 0, static_cast<int>(random() % 40));
        }
        const bool in_flight = random() % 2 == 0;
        if (in_flight) link.send(step_request(step + 1) + "\n");
        unit.process().signal(SIGKILL);
        const auto killed = clock_type::now();
        ASSERT_EQ(unit.process().wait(), 128 + SIGKILL);

        const json_reading file = read_json_file(root.config().c_str());
        if (file.state == json_state::missing) {  // killed before the very first write
            ASSERT_TRUE(taken.empty() || killed - taken.front().answered < promised + allowance) << "round " << round;
            step = 0;
            continue;
        }
        ASSERT_EQ(file.state, json_state::good) << "round " << round << ": " << file.problem;
        const unsigned found = connected_relays(file.root.get());
        unsigned number = step + 1;  // of the last step in the file, searched backwards
        while (number > 0 && gray(number) != found && step + 1 - number < 200) --number;
        ASSERT_EQ(gray(number), found) << "round " << round;
        ASSERT_TRUE(number <= step || in_flight) << "round " << round;
        for (const taken_step &each : taken) {
            if (each.number <= number) continue;
            const auto age = std::chrono::duration_cast<std::chrono::milliseconds>(killed - each.answered);
            worst_age = std::max(worst_age, age);
            EXPECT_LT(age, promised + allowance) << "round " << round << ": a change of that age was lost";
        }
        step = number;
    }
    RecordProperty("oldest_lost_change_ms", static_cast<int>(worst_age.count()));
    std::printf("oldest change lost in %d kills: %d ms\n", rounds, static_cast<int>(worst_age.count()));
}
