// The tree as start-up builds it: nodes, parameters, their order, access, entries and first values, and what happens where an
// element cannot be added.
#include "child_process.h"
#include "port_steps.h"
#include "zel_gpio/connection_lists.h"
#include "zel_gpio/ember_tree.h"
#include "zel_gpio/port_type.h"

using namespace port_steps;

namespace {

/// Runs in a child and must stop at an assertion with this condition.
void expect_assertion(const std::string &condition, const std::function<void()> &body)
{
    const fake::child_result child = fake::in_child(body);
    EXPECT_EQ(child.signal, SIGABRT) << condition;
    EXPECT_NE(child.output.find("`" + condition + "'"), std::string::npos) << child.output;
}

lines nodes_of(const unit &u) { return fake::only(u.tree(), {"node"}); }

lines below(const unit &u, const std::string &path)
{
    lines result;
    for (const std::string &line : u.tree()) {
        const size_t at = line.find(' ') + 1;
        if (line.compare(at, path.size() + 1, path + "/") == 0)
            result.push_back(line.substr(0, at) + line.substr(at + path.size() + 1));
    }
    return result;
}

}   // namespace

// ---- Fixed nodes

struct counts {
    int32_t physical, relays, virtuals, buttons;
    lines nodes;
};

void PrintTo(const counts &c, std::ostream *out)
{
    *out << c.physical << " " << c.relays << " " << c.virtuals << " " << c.buttons;
}

class fixed_nodes : public testing::TestWithParam<counts> {};

TEST_P(fixed_nodes, are_those_that_the_unit_has_ports_for)
{
    const counts &c = GetParam();
    unit u;
    u.ember();
    EXPECT_EQ(zel::init_gpio_ember_tree(u.provider(), u.parent(), c.physical, c.relays, c.virtuals, c.buttons), 0);
    lines expected{"node gpio"};
    for (const std::string &name : c.nodes)
        expected.push_back("node gpio/" + name);
    for (const char *const name : {"handlers", "triggers", "vgpio sources"})
        expected.push_back(std::string("node gpio/") + name);
    EXPECT_LINES(u.tree(), expected);
    for (std::string &line : expected)
        line = "ember add " + line;
    EXPECT_LINES(u.take(), expected);
}

INSTANTIATE_TEST_SUITE_P(units, fixed_nodes,
                         testing::Values(counts{0, 0, 0, 0, {}}, counts{1, 0, 0, 0, {"physical"}},
                                         counts{0, 1, 0, 0, {"physical"}}, counts{20, 8, 0, 0, {"physical"}},
                                         counts{0, 0, 1, 0, {"virtual"}}, counts{0, 0, 0, 1, {"user buttons"}},
                                         counts{-1, -1, -1, -1, {}},
                                         counts{2, 2, 2, 2, {"physical", "virtual", "user buttons"}}));

struct failure {
    const char *name, *message;
    lines added;   // before and after the failure
};

void PrintTo(const failure &f, std::ostream *out) { *out << f.name; }

class fixed_node : public testing::TestWithParam<failure> {};

TEST_P(fixed_node, that_cannot_be_added_ends_the_building)
{
    const failure &f = GetParam();
    unit u;
    u.ember().fail(std::string("ember add gpio/") + f.name);
    EXPECT_EQ(zel::init_gpio_ember_tree(u.provider(), u.parent(), 1, 1, 1, 1), -1);
    lines expected{"ember add node gpio"};
    for (const std::string &name : f.added)
        expected.push_back("ember add node gpio/" + name);
    expected.push_back(std::string("ember add gpio/") + f.name + " failed");
    expected.push_back(std::string("log 0 init_gpio_ember_tree: ") + f.message);
    EXPECT_LINES(u.take(), expected);
}

