#include "daemon.h"

#include "common/unit_file.h"
#include "common/unit_root.h"
#include "common/service_notify.h"
#include "zel_debug.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/signalfd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>

namespace zel::sdiscd {
namespace {

constexpr const char *state_path = "/run/zel/zel_sdiscd.state";
constexpr const char *serial_path = "/etc/zel/serial";
constexpr size_t longest_serial = 40;

std::string read_line(const std::string &path)
{
    char text[256] = "";
    const unique_fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    const ssize_t got = file ? read(file.get(), text, sizeof text - 1) : -1;
    return got > 0 ? std::string(text, strcspn(text, "\r\n")) : "";
}

// What may stand in a host name: of the serial number, which the unit makes at its first start, or of where the unit lies.
std::string unique_part()
{
    std::string part;
    for (const char c : read_line(below_unit_root(serial_path))) {
        if (std::isalnum(static_cast<unsigned char>(c)) != 0) part += static_cast<char>(std::tolower(c));
        else if (c == '-' && !part.empty()) part += c;
    }
    part.resize(std::min(part.size(), longest_serial));
    if (!part.empty()) return part;
    char hash[20], machine[256] = "";
    (void)gethostname(machine, sizeof machine - 1);
    (void)std::snprintf(hash, sizeof hash, "%zx", std::hash<std::string>{}(machine + below_unit_root("/")));
    return hash;
}

// The address that followers are given; "" for the interface's own.
std::string announced_address(const std::string &ember, const std::string &interface)
{
    in_addr address{};
    if (inet_pton(AF_INET, ember.c_str(), &address) != 1) {
        if (ember != "::") log_message(1, "%s: Followers cannot use the address %s: only IPv4 is announced\n", __func__, ember.c_str());
        return "";
    }
    const bool loopback = ntohl(address.s_addr) >> 24 == IN_LOOPBACKNET;
    if (loopback && interface != "lo") {
        log_message(1, "%s: The Ember+ provider is at %s: units on other machines cannot follow this unit's outputs\n", __func__,
                    ember.c_str());
    }
    return address.s_addr == INADDR_ANY ? "" : ember;
}

}  // namespace

bool read_settings(uint32_t ttl_s, daemon_settings &out)
{
    const unit_file file = unit_file::load();
    const std::string interface = file.string("interface", "lo");
    const std::string level = file.string("log_level", "information");
    out.server = file.string("servers/discovery", "zel_sdiscd");
    out.responder.interface = interface;
    out.responder.host_name = "zel-" + unique_part();
    out.responder.ttl_s = ttl_s;
    const std::string ember = file.string("servers/ember/address", "127.0.0.1");
    if (!file.sound()) return false;
    if (zel_debug_level_from_name(level.c_str()) >= 0) zel_debug_set_level(zel_debug_level_from_name(level.c_str()));
    out.responder.address = announced_address(ember, interface);
    return true;
}

daemon::daemon(daemon_settings settings)
    : settings_(std::move(settings)), interfaces_(settings_.responder.interface), network_(loop_, settings_.responder),
      logic_(network_, *this), state_(below_unit_root(state_path))
{
}

// The network first: it says goodbye while the clients still wait.
daemon::~daemon()
{
    notify_service("STOPPING=1");
    network_.close();
}

bool daemon::start()
{
    if (!take_signals() || !open_server()) return false;
    const int notices = interfaces_.open();
    if (notices >= 0) {
        loop_.watch(notices, [this] {
            if (interfaces_.take_changes()) network_.look_at_interfaces();
        });
    }
    logic_.restore(state_.read(), now_ms());
    log_message(2, "%s: Clients are served as '%s'; services are announced on %s\n", __func__, settings_.server.c_str(),
                settings_.responder.interface.c_str());
    notify_service("READY=1");
    return true;
}

bool daemon::take_signals()
{
    sigset_t wanted;
    sigemptyset(&wanted);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&wanted, number);
    sigprocmask(SIG_BLOCK, &wanted, nullptr);
    (void)signal(SIGPIPE, SIG_IGN);
    signals_.reset(signalfd(-1, &wanted, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!signals_) {
        log_message(0, "%s: The daemon cannot start: %s\n", __func__, std::strerror(errno));
        return false;
    }
    loop_.watch(signals_.get(), [this] { read_signals(); });
    return true;
}

void daemon::read_signals()
{
    signalfd_siginfo each;
    while (read(signals_.get(), &each, sizeof each) == static_cast<ssize_t>(sizeof each)) {
        if (each.ssi_signo == SIGHUP) {
            zel_debug_reopen();
            log_message(2, "%s: The log was opened anew\n", __func__);
            continue;
        }
        log_message(2, "%s: Ending on signal %u\n", __func__, each.ssi_signo);
        ending_ = true;
    }
}

bool daemon::open_server()
{
    zel_ipc_server_config_t config{};
    config.user_data = this;
    config.connected = on_connected;
    config.message = on_message;
    config.disconnected = on_disconnected;
    config.max_clients = discovery::most_clients / 2;
    // Room for all that can be told at once of as many services as are known.
    config.max_queue_messages = 4 * lookups::most_services;
    config.max_queue_bytes = 16u << 20;
    config.pause_slow_clients = 1;
    config.unique_names = 1;
    server_.reset(zel_ipc_server_init(settings_.server.c_str(), &config));
    if (!server_) return false;
    loop_.watch(zel_ipc_server_fd(server_.get()), [this] { zel_ipc_server_process_fds(server_.get(), nullptr); });
    return true;
}

void daemon::run()
{
    while (!ending_) {
        try {
            turn();
        } catch (const std::bad_alloc &) {
            log_message(0, "%s: Out of memory; what was being done is given up\n", __func__);
        }
    }
}

void daemon::turn()
{
    const int64_t now = now_ms();
    logic_.tick(now);
    network_.deliver(logic_);
    logic_.tick(now);
    network_.settle(now);
    state_.update(logic_, now);
    (void)loop_.turn(next_due());
}

std::optional<int64_t> daemon::next_due() const
{
    std::optional<int64_t> first;
    for (const auto &time : {logic_.next_due(), network_.next_due(), state_.next_due()}) {
        if (time && (!first || *time < *first)) first = time;
    }
    return first;
}

bool daemon::send(uint32_t link, message_type type, std::span<const uint8_t> record)
{
    return zel_ipc_server_send(server_.get(), link, type, record.data(), static_cast<uint32_t>(record.size())) == 0;
}

std::string daemon::interface_reference(int32_t index)
{
    return interfaces_.reference(index);
}

int32_t daemon::interface_index(const std::string &reference)
{
    return interfaces::index_of(reference);
}

bool daemon::is_running(const process_identity &process)
{
    return sdiscd::is_running(process);
}

// The library that calls is C at its border: no exception may pass through it.
void daemon::on_connected(zel_ipc_server_t *server, void *user_data, const zel_ipc_peer_t *peer)
{
    try {
        static_cast<daemon *>(user_data)->logic_.client_connected(peer->id, peer->name, identify_process(peer->pid), now_ms());
    } catch (const std::bad_alloc &) {
        log_message(0, "%s: Out of memory; '%s' has to come again\n", __func__, peer->name);
        (void)zel_ipc_server_disconnect(server, peer->id);
    }
}

void daemon::on_message(zel_ipc_server_t *server, void *user_data, const zel_ipc_peer_t *peer, uint8_t type, const void *payload,
                        uint32_t length)
{
    try {
        const std::string_view bytes(static_cast<const char *>(payload), length);
        static_cast<daemon *>(user_data)->logic_.message(peer->id, type, bytes, now_ms());
    } catch (const std::bad_alloc &) {
        log_message(0, "%s: Out of memory; a message of '%s' is lost\n", __func__, peer->name);
        (void)zel_ipc_server_disconnect(server, peer->id);
    }
}

void daemon::on_disconnected(zel_ipc_server_t *, void *user_data, const zel_ipc_peer_t *peer)
{
    static_cast<daemon *>(user_data)->logic_.client_disconnected(peer->id, now_ms());
}

}  // namespace zel::sdiscd
