// Stands in for the discovery daemon of a unit, so that a test decides what is found: ember_test_discovery, with ZEL_ROOT set
//   found NAME PORT PATH    a virtual output of another unit on 127.0.0.1 (a name without blanks)
//   gone NAME
// It says "ready" when the unit is connected, and ends with its standard input.

#include <sys/select.h>
#include <unistd.h>
#include <zel_ipc.h>

#include <cstring>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr const char *service_type = "_zelvgpo._tcp";
constexpr uint8_t removed_message = 3, resolved_message = 5;

// Fields at fixed places, filled with zeros.
class record {
public:
    explicit record(size_t size) : bytes_(size) {}
    record &text(size_t at, const std::string &value)
    {
        std::memcpy(bytes_.data() + at, value.data(), value.size());
        return *this;
    }
    template <typename integer> record &number(size_t at, integer value)
    {
        std::memcpy(bytes_.data() + at, &value, sizeof(value));
        return *this;
    }
    void send(zel_ipc_server_t *server, uint8_t type) const
    {
        uint32_t cursor = 0;
        zel_ipc_peer_t unit;
        while (zel_ipc_server_next_client(server, &cursor, &unit))
            if (zel_ipc_server_send(server, unit.id, type, bytes_.data(), static_cast<uint32_t>(bytes_.size())) != 0)
                std::cout << "failed" << std::endl;
    }

private:
    std::vector<uint8_t> bytes_;
};

void found(zel_ipc_server_t *server, const std::string &name, uint16_t port, const std::string &path)
{
    record(238 + 1024)
        .number<int32_t>(0, 1).text(4, name).text(68, "desk.local").text(132, service_type).text(196, "127.0.0.1")
        .number(236, port).text(238, "\"path=" + path + "\"")
        .send(server, resolved_message);
}

void gone(zel_ipc_server_t *server, const std::string &name)
{
    record(1220).number<int32_t>(0, 1).text(68, name).text(132, service_type).text(196, "local").send(server, removed_message);
}

void obey(zel_ipc_server_t *server, const std::string &line)
{
    std::istringstream words(line);
    std::string verb, name, path;
    uint16_t port = 0;
    words >> verb >> name;
    if (name.empty() || name.size() > 63)
        return;
    if (verb == "found" && words >> port && std::getline(words >> std::ws, path) && path.size() < 1000)
        found(server, name, port, path);
    else if (verb == "gone")
        gone(server, name);
}

// False at the end of the input.
bool read_commands(zel_ipc_server_t *server, std::string &pending)
{
    char buffer[1024];
    const ssize_t got = read(STDIN_FILENO, buffer, sizeof(buffer));
    if (got <= 0)
        return false;
    pending.append(buffer, static_cast<size_t>(got));
    for (size_t end; (end = pending.find('\n')) != pending.npos; pending.erase(0, end + 1))
        obey(server, pending.substr(0, end));
    return true;
}

}  // namespace

int main()
{
    zel_ipc_server_config_t config{};
    config.connected = [](zel_ipc_server_t *, void *, const zel_ipc_peer_t *) { std::cout << "ready" << std::endl; };
    zel_ipc_server_t *server = zel_ipc_server_init("zel_sdiscd", &config);
    if (server == nullptr)
        return 1;
    std::string pending;
    for (bool running = true; running;) {
        fd_set ready;
        FD_ZERO(&ready);
        FD_SET(STDIN_FILENO, &ready);
        int highest = STDIN_FILENO;
        zel_ipc_server_set_fds(server, &ready, &highest);
        if (select(highest + 1, &ready, nullptr, nullptr, nullptr) < 0)
            break;
        zel_ipc_server_process_fds(server, &ready);
        if (FD_ISSET(STDIN_FILENO, &ready))
            running = read_commands(server, pending);
    }
    zel_ipc_server_term(server);
    return 0;
}
