// The library against a plain model of the grid: random operations, both compared after every step; now and then the unit
// restarts in a new process with the settings that it saved.
#include <cstdio>
#include <cstdlib>
#include <random>

#include "child_process.h"
#include "fake_state.h"
#include "grid_model.h"
#include "grid_test.h"
#include "zel_gpio/connection_lists.h"

using namespace grid_test;
using grid_model::grid;
using grid_model::owner;
using grid_model::settings;

namespace {

constexpr grid_model::description unit_description{6, 3, 3, 2};
constexpr int port_count = 6 + 3 + 4;

const char *const trigger_names[] = {"Door", "Fire", "Mute", "Talk", "Lamp", "Bell"};
const char *const handler_names[] = {"Record", "Stop", "Mute", "Talk", "Lamp", "Bell"};   // most are in both: mirrored pairs

// ---- The file as a flat list of values ----

void flatten(const zel_json_obj *object, const std::string &path, settings &result)
{
    for (const auto &[key, value] : object->members) {
        const std::string below = path.empty() ? key : path + "/" + key;
        if (value->kind == zel_json_obj::object)
            flatten(value, below, result);
        else
            result[below] = fake::json_text(value);
    }
}

settings file_of_unit()
{
    settings result;
    if (const zel_json_obj *gpio = fake::find_json(fake::now().json_root, "gpio"))
        flatten(gpio, "", result);
    return result;
}

std::string value_in(const settings &file, const std::string &key)
{
    const auto found = file.find(key);
    return found == file.end() ? "absent" : found->second;
}

/// Empty when both say the same.
std::string differences(const settings &library, const settings &model)
{
    settings keys = library;
    keys.insert(model.begin(), model.end());
    std::string text;
    for (const auto &[key, value] : keys)
        if (value_in(library, key) != value_in(model, key))
            text += key + ": library " + value_in(library, key) + ", model " + value_in(model, key) + "\n";
    return text;
}

// ---- Both sides in one form ----

std::string text_of(const grid_model::entries &list, bool with_locks)
{
    std::string text;
    for (const grid_model::entry &e : list)
        text += (text.empty() ? "" : " ") + entry_text(e.name.c_str(), e.id, e.invert) +
                (with_locks && !e.may_invert ? "(locked)" : "");
    return text;
}

std::string model_port(const grid_model::port &p)
{
    std::string text = "type " + std::to_string(p.type) + " state " + std::to_string(p.state) + " first " +
        std::to_string(p.first_trigger());
    if (p.type == grid_model::output && p.kind == grid_model::physical)
        text += " pin " + std::to_string(p.out_pin);
    if (p.type == grid_model::output)
        text += " active " + std::to_string(p.active);
    if (p.type == grid_model::input)
        text += " momentary " + std::to_string(p.momentary);
    text += " [" + text_of(p.triggers, false) + "] [";
    for (const grid_model::driven_handler &d : p.handlers)
        text += (text.back() == '[' ? "" : " ") + entry_text(d.name.c_str(), d.id, d.invert);
    return text + "]";
}

std::string library_port(const unit &u, int32_t index)
{
    const zel::gpio_port_t &p = zel::gpios[index];
    std::string text = "type " + std::to_string(p.type) + " state " + std::to_string(p.state) + " first " +
        std::to_string(p.trig_ids[0]);
    if (p.type == zel::type_output && p.gpio_class == zel::class_physical)
        text += " pin " + std::to_string(u.level(101 + index));
    if (p.type == zel::type_output)
        text += " active " + std::to_string(p.active_trigs);
    if (p.type == zel::type_input)
        text += " momentary " + std::to_string(p.input_mode);
    return text + " [" + port_list(index) + "] [" + port_handlers(index) + "]";
}

std::string library_handler_list(const handler_t &h)
{
    std::string text;
    for (int32_t k = 0; k < h.num_trigs; ++k)
        text += (text.empty() ? "" : " ") + entry_text(h.trigger_names[k], h.trig_ids[k], h.trig_inv[k]) +
                (h.allow_invert[k] ? "" : "(locked)");
    return text;
}

void compare_names(const grid &model)
{
    for (int32_t id = 0; id < grid_model::slots; ++id) {
        const grid_model::trigger &t = model.triggers[static_cast<size_t>(id)];
        ASSERT_EQ(trigger_list[id].name == nullptr ? "" : trigger_list[id].name, t.name) << "trigger " << id;
        EXPECT_EQ(trigger_list[id].state, t.state) << "trigger " << id << " " << t.name;
        EXPECT_EQ(trigger_list[id].on_grid, t.on_grid) << "trigger " << id << " " << t.name;
        const grid_model::handler &h = model.handlers[static_cast<size_t>(id)];
        ASSERT_EQ(handler_list[id].name == nullptr ? "" : handler_list[id].name, h.name) << "handler " << id;
        if (h.name.empty())
            continue;
        EXPECT_EQ(handler_list[id].state, h.state) << "handler " << id << " " << h.name;
        EXPECT_EQ(handler_list[id].port_mask, h.asserted_by) << "handler " << id << " " << h.name;
        EXPECT_EQ(handler_list[id].active_trigs, h.active) << "handler " << id << " " << h.name;
        EXPECT_EQ(handler_list[id].on_grid, h.on_grid) << "handler " << id << " " << h.name;
        EXPECT_EQ(library_handler_list(handler_list[id]), text_of(h.triggers, true)) << "handler " << id << " " << h.name;
    }
}

void compare(unit &u, const grid &model)
{
    compare_names(model);
    for (int32_t i = 0; i < port_count; ++i)
        EXPECT_EQ(library_port(u, i), model_port(model.ports[static_cast<size_t>(i)])) << "port " << i;
    for (int32_t r = 0; r < unit_description.relays; ++r) {
        const grid_model::relay &relay = model.relays[static_cast<size_t>(r)];
        EXPECT_EQ(relay_list(r), text_of(relay.triggers, false)) << "relay " << r;
        EXPECT_EQ(zel::relays[r].active_trigs, relay.active) << "relay " << r;
        EXPECT_EQ(u.level(201 + r), relay.pin) << "relay " << r;
    }
    EXPECT_EQ(differences(file_of_unit(), model.file), "");
}

// ---- One process of the unit ----

class pair_of_grids {
public:
    pair_of_grids(unit &with, const settings &file, unsigned seed) : u(with), model(unit_description, file), random(seed)
    {
        for (const char *name : handler_names)
            if (pick(2))
                do_register_handler(name);
        if (pick(2))
            do_register_led_handler(pick(2));
    }

