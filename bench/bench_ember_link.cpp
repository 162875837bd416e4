// What exchanges with a provider cost: a set until its notification arrives, and notifications to many subscribers, each beside
// the same system calls without the library. Where the two ends of an exchange run decides more than all else: a sleeping core
// takes tens of microseconds to wake, so each row says where they ran.

#include "bench_ember.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sched.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zel_ember.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <thread>

#include "common/unique_fd.h"
#include "glow.h"
#include "s101.h"

namespace {

namespace glow = zel::ember::glow;
namespace s101 = zel::ember::s101;
using bytes = std::vector<uint8_t>;
using std::chrono::steady_clock;

double seconds_since(steady_clock::time_point start)
{
    return std::chrono::duration<double>(steady_clock::now() - start).count();
}

constexpr int anywhere = -1;

// The calling thread stays on this core.
void stay_on(int core)
{
    cpu_set_t cores;
    CPU_ZERO(&cores);
    if (core != anywhere)
        CPU_SET(static_cast<size_t>(core), &cores);
    for (size_t i = 0; core == anywhere && i < std::thread::hardware_concurrency(); ++i)
        CPU_SET(i, &cores);
    if (sched_setaffinity(0, sizeof(cores), &cores) != 0)
        std::perror("sched_setaffinity"), std::exit(1);
}

// One descriptor in a host's select(), behind which the others are, as every session has it.
bool wait_in_select(int fd, int wait_us)
{
    fd_set ready;
    FD_ZERO(&ready);
    FD_SET(fd, &ready);
    timeval limit{0, wait_us};
    return select(fd + 1, &ready, nullptr, nullptr, &limit) > 0;
}

zel::unique_fd connected_to(uint16_t port)
{
    zel::unique_fd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int on = 1;
    (void)setsockopt(fd.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_port = htons(port);
    at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd.get(), reinterpret_cast<sockaddr *>(&at), sizeof(at)) != 0)
        std::perror("connect"), std::exit(1);
    return fd;
}

void send_all(int fd, std::span<const uint8_t> data)
{
    while (!data.empty()) {
        const ssize_t sent = send(fd, data.data(), data.size(), MSG_NOSIGNAL);
        if (sent <= 0)
            std::perror("send"), std::exit(1);
        data = data.subspan(static_cast<size_t>(sent));
    }
}

void receive(int fd, size_t count)
{
    uint8_t buffer[16384];
    while (count > 0) {
        const ssize_t got = recv(fd, buffer, std::min(count, sizeof(buffer)), 0);
        if (got <= 0)
            std::perror("recv"), std::exit(1);
        count -= static_cast<size_t>(got);
    }
}

bytes framed(const zel::ember::ber::writer &w)
{
    bytes out;
    s101::append_message(out, w.message());
    return out;
}

bytes set_frame(int64_t value)
{
    zel::ember::ber::writer w;
    const uint32_t where[] = {1, 1};
    glow::put_integer(w, glow::parameter_field::value, value);
    glow::close_contents(w, 0);
    glow::close_qualified(w, true, where, 0);
    glow::close_root(w, 0);
    return framed(w);
}

bytes look_frame()
{
    zel::ember::ber::writer w;
    const uint32_t where[] = {1};
    glow::write_command(w, where, false, glow::command_get_directory);
    return framed(w);
}

constexpr size_t notice = 41;      // bytes of a notification: path, value and type

// A provider with one parameter in a select loop of its own, as a host has it.
class provider_thread {
public:
    provider_thread()
    {
        zel_ember_session_config_t config{};
        session = zel_ember_session_init(&config);
        auto *unit = zel_ember_add_node(session, "unit", nullptr, 0, nullptr);
        parameter = zel_ember_add_enum_param(session, "type", nullptr, 0, 3, 1, "disabled\ninput\noutput", nullptr, nullptr,
                                             unit);
    }
    ~provider_thread()
    {
        stop = true;
        if (thread.joinable())
            thread.join();
        zel_ember_session_term(session);
    }
    void run(int core)
    {
        thread = std::thread([this, core] {
            stay_on(core);
            while (!stop)
                turn(20000);
        });
    }
    void turn(int wait_us)
    {
        fd_set ready;
        FD_ZERO(&ready);
        int highest = -1;
        zel_ember_set_fds(session, &ready, &highest);
        timeval limit{0, wait_us};
        if (select(highest + 1, &ready, nullptr, nullptr, &limit) > 0)
            zel_ember_process_fds(session, &ready);
    }
    uint16_t port() const { return zel_ember_get_port(session); }

