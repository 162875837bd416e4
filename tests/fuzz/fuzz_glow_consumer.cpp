// A provider says anything, in frames or not, while the application follows and forgets paths: the consumer goes on.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <zel_debug.h>
#include <zel_ember.h>

#include <string>

#include "consumer.h"
#include "ember_fuzz.h"

namespace {

namespace ember = zel::ember;

int64_t now = 0;
int64_t fake_clock() { return now; }

const char *const paths[] = {"unit/gpio 1/status", "unit/gpio 1/type", "unit/x", "gpio", "unit/gpio 1"};

struct listener {
    zel::unique_fd socket{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    std::string address;
    listener()
    {
        sockaddr_in at{};
        at.sin_family = AF_INET;
        at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(at);
        FUZZ_CHECK(bind(socket.get(), reinterpret_cast<sockaddr *>(&at), sizeof(at)) == 0 && listen(socket.get(), 16) == 0 &&
                   getsockname(socket.get(), reinterpret_cast<sockaddr *>(&at), &length) == 0);
        address = "127.0.0.1:" + std::to_string(ntohs(at.sin_port));
    }
};

struct application {
    zel_ember_session_t *session = nullptr;
    uint8_t mood = 0;
    size_t calls = 0;

    static void on_value(void *user_data, const char *path, uint32_t kind, const void *value)
    {
        auto *self = static_cast<application *>(user_data);
        FUZZ_CHECK(kind <= 7);
        // Touch every byte that is handed over.
        if (value != nullptr)
            self->calls += kind == 3 ? std::string(static_cast<const char *>(value)).size()
                                     : static_cast<size_t>(*static_cast<const int64_t *>(value) & 1);
        if (self->mood & 1)
            (void)zel_ember_get_param(self->session, paths[++self->calls % std::size(paths)], self, on_value);
        if (self->mood & 2)
            (void)zel_ember_clear_param_cb(self->session, path);
        if ((self->mood & 4) && self->calls > 20)
            zel_ember_session_term(std::exchange(self->session, nullptr));
    }
};

// A text value may be told as an integer's kind by a provider that declares it so; kinds above are for null only.
void serve(application &app, int fd)
{
    for (int i = 0; i < 3 && app.session != nullptr; ++i)
        zel_ember_process_fds(app.session, nullptr);
    uint8_t buffer[4096];
    while (recv(fd, buffer, sizeof(buffer), MSG_DONTWAIT) > 0)
        ;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static listener provider;
    zel_debug_set_level(-1);
    zel_ember_session_config_t config{};
    config.provider_addr = provider.address.c_str();
    application app;
    app.session = ember::consumer::create(config, fake_clock).release();
    FUZZ_CHECK(app.session != nullptr);
    for (const char *path : paths)
        FUZZ_CHECK(zel_ember_get_param(app.session, path, &app, application::on_value) == 0);
    zel_ember_process_fds(app.session, nullptr);
    zel::unique_fd peer(accept4(provider.socket.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    FUZZ_CHECK(peer.get() >= 0);
    const linger reset{1, 0};     // leaves no trace of thousands of connections
    (void)setsockopt(peer.get(), SOL_SOCKET, SO_LINGER, &reset, sizeof(reset));

    fuzz_input input(data, size);
    while (!input.empty() && app.session != nullptr) {
        const uint8_t kind = input.byte();
        if (kind < 0xA0) {
            const auto piece = input.piece();
            std::vector<uint8_t> out(piece.begin(), piece.end());
            if (kind < 0x80) {
                out.clear();
                ember::s101::append_message(out, piece);
            }
            (void)!send(peer.get(), out.data(), out.size(), MSG_NOSIGNAL);
        } else if (kind < 0xC0) {
            app.mood = input.byte();
        } else {
            now += input.byte() * 20;
        }
        serve(app, peer.get());
    }
    peer.reset();
    zel_ember_session_term(app.session);
    return 0;
}