INSTANTIATE_TEST_SUITE_P(
    names, fixed_node,
    testing::Values(failure{"physical", "Failed to create gpio node", {}},
                    failure{"virtual", "Failed to create vgpio node", {"physical"}},
                    failure{"user buttons", "Failed to create user button node", {"physical", "virtual"}},
                    failure{"handlers", "Failed to create handlers node", {"physical", "virtual", "user buttons"}},
                    failure{"triggers", "Failed to create triggers node", {"physical", "virtual", "user buttons", "handlers"}},
                    failure{"vgpio sources",
                            "Failed to create vGPIO Sources node",
                            {"physical", "virtual", "user buttons", "handlers", "triggers"}}));

TEST(the_node_of_the_library, that_cannot_be_added_is_followed_by_the_physical_one_only)
{
    unit u;
    u.ember().fail("ember add gpio", 1);
    EXPECT_EQ(zel::init_gpio_ember_tree(u.provider(), u.parent(), 1, 1, 1, 1), -1);
    const lines all = u.take();
    ASSERT_EQ(all.size(), 3u) << fake::joined(all);
    EXPECT_EQ(all[0], "ember add gpio failed");
    EXPECT_EQ(all[1], "log 0 init_gpio_ember_tree: Failed to create gpio node");
    EXPECT_TRUE(fake::begins_with(all[2], "ember add node") && ends_with(all[2], "physical")) << all[2];
}

TEST(the_node_of_the_library, and_the_physical_one_are_reported_in_the_same_words)
{
    unit u;
    u.ember().fail("ember add");
    EXPECT_EQ(zel::init_gpio_ember_tree(u.provider(), u.parent(), 1, 0, 1, 1), -1);
    EXPECT_LINES(u.journal_of("log"), "log 0 init_gpio_ember_tree: Failed to create gpio node",
                 "log 0 init_gpio_ember_tree: Failed to create gpio node");
}

TEST(a_start, whose_tree_cannot_be_built_fails)
{
    unit u;
    u.gpis(1).virtuals(1).ember().fail("ember add gpio/triggers");
    EXPECT_EQ(u.start(), -1);
    EXPECT_TRUE(u.logged("0 zel_gpio_init: Failed to initialise ember tree"));
}

TEST(a_tree, is_not_built_without_a_provider_or_without_a_parent)
{
    unit u;
    u.ember();
    EXPECT_EQ(zel::init_gpio_ember_tree(nullptr, u.parent(), 1, 1, 1, 1), 0);
    EXPECT_EQ(zel::init_gpio_ember_tree(u.provider(), nullptr, 1, 1, 1, 1), 0);
    EXPECT_EQ(zel::ember_provider, nullptr);
    EXPECT_LINES(u.take());
}

TEST(a_tree, that_does_not_exist_is_never_written)
{
    unit u;
    u.gpis(2)
        .coughs(1)
        .virtuals(1)
        .buttons(1)
        .relays(1)
        .set("physical/gpio_0/type", 1)
        .set("physical/gpio_0/input_mode", 1)
        .set("physical/gpio_1/type", 2);
    u.set("physical/gpio_1/trigger", "GPI 1").set("relay/relay_0/triggers", "GPI 1").set("user_buttons/btn_1/type", 1);
    ASSERT_EQ(u.start(), 0);
    u.handler("Record"), u.trigger("Door");
    discover(u, "vGPO1@Studio 2", 2, "/a");
    u.edge(1, 1);
    EXPECT_EQ(u.level(201), 1);
    zel_gpio_notify_user_button_event(0);
    for (int32_t index = 0; index < 6; ++index)
        for (const uint32_t type : {1, 2, 0})
            (void)zel::set_gpio_type(&zel::gpios[index], type, 0);
    u.stop();
    EXPECT_LINES(u.journal_of("ember"));
}

// ---- Whole trees

