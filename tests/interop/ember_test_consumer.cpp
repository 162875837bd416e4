// Follows and sets parameters of a provider and says what it hears: ember_test_consumer ADDRESS:PORT PATH...
// "up", "down", "PATH=VALUE", "PATH is none". Reads lines "number PATH=VALUE" and "text PATH=VALUE", which set a parameter, and
// says of each "set PATH=VALUE" or "set PATH is none". Ends with its standard input.

#include <sys/select.h>
#include <unistd.h>
#include <zel_ember.h>

#include <cstdlib>
#include <iostream>
#include <string>

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

void on_done(void *user_data, const char *path, uint32_t kind, const void *value)
{
    std::cout << "set ";
    on_value(user_data, path, kind, value);
}

bool set(zel_ember_session_t *session, const std::string &line)
{
    const size_t path_at = line.find(' ') + 1, end = line.find('=', path_at);
    if (path_at == 0 || end == line.npos)
        return false;
    const std::string path = line.substr(path_at, end - path_at), value = line.substr(end + 1);
    const int64_t number = std::atoll(value.c_str());
    const bool is_text = line.starts_with("text ");
    const void *given = is_text ? static_cast<const void *>(value.c_str()) : &number;
    return zel_ember_set_param(session, path.c_str(), 0, 0, nullptr, given, is_text ? value.size() + 1 : sizeof(number), nullptr,
                               on_done) == 0;
}

// False at the end of the standard input.
bool obey(zel_ember_session_t *session)
{
    static std::string rest;
    char piece[4096];
    const ssize_t got = read(STDIN_FILENO, piece, sizeof(piece));
    if (got <= 0)
        return false;
    rest.append(piece, static_cast<size_t>(got));
    for (size_t end; (end = rest.find('\n')) != rest.npos; rest.erase(0, end + 1))
        if (!set(session, rest.substr(0, end)))
            std::cout << "refused" << std::endl;
    return true;
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
        if (FD_ISSET(STDIN_FILENO, &ready) && !obey(session))
            break;
    }
    zel_ember_session_term(session);
    return 0;
}