    /// One operation on both; what it was.
    std::string step()
    {
        u.take(), u.forget_sent(), model.calls.clear();
        what.clear();
        switch (pick(20)) {
        case 0: do_register_handler(any(handler_names)); break;
        case 1: do_register_trigger(any(trigger_names)); break;
        case 2: do_removal(); break;
        case 3: do_rename(); break;
        case 4: do_register_led_handler(pick(2)); break;
        case 5: case 6: case 7: do_connection(); break;
        case 8: case 9: do_handler_connection(); break;
        case 10: do_direction(); break;
        case 11: case 12: case 13: do_edge(); break;
        case 14: case 15: do_press(); break;
        case 16: do_toggle(); break;
        default: do_event(); break;
        }
        return what;
    }

    /// Calls of handlers in their order, as the model has them.
    lines library_calls() const
    {
        lines result;
        for (const std::string &line : u.journal_of("callback")) {
            const size_t source = line.rfind(" source "), state = line.rfind(" state "), context = line.rfind(" context ");
            result.push_back(line.substr(9, source - 9) + " " + line.substr(source + 8, state - source - 8) + " " +
                             line.substr(state + 7, context - state - 7) + " " + line.substr(context + 9));
        }
        return result;
    }

    unit &u;
    grid model;

private:
    std::mt19937 random;
    std::string what;

    int pick(int count) { return static_cast<int>(random() % static_cast<unsigned>(count)); }
    template <size_t n> const char *any(const char *const (&names)[n]) { return names[pick(static_cast<int>(n))]; }
    int any_trigger_id() { return pick(10) == 0 ? pick(30) - 1 : pick(22); }
    int any_host_trigger_id() { return 16 + pick(6); }
    void same(int library, int model_result) { EXPECT_EQ(library, model_result) << what; }

    void do_register_handler(const char *name)
    {
        what = "register handler " + std::string(name);
        same(u.handler(name), model.register_handler(name));
    }

    void do_register_led_handler(int led)
    {
        what = "register handler of LED " + std::to_string(led + 1);
        same(u.led_handler(led), model.register_handler("User LED " + std::to_string(led + 1), true));
    }

    void do_register_trigger(const char *name)
    {
        what = "register trigger " + std::string(name);
        same(u.trigger(name), model.register_trigger(name));
    }

    void do_removal()
    {
        if (pick(2)) {
            const char *name = any(handler_names);
            what = "deregister handler " + std::string(name);
            same(zel_gpio_deregister_handler(name), model.deregister_handler(name));
        } else {
            const char *name = any(trigger_names);
            what = "deregister trigger " + std::string(name);
            same(zel_gpio_deregister_trigger(name), model.deregister_trigger(name));
        }
    }