TEST(a_tree, of_every_kind_of_port_has_exactly_these_elements)
{
    unit u;
    u.gpis(2).coughs(2).virtuals(2).buttons(2).relays(2).ember();
    ASSERT_EQ(u.start(), 0);
    lines expected{"node gpio", "node gpio/physical"};
    const auto add = [&](const std::string &node, const lines &parameters) {
        expected.push_back("node gpio/" + node);
        for (const std::string &line : parameters) {
            const size_t space = line.find(' ');
            expected.push_back(line.substr(0, space) + " gpio/" + node + "/" + line.substr(space + 1));
        }
    };
    const lines port{"enum type = 0 [disabled|input|output] rw",
                     "string input functions =  rw",
                     "string output triggers =  rw",
                     "string active triggers =  r",
                     "enum input mode = 0 [latching|momentary] rw",
                     "boolean status = 0 rw"};
    const lines cough{"enum type = 0 [disabled|input] rw", "string input functions =  rw",
                      "enum input mode = 0 [latching|momentary] r", "boolean status = 0 rw"};
    const lines relay{"string output triggers =  rw", "string active triggers =  r", "boolean status = 0 r"};
    const lines vgpio{"enum type = 0 [disabled|input|output] rw",
                      "string input functions =  rw",
                      "string output triggers =  rw",
                      "string active triggers =  r",
                      "string vgpio source =  rw",
                      "boolean status = 0 rw"};
    const lines button{"enum type = 0 [disabled|input|output] rw", "string input functions =  rw",
                       "enum input mode = 0 [latching|momentary] rw", "boolean status = 0 rw"};
    const lines led{"enum type = 0 [disabled|input|output] rw", "string output triggers =  rw", "string active triggers =  r",
                    "boolean status = 0 rw"};
    add("physical/gpio 1", port), add("physical/gpio 2", port), add("physical/cough 1", cough), add("physical/cough 2", cough);
    add("physical/relay 1", relay), add("physical/relay 2", relay);
    expected.push_back("node gpio/virtual");
    add("virtual/vgpio 1", vgpio), add("virtual/vgpio 2", vgpio);
    expected.push_back("node gpio/user buttons");
    add("user buttons/button 1", button), add("user buttons/led 1", led), add("user buttons/button 2", button),
        add("user buttons/led 2", led);
    expected.push_back("node gpio/handlers");
    expected.push_back("node gpio/triggers");
    for (const char *const leaf :
         {"0 = Eth Link Down", "1 = AoIP Link Down", "2 = AC Power Off", "3 = DC Power Off", "4 = PTP Sync Lost", "5 = GPI 1",
          "6 = GPI 2", "7 = COUGH 1", "8 = COUGH 2", "9 = vGPI 1", "10 = vGPI 2", "11 = User Button 1", "12 = User Button 2"})
        expected.push_back(std::string("string gpio/triggers/t-") + leaf + " r");
    expected.push_back("node gpio/vgpio sources");
    EXPECT_LINES(u.tree(), expected);
}

TEST(a_tree, is_built_with_each_port_and_relay_in_the_order_of_start_up)
{
    unit u;
    u.gpis(1).coughs(1).virtuals(1).buttons(1).relays(1).ember();
    ASSERT_EQ(u.start(), 0);
    lines added;
    for (const std::string &line : u.journal_of("ember add node"))
        added.push_back(line.substr(std::strlen("ember add node ")));
    EXPECT_LINES(added, "gpio", "gpio/physical", "gpio/virtual", "gpio/user buttons", "gpio/handlers", "gpio/triggers",
                 "gpio/vgpio sources", "gpio/physical/gpio 1", "gpio/physical/cough 1", "gpio/physical/relay 1",
                 "gpio/virtual/vgpio 1", "gpio/user buttons/button 1", "gpio/user buttons/led 1");
}

