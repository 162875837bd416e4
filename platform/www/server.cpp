#include "server.h"

#include "zel_debug.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

using namespace zel::web;
using zel::unique_fd;
using std::chrono::milliseconds;

namespace {

constexpr uint32_t idle_ms = 10000, request_ms = 15000, reply_ms = 60000, alive_ms = 5000;
constexpr uint32_t connections_max = 64, listeners_max = 16;
constexpr size_t connection_memory = size_t{16} << 10;   // which libmicrohttpd fills with zeros for each request
constexpr int backlog = 128;
constexpr milliseconds longest_tick{1000}, shortest_tick{20};

uint32_t given_or(uint32_t given, uint32_t usual)
{
    return given != 0 ? given : usual;
}

socklen_t make_address(const char *text, uint16_t port, sockaddr_storage &address)
{
    auto &narrow = reinterpret_cast<sockaddr_in &>(address);
    auto &wide = reinterpret_cast<sockaddr_in6 &>(address);
    if (inet_pton(AF_INET, text, &narrow.sin_addr) == 1) {
        narrow.sin_family = AF_INET;
        narrow.sin_port = htons(port);
        return sizeof narrow;
    }
    if (inet_pton(AF_INET6, text, &wide.sin6_addr) != 1) return 0;
    wide.sin6_family = AF_INET6;
    wide.sin6_port = htons(port);
    return sizeof wide;
}

uint16_t port_of(int fd)
{
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length) != 0) return 0;
    return ntohs(address.ss_family == AF_INET6 ? reinterpret_cast<sockaddr_in6 &>(address).sin6_port
                                               : reinterpret_cast<sockaddr_in &>(address).sin_port);
}

