// Requests of any content to the library's two endpoints, on a made-up platform: every reply is JSON, every status one of two.
//
// Input: requests, each behind a byte that says of what kind it is and ended by a line feed.
#include "fake_platform.h"

#include <jansson.h>

#include <string>
#include <vector>

namespace {

void require(bool holds)
{
    if (!holds) __builtin_trap();
}

int ignore_call(void *, int32_t, uint8_t, uintptr_t) { return 0; }

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
        for (const char *name : {"Record", "na\"me\\", "\xff\x01"}) {
            (void)zel_gpio_register_handler(name, ignore_call, nullptr);
            (void)zel_gpio_register_trigger(name);
        }
        return made;
    }();
    return *unit;
}

void request(const zel_web_url_handler_t &endpoint, const std::string &query, const std::string &body, size_t room)
{
    std::vector<char> buffer(room);
    int status = 200;
    char *reply = nullptr;
    size_t length = 0;
    require(endpoint.func(nullptr, query.empty() ? nullptr : query.c_str(), query.size(), body.empty() ? nullptr
                          : body.c_str(), body.size(),
                          &status, &reply, &length, nullptr, buffer.data(), buffer.size()) == 1);
    require(status == 200 || status == 501);
    if (reply == nullptr || length == 0 || status != 200) return;
    require(reply >= buffer.data() && reply + length <= buffer.data() + buffer.size());
    json_t *const read = json_loadb(reply, length, 0, nullptr);
    require(read != nullptr);
    json_decref(read);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    constexpr size_t large = 65536;
    fake::unit &unit = running_unit();
    std::string rest(reinterpret_cast<const char *>(data), size);
    for (int count = 0; !rest.empty() && count < 16; ++count) {
        const size_t end = std::min(rest.find('\n'), rest.size());
        const int kind = rest[0] & 3;
        const std::string text = rest.substr(1, end > 0 ? end - 1 : 0);
        rest.erase(0, end + 1);
        if (kind == 0) request(url_handler_gpioGrid, text, "", large);
        if (kind == 1) request(url_handler_gpioGrid, "", text, large);
        if (kind == 2) request(url_handler_gpioConn, "", text, large);
        if (kind == 3) request(url_handler_gpioGrid, text, "", text.size() + 1);
        if (kind != 0) request(url_handler_gpioGrid, "all=1", "", large);
    }
    (void)unit.take();
    unit.forget_sent();
    return 0;
}