    void do_rename()
    {
        if (pick(2)) {
            const char *from = any(handler_names), *to = any(handler_names);
            what = "rename handler " + std::string(from) + " to " + to;
            same(zel_gpio_rename_handler(from, to), model.rename_handler(from, to));
        } else {
            const char *from = any(trigger_names), *to = any(trigger_names);
            what = "rename trigger " + std::string(from) + " to " + to;
            same(zel_gpio_rename_trigger(from, to), model.rename_trigger(from, to));
        }
    }

    /// Outputs, buttons and LEDs take triggers; so does the LED of each button.
    bool takes_triggers(int port) const
    {
        const grid_model::port &p = model.ports[static_cast<size_t>(port)];
        return p.type == grid_model::output || (p.kind == grid_model::button && p.type == grid_model::input);
    }

    void do_connection()
    {
        const owner who = static_cast<owner>(pick(3));
        const int index = who == owner::port ? pick(port_count) : who == owner::relay ? pick(unit_description.relays) : pick(9);
        const int trigger = who == owner::handler && pick(3) ? any_host_trigger_id() : any_trigger_id(), invert = pick(2);
        if (who == owner::port && !takes_triggers(index))
            return;
        if (who == owner::handler && model.handlers[static_cast<size_t>(index)].is_led)
            return;
        const bool add = pick(5) < 3;
        what = (add ? "connect trigger " : "disconnect trigger ") + std::to_string(trigger) + (invert ? " inverted" : "") +
               ", owner kind " + std::to_string(static_cast<int>(who)) + " index " + std::to_string(index);
        same(zel::set_trigger_connection(static_cast<int>(who), add, index, trigger, static_cast<uint8_t>(invert)),
             add ? model.connect(who, index, trigger, invert != 0) : model.disconnect(who, index, trigger));
    }

    void do_handler_connection()
    {
        const int port = pick(port_count), handler = pick(9), invert = pick(2);
        if (model.ports[static_cast<size_t>(port)].type != grid_model::input)
            return;
        const bool add = pick(5) < 3;
        what = (add ? "connect handler " : "disconnect handler ") + std::to_string(handler) + (invert ? " inverted" : "") +
            ", port " + std::to_string(port);
        same(add ? zel::set_gpio_handler_connection(port, handler, static_cast<uint8_t>(invert))
                 : zel::remove_gpio_handler_connection(port, handler),
             add ? model.connect_handler(port, handler, invert != 0) : model.disconnect_handler(port, handler));
    }

    void do_direction()
    {
        const int port = pick(unit_description.gpis), direction = pick(3);
        what = "direction of port " + std::to_string(port) + " to " + std::to_string(direction);
        same(zel_gpio_set_pin_direction(port, static_cast<uint32_t>(direction)), model.set_direction(port, direction));
    }

    void do_edge()
    {
        const int port = pick(unit_description.gpis);
        if (model.ports[static_cast<size_t>(port)].type != grid_model::input)
            return;
        const int level = pick(2);
        what = "edge of port " + std::to_string(port) + " to " + std::to_string(level);
        u.edge(1 + port, level);
        model.edge(port, level != 0);
    }

    void do_press()
    {
        const int button = pick(unit_description.buttons);
        what = "press of button " + std::to_string(button);
        zel_gpio_notify_user_button_event(button);
        model.press_button(button);
    }

    void do_toggle()
    {
        const int handler = pick(9);
        what = "toggle of handler " + std::to_string(handler);
        same(zel_gpio_set_handler_state(handler), model.toggle_handler(handler));
    }