    zel_ember_session_t *session = nullptr;
    zel_ember_element_t *parameter = nullptr;
    std::atomic<bool> stop{false};
    std::thread thread;
};

// The floor: what comes in goes out again, through the same system calls.
class echo_thread {
public:
    explicit echo_thread(int core)
    {
        listener_ = zel::unique_fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in at{};
        at.sin_family = AF_INET;
        at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(at);
        if (bind(listener_.get(), reinterpret_cast<sockaddr *>(&at), sizeof(at)) != 0 || listen(listener_.get(), 1) != 0 ||
            getsockname(listener_.get(), reinterpret_cast<sockaddr *>(&at), &length) != 0)
            std::perror("listen"), std::exit(1);
        port = ntohs(at.sin_port);
        thread_ = std::thread([this, core] { serve(core); });
    }
    ~echo_thread() { thread_.join(); }
    uint16_t port = 0;

private:
    void serve(int core)
    {
        stay_on(core);
        const zel::unique_fd fd(accept(listener_.get(), nullptr, nullptr)), behind(epoll_create1(EPOLL_CLOEXEC));
        const int on = 1;
        (void)setsockopt(fd.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
        epoll_event event{};
        event.events = EPOLLIN;
        (void)epoll_ctl(behind.get(), EPOLL_CTL_ADD, fd.get(), &event);
        uint8_t buffer[16384];
        for (;;) {
            if (!wait_in_select(behind.get(), 20000) || epoll_wait(behind.get(), &event, 1, 0) != 1)
                continue;
            const ssize_t got = recv(fd.get(), buffer, sizeof(buffer), 0);
            if (got <= 0)
                return;
            send_all(fd.get(), {buffer, static_cast<size_t>(got)});
        }
    }
    zel::unique_fd listener_;
    std::thread thread_;
};

// Microseconds per exchange when `at_once` of them go out in one write.
double exchange(int fd, const bytes frames[2], size_t answer, int at_once, int count)
{
    bytes burst;
    for (int i = 0; i < at_once; ++i)
        burst.insert(burst.end(), frames[i % 2].begin(), frames[i % 2].end());
    const auto start = steady_clock::now();
    for (int i = 0; i < count; i += at_once) {
        send_all(fd, at_once == 1 ? frames[i % 2] : burst);
        receive(fd, answer * static_cast<size_t>(at_once));
    }
    return seconds_since(start) * 1e6 / count;
}

void bench_round_trips_between(const char *where, int own_core, int other_core)
{
    stay_on(own_core);
    provider_thread provider;
    echo_thread echo(other_core);
    const auto ours = connected_to(provider.port()), bare = connected_to(echo.port);
    provider.run(other_core);
    const bytes frames[2] = {set_frame(2), set_frame(1)};
    for (const bytes &frame : frames) {
        send_all(ours.get(), frame);
        receive(ours.get(), notice);
    }
    for (const int at_once : {1, 64}) {
        std::vector<double> our_times, bare_times;
        for (int round = 0; round < 21; ++round) {
            our_times.push_back(exchange(ours.get(), frames, notice, at_once, 1280));
            bare_times.push_back(exchange(bare.get(), frames, frames[0].size(), at_once, 1280));
        }
        std::printf("set to notification, %2d in one write, both ends %s | %.2f us each | bare exchange %.2f us | ratio %.2f\n",
                    at_once, where, median(our_times), median(bare_times), median(our_times) / median(bare_times));
    }
    stay_on(anywhere);
}

// One notification to every subscriber, as the provider's system calls would be without it.
class bare_notifier {
public:
    explicit bare_notifier(int subscribers)
    {
        epoll_event event{};
        (void)epoll_ctl(epoll_.get(), EPOLL_CTL_ADD, bell_.get(), &event);
        for (int i = 0; i < subscribers; ++i)
            link();
    }
    void tell(std::span<const uint8_t> frame)
    {
        epoll_event event{};
        event.events = EPOLLIN | EPOLLONESHOT;
        (void)epoll_ctl(epoll_.get(), EPOLL_CTL_MOD, bell_.get(), &event);
        if (wait_in_select(epoll_.get(), 1000) && epoll_wait(epoll_.get(), &event, 1, 0) == 1)
            for (const auto &fd : ends_)
                send_all(fd.get(), frame);
    }
    void drain(size_t count)
    {
        for (const auto &fd : peers_)
            receive(fd.get(), count);
    }

private:
    void link()
    {
        zel::unique_fd listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in at{};
        at.sin_family = AF_INET;
        at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof(at);
        if (bind(listener.get(), reinterpret_cast<sockaddr *>(&at), sizeof(at)) != 0 || listen(listener.get(), 1) != 0 ||
            getsockname(listener.get(), reinterpret_cast<sockaddr *>(&at), &length) != 0)
            std::perror("listen"), std::exit(1);
        peers_.push_back(connected_to(ntohs(at.sin_port)));
        ends_.emplace_back(accept(listener.get(), nullptr, nullptr));
        const int on = 1;
        (void)setsockopt(ends_.back().get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    }
    zel::unique_fd epoll_{epoll_create1(EPOLL_CLOEXEC)}, bell_{eventfd(1, EFD_CLOEXEC)};
    std::vector<zel::unique_fd> ends_, peers_;
};

void bench_notifications_to(int subscribers)
{
    provider_thread provider;
    bare_notifier bare(subscribers);
    std::vector<zel::unique_fd> clients;
    const bytes look = look_frame(), frame(notice);
    for (int i = 0; i < subscribers; ++i) {
        clients.push_back(connected_to(provider.port()));
        send_all(clients.back().get(), look);
        uint8_t buffer[1024];
        while (recv(clients.back().get(), buffer, sizeof(buffer), MSG_DONTWAIT) <= 0)
            provider.turn(1000);
    }
    constexpr int burst = 32;
    int64_t value = 1;
    std::vector<double> rates, bare_rates;
    size_t allocated = 0;
    const int rounds = subscribers > 10 ? 60 : 300;
    for (int round = -5; round < rounds; ++round) {
        const size_t before = allocations;
        auto start = steady_clock::now();
        for (int i = 0; i < burst; ++i) {
            value = 3 - value;
            (void)zel_ember_set_param(provider.session, nullptr, 0, 0, provider.parameter, &value, sizeof(value), nullptr,
                                      nullptr);
            provider.turn(1000);
        }
        const double spent = seconds_since(start);
        const size_t made = allocations - before;
        for (const auto &client : clients)
            receive(client.get(), notice * burst);
        start = steady_clock::now();
        for (int i = 0; i < burst; ++i)
            bare.tell(frame);
        const double bare_spent = seconds_since(start);
        bare.drain(notice * burst);
        if (round < 0)
            continue;
        rates.push_back(burst * subscribers / spent);
        bare_rates.push_back(burst * subscribers / bare_spent);
        allocated += made;
    }
    std::printf("notifications, one at a time, to %3d subscribers | %.0f thousand/s | bare %.0f thousand/s | ratio %.2f | "
                "%zu allocations in %d\n",
                subscribers, median(rates) / 1e3, median(bare_rates) / 1e3, median(bare_rates) / median(rates), allocated,
                rounds * burst * subscribers);
}

}  // namespace

void bench_round_trips()
{
    bench_round_trips_between("on one core", 0, 0);
    if (std::thread::hardware_concurrency() > 1)
        bench_round_trips_between("on two cores", 0, 1);
    bench_round_trips_between("anywhere", anywhere, anywhere);
}

void bench_notifications()
{
    for (const int subscribers : {1, 10, 100})
        bench_notifications_to(subscribers);
}