TEST(a_tree, with_handlers_and_sources_has_a_leaf_for_each)
{
    unit u;
    u.virtuals(1).ember();
    ASSERT_EQ(u.start(), 0);
    u.handler("Record"), u.handler("Play");
    discover(u, "vGPO1@Studio 2", 2, "/a");
    EXPECT_LINES(below(u, "gpio/handlers"), "string h-0 = Record r", "string h-1 = Play r");
    EXPECT_LINES(below(u, "gpio/vgpio sources"), "string v-0 = vGPO1@Studio 2 r");
    EXPECT_FALSE(u.parameter_of("gpio/handlers/h-0").has_callback);
    EXPECT_EQ(u.parameter_of("gpio/handlers/h-0").user_data, nullptr);
}

TEST(a_tree, is_removed_first_at_shut_down)
{
    unit u;
    u.gpis(1).virtuals(1).relays(1).ember().set("virtual/vgpio_0/type", 2);
    ASSERT_EQ(u.start(), 0);
    u.take();
    u.stop();
    ASSERT_FALSE(u.journal().empty());
    EXPECT_EQ(u.journal().front(), "ember remove gpio");
    EXPECT_EQ(u.count_of("ember"), 1);
}

TEST(a_tree, keeps_its_elements_when_ports_change_their_types)
{
    unit u;
    u.gpis(1).coughs(1).virtuals(1).buttons(1).ember();
    ASSERT_EQ(u.start(), 0);
    const lines before = nodes_of(u);
    const size_t size = u.tree().size();
    u.take();
    for (int32_t index = 0; index < 5; ++index)
        for (const uint32_t type : {1, 2, 1, 0, 2, 0})
            (void)zel::set_gpio_type(&zel::gpios[index], type, 0);
    EXPECT_LINES(nodes_of(u), before);
    EXPECT_EQ(u.tree().size(), size);
    EXPECT_EQ(u.count_of("ember add") + u.count_of("ember remove"), 0);
}

// ---- Callbacks and records

struct owner {
    const char *path;
    int32_t index;   // -1: the relay
    bool calls;
};

void PrintTo(const owner &o, std::ostream *out) { *out << o.path; }

class parameter_owner : public testing::TestWithParam<owner> {};

TEST_P(parameter_owner, is_what_the_callback_gets)
{
    const owner &o = GetParam();
    unit u;
    u.gpis(1).coughs(1).virtuals(1).buttons(1).relays(1).ember();
    ASSERT_EQ(u.start(), 0);
    const fake::parameter p = u.parameter_of(std::string("gpio/") + o.path);
    ASSERT_TRUE(p.exists);
    EXPECT_EQ(p.has_callback, o.calls);
    void *const record = o.index == -1 ? static_cast<void *>(&zel::relays[0]) : &zel::gpios[o.index];
    EXPECT_EQ(p.user_data, o.calls ? record : nullptr);
}

INSTANTIATE_TEST_SUITE_P(
    parameters, parameter_owner,
    testing::Values(owner{"physical/gpio 1/type", 0, true}, owner{"physical/gpio 1/input functions", 0, true},
                    owner{"physical/gpio 1/output triggers", 0, true}, owner{"physical/gpio 1/active triggers", 0, false},
                    owner{"physical/gpio 1/input mode", 0, true}, owner{"physical/gpio 1/status", 0, true},
                    owner{"physical/cough 1/type", 1, true}, owner{"physical/cough 1/input functions", 1, true},
                    owner{"physical/cough 1/input mode", 1, false}, owner{"physical/cough 1/status", 1, true},
                    owner{"virtual/vgpio 1/type", 2, true}, owner{"virtual/vgpio 1/input functions", 2, true},
                    owner{"virtual/vgpio 1/output triggers", 2, true}, owner{"virtual/vgpio 1/active triggers", 2, false},
                    owner{"virtual/vgpio 1/vgpio source", 2, true}, owner{"virtual/vgpio 1/status", 2, true},
                    owner{"user buttons/button 1/type", 3, true}, owner{"user buttons/button 1/input functions", 3, true},
                    owner{"user buttons/button 1/input mode", 3, true}, owner{"user buttons/button 1/status", 3, true},
                    owner{"user buttons/led 1/type", 4, true}, owner{"user buttons/led 1/output triggers", 4, true},
                    owner{"user buttons/led 1/active triggers", 4, false}, owner{"user buttons/led 1/status", 4, true},
                    owner{"physical/relay 1/output triggers", -1, true}, owner{"physical/relay 1/active triggers", -1, false},
                    owner{"physical/relay 1/status", -1, false}));