    void do_event()
    {
        const int trigger = any_trigger_id();
        const bool known = trigger >= 0 && !model.triggers[static_cast<size_t>(trigger)].name.empty();
        const bool state = known && pick(5) != 0 ? !model.triggers[static_cast<size_t>(trigger)].state : pick(2) != 0;
        what = "event " + std::to_string(trigger) + " " + std::to_string(state);
        zel_gpio_notify_trigger_event(trigger, state);
        model.event(trigger, state);
    }
};

void describe(unit &u, const settings &file)
{
    for (int i = 0; i < unit_description.gpis; ++i)
        u.gpi(1 + i, 101 + i, i == 1);
    u.relays(unit_description.relays).virtuals(unit_description.virtuals).buttons(unit_description.buttons);
    for (const auto &[key, value] : file)
        u.set_json(key, value);
}

settings first_file()
{
    return {
        {"handler_info/Bell/trigger_inverts", "\"0\""},
        {"handler_info/Bell/triggers", "\"Lamp\""},
        {"handler_info/Lamp/trigger_inverts", "\"1, 1, 0\""},
        {"handler_info/Lamp/triggers", "\"Bell, AC Power Off, AC Power Off\""},
        {"handler_info/Mute/trigger_inverts", "\"0, 1\""},
        {"handler_info/Mute/triggers", "\"Talk, Door\""},
        {"handler_info/Talk/trigger_inverts", "\"1\""},
        {"handler_info/Talk/triggers", "\"Mute\""},
        {"on_grid_handlers", "\"Mute, Talk, Lamp, Bell\""},
        {"on_grid_triggers", "\"Door\""},
        {"physical/gpio_0/input_mode", "1"},
        {"physical/gpio_0/type", "1"},
        {"physical/gpio_1/type", "1"},
        {"physical/gpio_2/invert_trigger", "\"0, 1\""},
        {"physical/gpio_2/trigger", "\"GPI 1, Fire\""},
        {"physical/gpio_2/type", "2"},
        {"physical/gpio_3/type", "2"},
        {"physical/gpio_4/handler", "\"Record, Mute\""},
        {"physical/gpio_4/type", "1"},
        {"relay/relay_0/trigger_invert", "\"1, 0\""},
        {"relay/relay_0/triggers", "\"Door, GPI 1\""},
        {"relay/relay_1/trigger_invert", "\"0, 1, 1, 0\""},
        {"relay/relay_1/triggers", "\"GPI 2, Fire, GPI 2, Fire\""},
        {"user_buttons/btn_1/type", "1"},
        {"user_buttons/btn_2/input_mode", "1"},
        {"user_buttons/btn_2/type", "1"},
        {"user_buttons/led_1/type", "2"},
        {"user_buttons/led_2/type", "2"},
        {"virtual/vgpio_0/type", "2"},
        {"virtual/vgpio_1/handler", "\"Stop\""},
        {"virtual/vgpio_1/handler_invert", "\"1\""},
        {"virtual/vgpio_1/type", "1"},
        {"virtual/vgpio_2/invert_trigger", "\"1, 0, 0\""},
        {"virtual/vgpio_2/trigger", "\"Bell, vGPI 1, Bell\""},
        {"virtual/vgpio_2/type", "2"},
    };
}

void write_settings(std::FILE *to, const settings &file)
{
    std::rewind(to);
    for (const auto &[key, value] : file)
        std::fprintf(to, "%s\n%s\n", key.c_str(), value.c_str());
    std::fprintf(to, "\n");
    std::fflush(to);
}

settings read_settings(std::FILE *from)
{
    std::rewind(from);
    settings file;
    char key[1024], value[65536];
    while (std::fgets(key, sizeof key, from) != nullptr && key[0] != '\n' && std::fgets(value, sizeof value, from) != nullptr)
        file[std::string(key, std::strlen(key) - 1)] = std::string(value, std::strlen(value) - 1);
    return file;
}

/// A life of the unit, from start to stop; leaves its settings in `shared`.
void live(std::FILE *shared, unsigned seed, int steps)
{
    unit u;
    const settings before = read_settings(shared);
    describe(u, before);
    ASSERT_EQ(u.start(), 0);
    pair_of_grids both(u, before, seed);
    compare(u, both.model);
    std::string last;
    for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
        const std::string what = both.step();
        if (what.empty())
            continue;
        SCOPED_TRACE("step " + std::to_string(step) + ": " + what + "; before it: " + last);
        compare(u, both.model);
        EXPECT_EQ(fake::joined(both.library_calls()), fake::joined(both.model.calls));
        last = what;
    }
    u.stop();
    EXPECT_EQ(differences(file_of_unit(), both.model.file), "") << "after the end";
    write_settings(shared, file_of_unit());
}

void run(unsigned seed, int lives, int steps)
{
    std::printf("seed %u\n", seed);
    std::FILE *const shared = std::tmpfile();
    ASSERT_NE(shared, nullptr);
    write_settings(shared, first_file());
    for (int i = 0; i < lives && !testing::Test::HasFailure(); ++i) {
        SCOPED_TRACE("seed " + std::to_string(seed) + " (repeated with ZEL_TEST_SEED), life " + std::to_string(i));
        EXPECT_CHILD_SUCCEEDS(live(shared, seed + static_cast<unsigned>(i), steps));
    }
    std::fclose(shared);
}

}  // namespace

class grid_against_model : public testing::TestWithParam<unsigned> {};

TEST_P(grid_against_model, agrees_after_every_step_and_restart)
{
    run(GetParam() * 1000, 5, 400);
}

INSTANTIATE_TEST_SUITE_P(seeds, grid_against_model, testing::Values(1u, 2u, 3u, 4u));

TEST(grid_against_model_fresh, agrees_after_every_step_and_restart)
{
    const char *const wanted = std::getenv("ZEL_TEST_SEED");
    run(wanted != nullptr ? static_cast<unsigned>(std::strtoul(wanted, nullptr, 10)) : std::random_device{}(), 5, 400);
}
