// From an event on one unit to the handler of another that follows it, through a virtual output, a real Ember+ link over loopback
// and a virtual input; beside a message of the same size over a bare TCP link between two processes that wait in select() as well.
// Both stamp their times with the clock that the processes share.
#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

#include "bench_unit.h"
#include "zel_ember.h"
#include "zel_gpio.h"
#include "zel_net.h"

namespace {

constexpr int rounds = 9, exchanges = 2000;
constexpr size_t notification_size = 60;   // about that of a framed boolean
constexpr char source_section[] = R"({"virtual": {"virtual_gpio_count": 1, "vgpio_0": {"type": 2, "trigger": "Bench", "invert_trigger": "0"}}})";
constexpr char follower_section[] =
    R"({"virtual": {"virtual_gpio_count": 1, "vgpio_0": {"type": 1, "handler": "Lamp", "handler_invert": "0", "vgpo_src": "vGPO1@bench"}}})";

int64_t now_ns()
{
    timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return int64_t{t.tv_sec} * 1000000000 + t.tv_nsec;
}

// What both processes see.
struct shared_page {
    volatile int64_t begun;
    volatile uint16_t port;
};
shared_page *page;
int commands[2], bare_link[2];   // the source reads its orders from the one, and writes bare messages to the other

enum order : char { event_off, event_on, bare_message };

void offer_fd(int fd, fd_set &readfds, int &maxfd)
{
    FD_SET(fd, &readfds);
    maxfd = std::max(maxfd, fd);
}

void obey(int32_t trigger, char order)
{
    static const char message[notification_size] = {};
    page->begun = now_ns();
    if (order == bare_message) bench::require(write(bare_link[0], message, sizeof message) == sizeof message, "bare message");
    else zel_gpio_notify_trigger_event(trigger, order == event_on);
}

// The unit that has the virtual output, until the pipe of its orders is closed.
void run_source(int ready)
{
    const bench::unit_folder folder(source_section);
    const zel_ember_session_config_t config{};
    zel_ember_session_t *const provider = zel_ember_session_init(&config);
    zel_ember_element_t *const node = zel_ember_add_node(provider, "unit", "", 1, nullptr);
    zel_net_config_t *const net = zel_net_config_load();
    bench::require(zel_gpio_init(nullptr, 0, 0, 0, 1, 0, net, net, provider, zel_ember_get_port(provider), node) == 0, "source");
    const int32_t trigger = zel_gpio_register_trigger("Bench");
    page->port = zel_ember_get_port(provider);
    bench::require(trigger >= 0 && write(ready, "", 1) == 1, "source ready");
    for (bool open = true; open;) {
        fd_set readfds, exceptfds;
        FD_ZERO(&readfds);
        FD_ZERO(&exceptfds);
        int maxfd = -1;
        zel_gpio_set_fds(&readfds, &exceptfds, &maxfd);
        zel_ember_set_fds(provider, &readfds, &maxfd);
        offer_fd(commands[0], readfds, maxfd);
        bench::require(select(maxfd + 1, &readfds, nullptr, &exceptfds, nullptr) >= 0, "select");
        char order;
        if (FD_ISSET(commands[0], &readfds)) (open = read(commands[0], &order, 1) == 1) ? obey(trigger, order) : void();
        zel_gpio_process_fds(&readfds, &exceptfds);
        zel_ember_process_fds(provider, &readfds);
    }
    zel_gpio_term();
    zel_ember_session_term(provider);
    zel_net_config_free(net);
}

int64_t arrived;
int calls = 0;

int32_t lamp(void *, int32_t, uint8_t, uintptr_t)
{
    arrived = now_ns();
    ++calls;
    return 0;
}

void turn()
{
    fd_set readfds, exceptfds;
    FD_ZERO(&readfds);
    FD_ZERO(&exceptfds);
    int maxfd = -1;
    zel_gpio_set_fds(&readfds, &exceptfds, &maxfd);
    offer_fd(bare_link[1], readfds, maxfd);
    bench::require(select(maxfd + 1, &readfds, nullptr, &exceptfds, nullptr) >= 0, "select");
    if (FD_ISSET(bare_link[1], &readfds)) {
        char message[notification_size];
        bench::require(read(bare_link[1], message, sizeof message) == sizeof message, "bare message");
        arrived = now_ns();
        ++calls;
    }
    zel_gpio_process_fds(&readfds, &exceptfds);
}

double exchange_us(char order)
{
    const int before = calls;
    bench::require(write(commands[1], &order, 1) == 1, "an order");
    while (calls == before) turn();
    return static_cast<double>(arrived - page->begun) / 1000;
}

void tell_where_the_source_is()
{
    char record[1024] = {};
    std::strcpy(record + 4, "vGPO1@bench");
    std::strcpy(record + 132, "_zelvgpo._tcp");
    std::strcpy(record + 196, "127.0.0.1");
    const uint16_t port = page->port;
    std::memcpy(record + 236, &port, sizeof port);
    std::strcpy(record + 238, "\"path=/unit/gpio/virtual/vgpio 1\"");
    zel_sdisc_ipc_cb(nullptr, 5, record, sizeof record);
}

struct figures {
    double median, p99;
};

figures of(std::vector<double> times)
{
    std::sort(times.begin(), times.end());
    return {times[times.size() / 2], times[times.size() * 99 / 100]};
}

void compare()
{
    std::vector<double> library, bare;
    std::vector<double> ratios;
    for (int round = 0; round < rounds; ++round) {
        std::vector<double> a, b;
        for (int i = 0; i < exchanges; ++i) {
            a.push_back(exchange_us(i % 2 == 0 ? event_on : event_off));
            b.push_back(exchange_us(bare_message));
        }
        ratios.push_back(of(a).median / of(b).median);
        library.insert(library.end(), a.begin(), a.end());
        bare.insert(bare.end(), b.begin(), b.end());
    }
    std::printf("event to the follower's handler | median %.1f us, p99 %.1f us | bare TCP message %.1f us, p99 %.1f us | ratio %.2f "
                "(median of %d interleaved rounds)\n",
                of(library).median, of(library).p99, of(bare).median, of(bare).p99, of(ratios).median, rounds);
}

void make_bare_link()
{
    const int listener = socket(AF_INET, SOCK_STREAM, 0), on = 1;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    bench::require(bind(listener, reinterpret_cast<sockaddr *>(&address), length) == 0 && listen(listener, 1) == 0 &&
                       getsockname(listener, reinterpret_cast<sockaddr *>(&address), &length) == 0, "bare listener");
    bare_link[0] = socket(AF_INET, SOCK_STREAM, 0);
    bench::require(connect(bare_link[0], reinterpret_cast<sockaddr *>(&address), length) == 0, "bare link");
    bare_link[1] = accept(listener, nullptr, nullptr);
    setsockopt(bare_link[0], IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    close(listener);
}

void run_follower()
{
    const bench::unit_folder folder(follower_section);
    bench::require(zel_gpio_init(nullptr, 0, 0, 0, 1, 0, nullptr, nullptr, nullptr, 0, nullptr) == 0, "follower");
    bench::require(zel_gpio_register_handler("Lamp", lamp, nullptr) >= 0, "handler");
    tell_where_the_source_is();
    while (calls == 0) turn();   // the level that the source has at present
    exchange_us(event_on);
    exchange_us(event_off);
    compare();
    zel_gpio_term();
}

}  // namespace

int main()
{
    page = static_cast<shared_page *>(mmap(nullptr, sizeof *page, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    int ready[2];
    bench::require(page != MAP_FAILED && pipe(commands) == 0 && pipe(ready) == 0, "memory and pipes");
    make_bare_link();
    const pid_t source = fork();
    bench::require(source >= 0, "fork");
    if (source == 0) {
        close(commands[1]);
        run_source(ready[1]);
        return 0;
    }
    close(commands[0]);
    close(ready[1]);
    char byte;
    bench::require(read(ready[0], &byte, 1) == 1, "the source starts");
    run_follower();
    close(commands[1]);
    int status = -1;
    bench::require(waitpid(source, &status, 0) == source && status == 0, "the source ends");
    return 0;
}
