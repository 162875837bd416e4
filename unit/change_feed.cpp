#include "change_feed.h"

#include "common/json_reading.h"
#include "common/json_text.h"
#include "zel_debug.h"

#include <exception>
#include <new>

namespace zel {

void change_feed::set_sink(sink out, std::function<bool()> wanted)
{
    out_ = std::move(out);
    wanted_ = std::move(wanted);
}

// A line that is lost for want of memory must not stop the library call that it tells of.
template <typename work> void change_feed::guarded(work &&run) noexcept
{
    try {
        run();
    } catch (const std::exception &problem) {
        log_message(0, "%s: A change could not be told: %s\n", __func__, problem.what());
    }
}

void change_feed::tell(json_t *line, bool is_call)
{
    const json_handle owned(line);
    if (!owned) throw std::bad_alloc();
    const auto text = json_text(line, JSON_COMPACT);
    if (!text) throw std::bad_alloc();
    out_(*text, is_call);
}

void change_feed::tell_triggers()
{
    for (size_t id = 0; id < trigger_states_.size(); ++id) {
        const trigger_t &trigger = trigger_list[id];
        const uint8_t state = trigger.name != nullptr && trigger.state != 0;
        if (state == trigger_states_[id]) continue;
        trigger_states_[id] = state;
        if (!wanted_ || !wanted_()) continue;
        tell(json_pack("{s:s, s:i, s:s, s:i}", "change", "event", "id", static_cast<int>(id), "name",
                       trigger.name != nullptr ? trigger.name : "", "state", state));
    }
}

void change_feed::settle() noexcept
{
    guarded([this] { tell_triggers(); });
}

void change_feed::observe_pin(void *feed, int32_t pin, int32_t direction, int level) noexcept
{
    change_feed &self = *static_cast<change_feed *>(feed);
    self.guarded([&] { self.pin_changed(pin, direction != 0, level); });
}

void change_feed::pin_changed(int32_t pin, bool output, int level)
{
    tell_triggers();
    if (!wanted_ || !wanted_()) return;
    tell(json_pack("{s:s, s:i, s:s, s:s, s:i}", "change", "pin", "pin", pin, "name", ports_.pin_name(pin, output).c_str(),
                   "direction", output ? "output" : "input", "level", level));
}

void change_feed::handler_called(const handler_call &call) noexcept
{
    guarded([&] {
        tell_triggers();
        if (!wanted_ || !wanted_()) return;
        const char *const kind = !call.changed ? "call" : call.led_number > 0 ? "led" : "handler";
        tell(json_pack("{s:s, s:i, s:s, s:i, s:i, s:s, s:i}", "change", kind, "id", call.id, "name", call.name.c_str(), "state",
                       call.state, "source", call.source, "by", call.by.c_str(), "context", static_cast<int>(call.context)),
             !call.changed);
    });
}

void change_feed::button_pressed(int32_t number) noexcept
{
    guarded([&] {
        if (wanted_ && wanted_()) tell(json_pack("{s:s, s:i}", "change", "button", "number", number));
    });
}

void change_feed::udp_level(int32_t number, uint8_t level) noexcept
{
    guarded([&] {
        if (wanted_ && wanted_()) tell(json_pack("{s:s, s:i, s:i}", "change", "udp", "number", number, "level", level));
    });
}

}  // namespace zel