// ---- First values

struct run_on {
    const char *names, *shown;
};

void PrintTo(const run_on &r, std::ostream *out) { *out << '"' << r.names << '"'; }

class first_list : public testing::TestWithParam<run_on> {};

TEST_P(first_list, of_handlers_runs_the_last_name_on_to_the_one_before)
{
    unit u;
    u.gpis(1)
        .virtuals(1)
        .ember()
        .set("physical/gpio_0/type", 1)
        .set("physical/gpio_0/handler", GetParam().names)
        .set("physical/gpio_0/handler_invert", "1");
    ASSERT_EQ(u.start(), 0);
    EXPECT_EQ(u.count_of(std::string("ember add string gpio/physical/gpio 1/input functions = ") + GetParam().shown + " rw"), 1);
}

TEST_P(first_list, of_a_relay_runs_the_last_name_on_to_the_one_before)
{
    unit u;
    u.relays(1).ember().set("relay/relay_0/triggers", GetParam().names).set("relay/relay_0/trigger_invert", "1");
    ASSERT_EQ(u.start(), 0);
    EXPECT_EQ(u.count_of(std::string("ember add string gpio/physical/relay 1/output triggers = ") + GetParam().shown + " rw"), 1);
}

TEST_P(first_list, of_an_output_joins_every_name)
{
    unit u;
    u.gpis(1)
        .virtuals(1)
        .ember()
        .set("physical/gpio_0/type", 2)
        .set("physical/gpio_0/trigger", GetParam().names)
        .set("physical/gpio_0/invert_trigger", "1");
    ASSERT_EQ(u.start(), 0);
    EXPECT_EQ(u.count_of(std::string("ember add string gpio/physical/gpio 1/output triggers = ") + GetParam().names + " rw"), 1);
    EXPECT_EQ(u.count_of("ember add string gpio/physical/gpio 1/active triggers =  r"), 1)
        << "an invert makes no difference here";
    EXPECT_EQ(u.count_of("ember add string gpio/physical/gpio 1/input functions =  rw"), 1);
}

INSTANTIATE_TEST_SUITE_P(names, first_list,
                         testing::Values(run_on{"", ""}, run_on{"A", "A"}, run_on{"A, B", "AB"}, run_on{"A, B, C", "A, BC"},
                                         run_on{"A, B, C, D", "A, B, CD"}, run_on{"Eth Link Down, A, A", "Eth Link Down, AA"}));

