// A consumer says anything, in frames or not, while the application changes the tree: the provider goes on, and whatever it
// says is sound.

#include <sys/socket.h>
#include <zel_debug.h>
#include <zel_ember.h>

#include <string>

#include "ember_fuzz.h"
#include "provider.h"

namespace {

namespace ember = zel::ember;

int64_t now = 0;
int64_t fake_clock() { return now; }

struct unit {
    zel_ember_session_t *session = nullptr;
    zel_ember_element_t *node = nullptr, *name = nullptr, *type = nullptr, *status = nullptr;
    bool removes_itself = false;

    static int on_set(void *user_data, const char *, uint16_t, zel_ember_element_t *parameter, const void *)
    {
        auto *self = static_cast<unit *>(user_data);
        const int64_t one = 1;
        zel_ember_element_t *other = parameter == self->type ? self->status : self->type;
        (void)zel_ember_set_param(self->session, nullptr, 0, 0, other, &one, 8, nullptr, nullptr);
        if (self->removes_itself)
            self->rebuild();
        return 0;
    }

    void rebuild()
    {
        (void)zel_ember_remove_element(session, node);
        build();
    }
    void build()
    {
        node = zel_ember_add_node(session, "gpio 1", nullptr, 0, nullptr);
        type = zel_ember_add_enum_param(session, "type", nullptr, 0, 3, 1, "disabled\ninput\noutput", this, on_set, node);
        name = zel_ember_add_string_param(session, "name", nullptr, 0, 3, "x", this, on_set, node);
        status = zel_ember_add_boolean_param(session, "status", nullptr, 0, 3, 0, this, on_set, node);
        (void)zel_ember_add_node(session, "empty", nullptr, 0, node);
    }
    void act(uint8_t what)
    {
        const int64_t value = what >> 4;
        const std::string text(size_t{what} * 20, 'y');
        switch (what & 7) {
        case 0: (void)zel_ember_set_param(session, nullptr, 0, 0, status, &value, 8, nullptr, nullptr); break;
        case 1: (void)zel_ember_set_param(session, nullptr, 0, 0, name, text.c_str(), text.size() + 1, nullptr, nullptr); break;
        case 2: rebuild(); break;
        case 3: (void)zel_ember_add_node(session, ("n" + text).c_str(), "d", 0, node); break;
        case 4: removes_itself = what & 8; break;
        case 5: now += value * 1000; break;
        default: break;
        }
    }
};

class nothing final : public ember::glow::sink {};

// Read what the provider says and look at it.
void check_output(int fd, ember::s101::decoder &decoder)
{
    uint8_t buffer[65536];
    for (ssize_t got; (got = recv(fd, buffer, sizeof(buffer), MSG_DONTWAIT)) > 0;) {
        std::span<const uint8_t> part(buffer, static_cast<size_t>(got));
        while (!part.empty()) {
            ember::s101::event what;
            part = part.subspan(decoder.feed(part, what));
            FUZZ_CHECK(what != ember::s101::event::too_long);
            if (what != ember::s101::event::message)
                continue;
            nothing sink;
            FUZZ_CHECK(ember::ber::check(decoder.message()) == ember::ber::verdict::sound);
            FUZZ_CHECK(ember::glow::read_message(decoder.message(), sink));
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    zel_debug_set_level(-1);
    zel_ember_session_config_t config{};
    unit u;
    u.session = ember::provider::create(config, fake_clock).release();
    FUZZ_CHECK(u.session != nullptr);
    u.build();
    int ends[2];
    FUZZ_CHECK(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) == 0);
    zel::unique_fd peer(ends[0]);
    static_cast<ember::provider *>(u.session)->admit(zel::unique_fd(ends[1]), {});
    ember::s101::decoder decoder(size_t{4} << 20);

    fuzz_input input(data, size);
    while (!input.empty()) {
        const uint8_t kind = input.byte();
        if (kind < 0x80) {
            const auto message = input.piece();
            std::vector<uint8_t> frames;
            ember::s101::append_message(frames, message);
            (void)!send(peer.get(), frames.data(), frames.size(), MSG_NOSIGNAL);
        } else if (kind < 0xA0) {
            const auto raw = input.piece();
            (void)!send(peer.get(), raw.data(), raw.size(), MSG_NOSIGNAL);
        } else {
            u.act(input.byte());
        }
        zel_ember_process_fds(u.session, nullptr);
        if (kind & 1)      // otherwise the peer reads later
            check_output(peer.get(), decoder);
    }
    zel_ember_process_fds(u.session, nullptr);
    check_output(peer.get(), decoder);
    zel_ember_session_term(u.session);
    return 0;
}
