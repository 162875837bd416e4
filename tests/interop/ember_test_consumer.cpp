// Follows parameters of a provider and says what it hears: ember_test_consumer ADDRESS:PORT PATH...
// "up", "down", "PATH=VALUE", "PATH is none". Ends with its standard input.

#include <sys/select.h>
#include <unistd.h>
#include <zel_ember.h>

#include <iostream>

namespace {

void on_value(void *, const char *path, uint32_t kind, const void *value)
{
    std::cout << path;
    if (value == nullptr)
        std::cout << " is none";
    else if (kind == 3)
        std::cout << "=" << static_cast<const char *>(value);
    else
        std::cout << "=" << *static_cast<const int64_t *>(value);
    std::cout << std::endl;
}

void on_connect(void *, uint8_t connected, const char *, uint16_t)
{
    std::cout << (connected ? "up" : "down") << std::endl;
}

}  // namespace

int main(int argc, char **argv)
{
    const int32_t timeout_s = 10;
    zel_ember_session_config_t config{};
    config.provider_addr = argc > 1 ? argv[1] : "";
    config.connect_cb = on_connect;
    config.timeout_s = &timeout_s;
    zel_ember_session_t *session = zel_ember_session_init(&config);
    if (session == nullptr)
        return 1;
    for (int i = 2; i < argc; ++i)
        if (zel_ember_get_param(session, argv[i], nullptr, on_value) != 0)
            return 1;
    for (;;) {
        fd_set ready;
        FD_ZERO(&ready);
        FD_SET(STDIN_FILENO, &ready);
        int highest = STDIN_FILENO;
        zel_ember_set_fds(session, &ready, &highest);
        if (select(highest + 1, &ready, nullptr, nullptr, nullptr) < 0)
            break;
        zel_ember_process_fds(session, &ready);
        char ignored[64];
        if (FD_ISSET(STDIN_FILENO, &ready) && read(STDIN_FILENO, ignored, sizeof(ignored)) <= 0)
            break;
    }
    zel_ember_session_term(session);
    return 0;
}