TEST(first_values, of_active_triggers_are_those_that_have_occurred)
{
    unit u;
    u.gpis(4).virtuals(1).relays(1).ember();
    for (int i = 0; i < 3; ++i) {
        const std::string port = "physical/gpio_" + std::to_string(i);
        u.set(port + "/type", 1).set(port + "/input_mode", 1).set_level(1 + i, 1);
    }
    u.set("physical/gpio_3/type", 2)
        .set("physical/gpio_3/trigger", "GPI 1, Unknown, GPI 2, Eth Link Down, GPI 3")
        .set("physical/gpio_3/invert_trigger", "0, 0, 1, 1, 0");
    u.set("relay/relay_0/triggers", "GPI 1, GPI 2, GPI 3").set("relay/relay_0/trigger_invert", "0, 1, 0");
    u.set("virtual/vgpio_0/type", 2).set("virtual/vgpio_0/trigger", "GPI 3, GPI 1").set("virtual/vgpio_0/invert_trigger", "0, 0");
    ASSERT_EQ(u.start(), 0);
    EXPECT_EQ(
        u.count_of("ember add string gpio/physical/gpio 4/output triggers = GPI 1, Unknown, GPI 2, Eth Link Down, GPI 3 rw"), 1);
    EXPECT_EQ(u.count_of("ember add string gpio/physical/gpio 4/active triggers = GPI 1, GPI 2, GPI 3 r"), 1);
    EXPECT_EQ(u.count_of("ember add string gpio/physical/relay 1/output triggers = GPI 1, GPI 2GPI 3 rw"), 1);
    EXPECT_EQ(u.count_of("ember add string gpio/physical/relay 1/active triggers = GPI 1, GPI 2, GPI 3 r"), 1);
    EXPECT_EQ(u.count_of("ember add string gpio/virtual/vgpio 1/active triggers = GPI 3, GPI 1 r"), 1);
    EXPECT_EQ(u.value_of("gpio/physical/gpio 1/output triggers"), "GPI 1") << "an input lists its own";
    EXPECT_EQ(u.value_of("gpio/physical/gpio 1/active triggers"), "GPI 1");
}

TEST(first_values, of_types_modes_levels_and_sources_are_the_ports_own)
{
    unit u;
    u.gpis(3).coughs(1).virtuals(2).buttons(1).relays(2).ember();
    u.set("physical/gpio_0/type", 1).set("physical/gpio_0/input_mode", 1).set_level(1, 1);
    u.set("physical/gpio_1/type", 2).set_level(102, 1);
    u.set("physical/gpio_3/type", 1).set_level(4, 1);
    u.set("virtual/vgpio_0/type", 1).set("virtual/vgpio_0/vgpo_src", "vGPO1@Studio 2").set("virtual/vgpio_1/type", 2);
    u.set("virtual/vgpio_1/trigger", "GPI 1").set("virtual/vgpio_1/invert_trigger", "0");
    u.set("user_buttons/btn_1/type", 1).set("user_buttons/btn_1/input_mode", 1).set("user_buttons/led_1/type", 2);
    u.set_level(201, 1);
    ASSERT_EQ(u.start(), 0);
    const auto added = [&](const char *line) { EXPECT_EQ(u.count_of(std::string("ember add ") + line), 1) << line; };
    added("enum gpio/physical/gpio 1/type = 1 [disabled|input|output] rw"),
        added("enum gpio/physical/gpio 1/input mode = 1 [latching|momentary] rw");
    added("boolean gpio/physical/gpio 1/status = 1 rw");
    added("enum gpio/physical/gpio 2/type = 2 [disabled|input|output] rw"), added("boolean gpio/physical/gpio 2/status = 1 rw");
    added("enum gpio/physical/gpio 3/type = 0 [disabled|input|output] rw"), added("boolean gpio/physical/gpio 3/status = 0 rw");
    added("enum gpio/physical/cough 1/type = 1 [disabled|input] rw"),
        added("enum gpio/physical/cough 1/input mode = 1 [latching|momentary] r");
    added("boolean gpio/physical/cough 1/status = 1 rw");
    added("enum gpio/virtual/vgpio 1/type = 1 [disabled|input|output] rw"),
        added("string gpio/virtual/vgpio 1/vgpio source = vGPO1@Studio 2 rw");
    added("enum gpio/virtual/vgpio 2/type = 2 [disabled|input|output] rw"),
        added("string gpio/virtual/vgpio 2/vgpio source =  rw");
    added("boolean gpio/virtual/vgpio 2/status = 0 rw");
    added("enum gpio/user buttons/button 1/type = 1 [disabled|input|output] rw"),
        added("enum gpio/user buttons/button 1/input mode = 1 [latching|momentary] rw");
    added("boolean gpio/user buttons/button 1/status = 0 rw"),
        added("enum gpio/user buttons/led 1/type = 2 [disabled|input|output] rw");
    added("boolean gpio/physical/relay 1/status = 1 r"), added("boolean gpio/physical/relay 2/status = 0 r");
}

