#include "running_daemon.h"

#include <poll.h>
#include <signal.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace zel::test {
namespace {

using clock = std::chrono::steady_clock;
using namespace zel::sdiscd;

template <class record>
std::string text_of_record(const record &of)
{
    return {reinterpret_cast<const char *>(&of), sizeof of};
}

std::string line_of(uint8_t type, const std::string &bytes)
{
    browse_record browse{};
    resolve_record details{};
    std::memcpy(static_cast<void *>(&browse), bytes.data(), std::min(bytes.size(), sizeof browse));
    std::memcpy(static_cast<void *>(&details), bytes.data(), std::min(bytes.size(), sizeof details));
    switch (type) {
    case ZEL_IPC_LINK_MADE: return "made";
    case ZEL_IPC_LINK_LOST: return "lost";
    case new_service: return std::string("found ") + browse.name;
    case service_removed: return std::string("gone ") + browse.name;
    case name_collision: return std::string("collision ") + browse.name;
    case resolve_failed: return "failed";
    default: break;
    }
    return std::string(details.name) + " at " + details.address + ":" + std::to_string(details.port) + " " + details.txt;
}

}  // namespace

daemon_root::daemon_root(const std::string &ember, const std::string &interface, const std::string &serial)
{
    write_file(path() + "/etc/zel/unit.json", "{\"interface\": \"" + interface + "\", \"servers\": {\"ember\": {\"address\": \"" +
                                                  ember + "\"}}}\n");
    if (!serial.empty()) write_file(path() + "/etc/zel/serial", serial + "\n");
}

running_daemon::running_daemon(const daemon_root &root, const std::vector<std::string> &options)
{
    std::vector<std::string> words{ZEL_SDISCD, "--root", root.path()};
    words.insert(words.end(), options.begin(), options.end());
    child_ = child_process(words, {{"ZEL_ROOT", "/nowhere"}});
    ready_ = child_.err.await("Responder started").has_value();
}

void running_daemon::kill()
{
    child_.signal(SIGKILL);
    (void)child_.wait();
}

int running_daemon::stop()
{
    child_.signal(SIGTERM);
    return child_.wait();
}

raw_client::raw_client(const daemon_root &root, const char *name)
{
    (void)setenv("ZEL_ROOT", root.path().c_str(), 1);
    client_ = zel_ipc_client_init("zel_sdiscd", name, take, this);
    (void)unsetenv("ZEL_ROOT");
    if (client_ == nullptr) throw std::runtime_error("no client");
}

raw_client::~raw_client()
{
    zel_ipc_client_term(client_);
}

void raw_client::take(zel_ipc_client_t *client, uint8_t type, const void *payload, uint32_t length)
{
    auto *const self = static_cast<raw_client *>(zel_ipc_client_user_data(client));
    const std::string bytes(static_cast<const char *>(payload), length);
    self->told_.push_back(line_of(type, bytes));
    if (self->answers_ && type == new_service) (void)self->send(resolve_request, bytes);
}

bool raw_client::send(uint8_t type, const std::string &bytes)
{
    return zel_ipc_client_send(client_, type, bytes.data(), static_cast<uint32_t>(bytes.size())) == 0;
}

void raw_client::look(int32_t interface)
{
    lookup_record record{};
    record.interface = interface;
    std::strcpy(record.type, "_zelvgpo._tcp");
    (void)send(browse_request, text_of_record(record));
}

void raw_client::publish(const std::string &name, uint16_t port, const std::string &txt, int32_t interface)
{
    publish_record record{};
    record.interface = interface;
    record.port = port;
    std::strcpy(record.type, "_zelvgpo._tcp");
    std::memcpy(record.name, name.data(), std::min(name.size(), sizeof record.name));
    std::memcpy(record.txt, txt.data(), std::min(txt.size(), sizeof record.txt));
    (void)send(publish_request, text_of_record(record));
}

void raw_client::unpublish(const std::string &name)
{
    (void)send(unpublish_request, std::string(name.c_str(), name.size() + 1));
}

size_t raw_client::count(const std::string &line) const
{
    return static_cast<size_t>(std::ranges::count(told_, line));
}

bool raw_client::await(const std::string &line, size_t times)
{
    return await({this}, [&] { return count(line) >= times; });
}

void raw_client::turn(int timeout_ms)
{
    pollfd waited{zel_ipc_client_fd(client_), POLLIN, 0};
    (void)poll(&waited, 1, timeout_ms);
    zel_ipc_client_process_fds(client_, nullptr);
}

void raw_client::serve_for(std::chrono::milliseconds time)
{
    const auto end = clock::now() + time;
    for (auto left = time; left.count() > 0; left = std::chrono::duration_cast<std::chrono::milliseconds>(end - clock::now())) {
        turn(static_cast<int>(left.count()));
    }
}

bool raw_client::await(const std::vector<raw_client *> &clients, const std::function<bool()> &done)
{
    const auto end = clock::now() + patience;
    while (!done()) {
        if (clock::now() > end) return false;
        for (raw_client *const each : clients) each->turn(clients.size() == 1 ? 1000 : 10);
    }
    return true;
}

}  // namespace zel::test