unique_fd listening_socket(const char *address_text, uint16_t port)
{
    sockaddr_storage address{};
    const socklen_t length = make_address(address_text, port, address);
    if (length == 0) {
        errno = EINVAL;
        return {};
    }
    unique_fd fd(socket(address.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    const bool ready = fd && setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
                       bind(fd.get(), reinterpret_cast<const sockaddr *>(&address), length) == 0 &&
                       listen(fd.get(), backlog) == 0;
    if (!ready) fd.reset();
    return fd;
}

// Without that, files go out in small pieces instead of straight from the page cache.
bool sigpipe_is_ignored()
{
    struct sigaction action {};
    return sigaction(SIGPIPE, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

}  // namespace

zel_web_server::zel_web_server(const zel_web_server_config_t &config)
    : names_(config.names), login_(config.users_file != nullptr ? config.users_file : ""),
      connections_({milliseconds(given_or(config.request_ms, request_ms)), milliseconds(given_or(config.reply_ms, reply_ms))}),
      before_request_(config.before_request), user_data_(config.user_data),
      listeners_max_(given_or(config.listeners_max, listeners_max)), alive_(given_or(config.alive_ms, alive_ms))
{
    const milliseconds shortest = std::min({alive_, milliseconds(given_or(config.request_ms, request_ms)),
                                            milliseconds(given_or(config.reply_ms, reply_ms))});
    tick_length_ = std::clamp(shortest / 4, shortest_tick, longest_tick);
}

zel_web_server::~zel_web_server()
{
    if (daemon_ == nullptr) return;
    stream_.end_all();
    login_.give_up();
    MHD_stop_daemon(daemon_);
}

std::unique_ptr<zel_web_server> zel_web_server::open(const zel_web_server_config_t &config)
{
    std::unique_ptr<zel_web_server> server(new zel_web_server(config));
    if (config.folder != nullptr && !server->files_.open(config.folder)) {
        log_message(1, "%s: No pages: %s: %s\n", __func__, config.folder, std::strerror(errno));
    }
    if (!server->login_.open()) {
        log_message(0, "%s: Passwords cannot be checked: %s\n", __func__, std::strerror(errno));
        return nullptr;
    }
    if (!server->listen(config) || !server->open_loop()) return nullptr;
    return server;
}

bool zel_web_server::listen(const zel_web_server_config_t &config)
{
    const char *const address = config.address != nullptr ? config.address : "127.0.0.1";
    unique_fd listener = listening_socket(address, config.port);
    if (!listener) {
        log_message(0, "%s: Cannot listen on %s port %u: %s\n", __func__, address, config.port, std::strerror(errno));
        return false;
    }
    port_ = port_of(listener.get());
    return start_daemon(config, std::move(listener));
}

bool zel_web_server::start_daemon(const zel_web_server_config_t &config, unique_fd listener)
{
    const auto idle_s = std::max(1u, (given_or(config.idle_ms, idle_ms) + 999) / 1000);
    daemon_ = MHD_start_daemon(
        MHD_USE_EPOLL | MHD_USE_ERROR_LOG | MHD_ALLOW_SUSPEND_RESUME, 0, nullptr, nullptr, take, this,
        MHD_OPTION_EXTERNAL_LOGGER, log_line, nullptr, MHD_OPTION_LISTEN_SOCKET, listener.get(),
        MHD_OPTION_CONNECTION_LIMIT, given_or(config.connections_max, connections_max),
        MHD_OPTION_CONNECTION_TIMEOUT, idle_s, MHD_OPTION_CONNECTION_MEMORY_LIMIT, connection_memory,
        MHD_OPTION_STRICT_FOR_CLIENT, 1, MHD_OPTION_SIGPIPE_HANDLED_BY_APP, sigpipe_is_ignored() ? 1 : 0,
        MHD_OPTION_URI_LOG_CALLBACK, begin_request, this, MHD_OPTION_NOTIFY_COMPLETED, end_request, this,
        MHD_OPTION_NOTIFY_CONNECTION, note_connection, this, MHD_OPTION_END);
    if (daemon_ != nullptr) (void)listener.release();
    else log_message(0, "%s: The web server cannot start\n", __func__);
    return daemon_ != nullptr;
}

bool zel_web_server::watch(int fd)
{
    epoll_event wanted{};
    wanted.events = EPOLLIN;
    wanted.data.fd = fd;
    return epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, fd, &wanted) == 0;
}

bool zel_web_server::open_loop()
{
    const MHD_DaemonInfo *const info = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD);
    epoll_.reset(epoll_create1(EPOLL_CLOEXEC));
    timer_.reset(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
    const bool ready = info != nullptr && epoll_ && timer_ && watch(info->epoll_fd) && watch(timer_.get()) &&
                       (login_.fd() < 0 || watch(login_.fd()));
    if (!ready) log_message(0, "%s: The web server cannot start: %s\n", __func__, std::strerror(errno));
    return ready;
}

void zel_web_server::log_line(void *, const char *format, va_list arguments) noexcept
{
    char line[512];
    (void)std::vsnprintf(line, sizeof line, format, arguments);
    line[std::strcspn(line, "\r\n")] = '\0';
    log_message(4, "%s: %s\n", __func__, line);
}

// Bounded, so that a client that always has something to say does not keep the host's loop from the rest. A connection that ended
// makes room for one that waits, but a listening socket that was left alone at the limit is taken up again by the next pass only.
void zel_web_server::run_daemon()
{
    constexpr int most_passes = 4;
    timer_state next = timer_state::at_once;
    for (int pass = 0; pass < most_passes && next == timer_state::at_once; ++pass) {
        const size_t before = connections_.size();
        MHD_UNSIGNED_LONG_LONG wait = 0;
        (void)MHD_run(daemon_);
        const bool at_once = stream_.take_woken() || (MHD_get_timeout(daemon_, &wait) == MHD_YES && wait == 0);
        const bool has_room = connections_.size() < before;
        next = at_once || has_room ? timer_state::at_once : connections_.size() > 0 ? timer_state::ticking : timer_state::off;
    }
    if (next == timer_now_ && next != timer_state::at_once) return;
    timer_now_ = next;
    arm_timer();
}

void zel_web_server::arm_timer()
{
    itimerspec when{};
    const auto set = [](timespec &part, milliseconds length) {
        part.tv_sec = length.count() / 1000;
        part.tv_nsec = length.count() % 1000 * 1000000;
    };
    if (timer_now_ != timer_state::off) set(when.it_interval, tick_length_);
    if (timer_now_ == timer_state::ticking) set(when.it_value, tick_length_);
    if (timer_now_ == timer_state::at_once) when.it_value.tv_nsec = 1;
    (void)timerfd_settime(timer_.get(), 0, &when, nullptr);
}

void zel_web_server::tick()
{
    uint64_t count;
    if (read(timer_.get(), &count, sizeof count) != static_cast<ssize_t>(sizeof count)) return;
    connections_.end_overdue();
    const clock::time_point now = clock::now();
    if (now - last_alive_ + tick_length_ / 2 < alive_) return;
    last_alive_ = now;
    stream_.send_alive();
}

void zel_web_server::process()
{
    running_ = true;
    tick();
    if (login_.fd() >= 0) login_.process();
    run_daemon();
    running_ = false;
}

void zel_web_server::run_soon()
{
    if (running_ || !stream_.take_woken() || timer_now_ == timer_state::at_once) return;
    timer_now_ = timer_state::at_once;
    arm_timer();
}

bool zel_web_server::add_document(document row)
{
    const bool taken = row.path == events_.path || find_document(row.path) != nullptr;
    const bool good = row.path.starts_with('/') && row.callback != nullptr && (row.methods & (ZEL_WEB_GET | ZEL_WEB_POST)) != 0;
    if (!good || taken) {
        log_message(0, "%s: The document %s is refused: %s\n", __func__, row.path.c_str(),
                    taken ? "the path has one already" : "a path begins with '/', and something must serve it");
        return false;
    }
    documents_.push_back(std::move(row));
    return true;
}

bool zel_web_server::set_events(event_path events)
{
    if (!events.path.starts_with('/') || !events_.path.empty() || find_document(events.path) != nullptr) {
        log_message(0, "%s: The events at %s are refused\n", __func__, events.path.c_str());
        return false;
    }
    events_ = std::move(events);
    return true;
}

const document *zel_web_server::find_document(const std::string &path) const
{
    const auto found = std::ranges::find(documents_, path, &document::path);
    return found == documents_.end() ? nullptr : &*found;
}