TEST(first_values, of_levels_without_a_pin_are_0)
{
    unit u;
    u.gpis(1).virtuals(1).relays(1).ember().set("physical/gpio_0/type", 1).fail("pin 1 open").fail("pin 201 open");
    u.set_level(1, 1), u.set_level(201, 1);
    (void)u.start();
    EXPECT_EQ(u.value_of("gpio/physical/gpio 1/status"), "0");
    EXPECT_EQ(u.value_of("gpio/physical/relay 1/status"), "0");
    EXPECT_EQ(u.count_of("pin null"), 0);
}

TEST(first_values, of_full_lists_of_long_names_are_complete)
{
    unit u;
    std::string names, run_on_names;
    for (int i = 0; i < 200; ++i) {
        names += (i > 0 ? ", " : "") + long_name("Name", i);
        run_on_names += (i > 0 && i < 199 ? ", " : "") + long_name("Name", i);
    }
    u.gpis(2)
        .virtuals(1)
        .relays(1)
        .ember()
        .set("physical/gpio_0/type", 1)
        .set("physical/gpio_0/handler", names.c_str())
        .set("physical/gpio_0/handler_invert", "0");
    u.set("physical/gpio_1/type", 2).set("physical/gpio_1/trigger", names.c_str()).set("physical/gpio_1/invert_trigger", "0");
    u.set("relay/relay_0/triggers", names.c_str()).set("relay/relay_0/trigger_invert", "0");
    ASSERT_EQ(u.start(), 0);
    EXPECT_EQ(u.value_of("gpio/physical/gpio 1/input functions"), run_on_names);
    EXPECT_EQ(u.value_of("gpio/physical/gpio 2/output triggers"), names);
    EXPECT_EQ(u.count_of("ember add string gpio/physical/relay 1/output triggers = " + run_on_names + " rw"), 1);
}

// ---- Elements that cannot be added

struct port_node {
    const char *path, *name;
    bool relay, ignored;   // start-up goes on without a button's or LED's node
};

void PrintTo(const port_node &n, std::ostream *out) { *out << n.path; }

class node_of_a_port : public testing::TestWithParam<port_node> {};

TEST_P(node_of_a_port, that_cannot_be_added_is_reported)
{
    const port_node &n = GetParam();
    unit u;
    u.gpis(2).coughs(1).virtuals(2).buttons(1).relays(2).ember().fail(std::string("ember add gpio/") + n.path);
    EXPECT_EQ(u.start(), n.ignored ? 0 : -1);
    const std::string function = n.relay ? "add_relay_to_ember_tree" : "add_gpio_to_ember_tree";
    EXPECT_TRUE(u.logged("0 " + function + ": Failed to add new ember node: '" + n.name + "'"));
    EXPECT_EQ(u.value_of(std::string("gpio/") + n.path), "absent");
}

INSTANTIATE_TEST_SUITE_P(nodes, node_of_a_port,
                         testing::Values(port_node{"physical/gpio 2", "gpio 2", false, false},
                                         port_node{"physical/cough 1", "cough 1", false, false},
                                         port_node{"virtual/vgpio 2", "vgpio 2", false, false},
                                         port_node{"user buttons/button 1", "button 1", false, true},
                                         port_node{"user buttons/led 1", "led 1", false, true},
                                         port_node{"physical/relay 2", "relay 2", true, false}));

class missing_parameter : public testing::TestWithParam<const char *> {};

