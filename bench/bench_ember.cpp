// What Ember+ costs: coding of parameters (in processor time), a set until its notification arrives beside a bare exchange of
// the same bytes over the same kind of socket, and notifications to many subscribers. Medians of interleaved rounds.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zel_ember.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "common/unique_fd.h"
#include "glow.h"
#include "s101.h"

namespace {

std::atomic<size_t> allocations{0};

}  // namespace

void *operator new(size_t size)
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void *memory = std::malloc(size))
        return memory;
    throw std::bad_alloc();
}
void operator delete(void *memory) noexcept { std::free(memory); }
void operator delete(void *memory, size_t) noexcept { std::free(memory); }

namespace {

namespace glow = zel::ember::glow;
namespace s101 = zel::ember::s101;
using bytes = std::vector<uint8_t>;
using std::chrono::steady_clock;

double seconds_since(steady_clock::time_point start)
{
    return std::chrono::duration<double>(steady_clock::now() - start).count();
}

// Of this thread: coding waits for nothing, and what else the machine does is not part of it.
double processor_seconds()
{
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e9;
}

double median(std::vector<double> values)
{
    std::ranges::nth_element(values, values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2));
    return values[values.size() / 2];
}

// Coding

constexpr int directory_size = 100;

void put_directory(zel::ember::ber::writer &w)
{
    namespace field = glow::parameter_field;
    const uint32_t where[] = {1, 1, 1, 1};
    for (uint32_t i = directory_size; i > 0; --i) {
        const size_t mark = w.mark();
        glow::put_integer(w, field::type, glow::type_enum);
        glow::put_utf8(w, field::enumeration, "disabled\ninput\noutput");
        glow::put_integer(w, field::access, 3);
        glow::put_integer(w, field::value, i % 3);
        glow::put_utf8(w, field::identifier, "type");
        glow::close_contents(w, mark);
        glow::close_numbered(w, true, i, mark);
    }
    glow::close_children(w, 0);
    glow::close_qualified(w, false, where, 0);
    glow::close_root(w, 0);
}

struct counter final : glow::sink {
    size_t parameters = 0;
    void element_begin(const glow::element &e) override { parameters += e.contents.current.kind == glow::value_kind::integer; }
};

void bench_coding()
{
    std::vector<double> encode, decode;
    bytes frames;
    zel::ember::ber::writer w;
    for (int round = 0; round < 41; ++round) {
        constexpr int messages = 200;
        double start = processor_seconds();
        for (int i = 0; i < messages; ++i) {
            w.clear();
            frames.clear();
            put_directory(w);
            s101::append_message(frames, w.message());
        }
        encode.push_back(messages * directory_size / (processor_seconds() - start));
        counter found;
        s101::decoder decoder(1 << 20);
        start = processor_seconds();
        for (int i = 0; i < messages; ++i)
            for (std::span<const uint8_t> rest = frames; !rest.empty();) {
                s101::event what;
                rest = rest.subspan(decoder.feed(rest, what));
                if (what == s101::event::message)
                    (void)glow::read_message(decoder.message(), found);
            }
        decode.push_back(static_cast<double>(found.parameters) / (processor_seconds() - start));
    }
    std::printf("coding of full parameters in directories of %d, frames included | encode %.2f million/s | "
                "decode %.2f million/s\n",
                directory_size, median(encode) / 1e6, median(decode) / 1e6);
}

// Sockets

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
    void run() { thread = std::thread([this] { while (!stop) turn(20000); }); }
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

// The floor: what comes in goes out again, through the same select loop.
class echo_thread {
public:
    echo_thread()
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
        thread_ = std::thread([this] { serve(); });
    }
    ~echo_thread() { thread_.join(); }
    uint16_t port = 0;

private:
    void serve()
    {
        const zel::unique_fd fd(accept(listener_.get(), nullptr, nullptr));
        const int on = 1;
        (void)setsockopt(fd.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
        uint8_t buffer[16384];
        for (;;) {
            fd_set ready;
            FD_ZERO(&ready);
            FD_SET(fd.get(), &ready);
            if (select(fd.get() + 1, &ready, nullptr, nullptr, nullptr) <= 0)
                return;
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

void bench_round_trips()
{
    provider_thread provider;
    echo_thread echo;
    const auto ours = connected_to(provider.port()), bare = connected_to(echo.port);
    provider.run();
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
        std::printf("set to notification, %2d in one write | %.2f us each | bare exchange of the bytes %.2f us | ratio %.2f\n",
                    at_once, median(our_times), median(bare_times), median(our_times) / median(bare_times));
    }
}

void bench_notifications(int subscribers)
{
    provider_thread provider;
    std::vector<zel::unique_fd> clients;
    const bytes look = look_frame();
    for (int i = 0; i < subscribers; ++i) {
        clients.push_back(connected_to(provider.port()));
        send_all(clients.back().get(), look);
        uint8_t buffer[1024];
        while (recv(clients.back().get(), buffer, sizeof(buffer), MSG_DONTWAIT) <= 0)
            provider.turn(1000);
    }
    constexpr int burst = 32;
    int64_t value = 1;
    std::vector<double> rates;
    size_t allocated = 0;
    const int rounds = subscribers > 10 ? 60 : 300;
    for (int round = -5; round < rounds; ++round) {
        const size_t before = allocations;
        const auto start = steady_clock::now();
        for (int i = 0; i < burst; ++i) {
            value = 3 - value;
            (void)zel_ember_set_param(provider.session, nullptr, 0, 0, provider.parameter, &value, sizeof(value), nullptr,
                                      nullptr);
            provider.turn(1000);
        }
        const double spent = seconds_since(start);
        for (const auto &client : clients)
            receive(client.get(), notice * burst);
        if (round < 0)
            continue;
        rates.push_back(burst * subscribers / spent);
        allocated += allocations - before;
    }
    std::printf("notifications, one at a time, to %3d subscribers | %.0f thousand/s | %zu allocations in %d\n", subscribers,
                median(rates) / 1e3, allocated, rounds * burst * subscribers);
}

}  // namespace

int main()
{
    bench_coding();
    bench_round_trips();
    for (const int subscribers : {1, 10, 100})
        bench_notifications(subscribers);
    return 0;
}
