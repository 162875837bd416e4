// Messages of any content from an SNMP agent to the library, which runs on a made-up platform.
//
// Input: messages, each behind its type and its length in two bytes, low byte first.
#include "fake_platform.h"

#include <algorithm>

namespace {

void require(bool holds)
{
    if (!holds) __builtin_trap();
}

// The library is started once in a process; what one input changed, the next one finds.
fake::unit &running_unit()
{
    static fake::unit *const unit = [] {
        auto *const made = new fake::unit;
        made->gpis(2).coughs(1).virtuals(2).buttons(2).relays(2);
        made->set("physical/gpio_0/type", 1).set("physical/gpio_1/type", 2).set("physical/gpio_2/type", 1);
        made->set("virtual/vgpio_0/type", 1).set("virtual/vgpio_1/type", 2);
        made->set("user_buttons/btn_1/type", 1).set("user_buttons/led_1/type", 2).set("user_buttons/led_2/type", 2);
        require(made->start() == 0);
        return made;
    }();
    return *unit;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    constexpr size_t request_size = 76;
    fake::unit &unit = running_unit();
    while (size >= 3) {
        const uint8_t type = data[0];
        const size_t length = std::min<size_t>(data[1] | data[2] << 8, size - 3);
        unit.forget_sent();
        unit.deliver("snmp", type, fake::bytes(data + 3, data + 3 + length));
        // A whole request has one reply, anything else has none.
        const bool answered = type >= 2 && length == request_size;
        require(unit.sent("snmp", 36).size() == (answered ? 1u : 0u));
        data += 3 + length;
        size -= 3 + length;
    }
    (void)unit.take();
    unit.forget_sent();
    return 0;
}