TEST_P(missing_parameter, is_not_reported_and_the_others_are_there)
{
    const std::string path = std::string("gpio/") + GetParam();
    unit u;
    u.gpis(1).coughs(1).virtuals(1).buttons(1).relays(1).ember().fail("ember add " + path);
    EXPECT_EQ(u.start(), 0);
    EXPECT_EQ(u.value_of(path), "absent");
    EXPECT_TRUE(fake::only(u.journal(), {"log 0", "log 1"}).empty());
    const size_t leaves_of_triggers = below(u, "gpio/triggers").size(), nodes = nodes_of(u).size();
    EXPECT_EQ(u.tree().size() - leaves_of_triggers - nodes, 6 + 4 + 6 + 4 + 4 + 3 - 1u)
        << "all of gpio, cough, vgpio, button, led and relay but one";
    u.take();
    for (int32_t index = 0; index < 5; ++index)
        for (const uint32_t type : {1, 2, 0})
            (void)zel::set_gpio_type(&zel::gpios[index], type, 0);
    EXPECT_EQ(u.count_of("ember set " + path) + u.count_of("ember set null"), 0);
}

INSTANTIATE_TEST_SUITE_P(parameters, missing_parameter,
                         testing::Values("physical/gpio 1/type", "physical/gpio 1/input functions",
                                         "physical/gpio 1/output triggers", "physical/gpio 1/active triggers",
                                         "physical/gpio 1/input mode", "physical/gpio 1/status", "virtual/vgpio 1/vgpio source",
                                         "user buttons/led 1/status"));

TEST(a_leaf_of_a_source, that_cannot_be_added_is_not_removed_either)
{
    unit u;
    u.virtuals(1).ember().fail("ember add gpio/vgpio sources/v-0");
    ASSERT_EQ(u.start(), 0);
    discover(u, "vGPO1@Studio 2", 2, "/a");
    EXPECT_NE(find_vgpo_by_name(&zel::remote_vgpos, "vGPO1@Studio 2"), nullptr);
    u.take();
    withdraw(u, "vGPO1@Studio 2");
    EXPECT_EQ(zel::remote_vgpos.count, 0u);
    EXPECT_EQ(u.count_of("ember"), 0);
}

// ---- Programming errors

TEST(a_tree_without_virtual_ports, stops_the_start_of_a_unit_with_ports)
{
    expect_assertion("virtual_node != NULL", [] {
        unit u;
        u.gpis(1).ember();
        u.start();
    });
    expect_assertion("virtual_node != NULL", [] {
        unit u;
        u.buttons(1).ember();
        u.start();
    });
}

TEST(a_tree_without_virtual_ports, is_enough_for_relays)
{
    unit u;
    u.relays(2).ember();
    EXPECT_EQ(u.start(), 0);
    EXPECT_EQ(below(u, "gpio/physical/relay 2").size(), 3u);
}

TEST(a_tree_without_its_tables, is_an_assertion)
{
    expect_assertion("virtual_node != NULL", [] {
        unit u;
        u.ember();
        (void)zel::add_gpio_to_ember_tree(0);
    });
    expect_assertion("gpios != NULL", [] {
        unit u;
        u.ember();
        (void)zel::init_gpio_ember_tree(u.provider(), u.parent(), 1, 0, 1, 0);
        (void)zel::add_gpio_to_ember_tree(0);
    });
    expect_assertion("phys_node != NULL", [] {
        unit u;
        u.ember();
        (void)zel::init_gpio_ember_tree(u.provider(), u.parent(), 0, 0, 1, 0);
        (void)zel::allocate_ports(1, 1, 0);
        (void)zel::add_gpio_to_ember_tree(0);
    });
    expect_assertion("phys_node != NULL", [] {
        unit u;
        u.ember();
        (void)zel::init_gpio_ember_tree(u.provider(), u.parent(), 0, 0, 1, 0);
        (void)zel::add_relay_to_ember_tree(0);
    });
    expect_assertion("relays != NULL", [] {
        unit u;
        u.ember();
        (void)zel::init_gpio_ember_tree(u.provider(), u.parent(), 0, 1, 1, 0);
        (void)zel::add_relay_to_ember_tree(0);
    });
}
