// The grid document over HTTP: written anew at each request by the library inside a host's loop, beside nginx giving the same
// bytes
// as a file. Requests per second at 1 and at 32 connections, interleaved rounds; then size and time of the largest grid.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "bench_unit.h"
#include "zel_gpio.h"

namespace {

constexpr int rounds = 7;
constexpr const char *target = "/cgi/gpioGrid.cgi?grid=1";

int ignore_call(void *, int32_t, uint8_t, uintptr_t) { return 0; }

std::string name(const char *kind, int number)
{
    return std::string(kind) + " " + std::to_string(number);
}

// A unit whose handlers each list the first triggers of the unit.
std::string grid_section(int handlers, int triggers)
{
    std::string list, inverts, on_grid;
    for (int i = 0; i < triggers; ++i) {
        list += (i == 0 ? "" : ", ") + name("Trigger", i);
        inverts += i == 0 ? "0" : ", 0";
    }
    std::string infos;
    for (int i = 0; i < handlers; ++i) {
        infos += (i == 0 ? "\"" : ",\"") + name("Handler", i) +
            R"(": {"triggers": ")" + list + R"(", "trigger_inverts": ")" + inverts + "\"}";
        on_grid += (i == 0 ? "" : ", ") + name("Handler", i);
    }
    return R"({"on_grid_handlers": ")" + on_grid + R"(", "on_grid_triggers": ")" + list + R"(", "handler_info": {)" + infos +
           "}}";
}

void start_unit(int handlers, int triggers)
{
    bench::require(zel_gpio_init(nullptr, 0, 0, 0, 0, 0, nullptr, nullptr, nullptr, 0, nullptr) == 0, "start");
    for (int i = 0; i < triggers; ++i) (void)zel_gpio_register_trigger(name("Trigger", i).c_str());
    for (int i = 0; i < handlers; ++i) {
        bench::require(zel_gpio_register_handler(name("Handler", i).c_str(), ignore_call, nullptr) >= 0, "registering a handler");
    }
}

size_t write_document(std::vector<char> &room)
{
    int status = 200;
    char *reply = nullptr;
    size_t length = 0;
    (void)url_handler_gpioGrid.func(nullptr, "grid=1", 6, nullptr, 0, &status, &reply, &length, nullptr, room.data(),
                                    room.size());
    bench::require(status == 200 && reply != nullptr, "writing the document");
    return length;
}

// The host: library, server and loop, until it is told to end. Its port and document go to the parent.
[[noreturn]] void serve(int handlers, int triggers, int to_parent)
{
    (void)signal(SIGPIPE, SIG_IGN);
    const bench::unit_folder folder(grid_section(handlers, triggers));
    start_unit(handlers, triggers);
    zel_web_server_config_t config{};
    zel_web_server_t *const server = zel_web_server_open(&config);
    bench::require(server != nullptr, "opening the server");
    const uint16_t port = zel_web_server_get_port(server);
    bench::require(write(to_parent, &port, sizeof port) == sizeof port, "telling the port");
    pid_t parent = getppid();
    while (getppid() == parent) {   // a parent that died takes this with it
        fd_set readable, exceptional;
        FD_ZERO(&readable);
        FD_ZERO(&exceptional);
        int highest = -1;
        zel_gpio_set_fds(&readable, &exceptional, &highest);
        zel_web_server_set_fds(server, &readable, &highest);
        timeval limit{1, 0};
        if (select(highest + 1, &readable, nullptr, &exceptional, &limit) < 0) break;
        zel_gpio_process_fds(&readable, &exceptional);
        zel_web_server_process_fds(server, &readable);
    }
    std::exit(0);
}

struct child {
    pid_t pid = -1;
    ~child()
    {
        if (pid <= 0) return;
        (void)kill(pid, SIGTERM);
        (void)waitpid(pid, nullptr, 0);
    }
};

std::string fetched(uint16_t port, const std::string &path)
{
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::string text = "GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n";
    if (connect(fd, reinterpret_cast<sockaddr *>(&to), sizeof to) != 0 || send(fd, text.data(), text.size(), 0) < 0) text.clear();
    std::string reply;
    char buffer[65536];
    for (ssize_t got; !text.empty() && (got = recv(fd, buffer, sizeof buffer, 0)) > 0;) reply.append(buffer,
        static_cast<size_t>(got));
    close(fd);
    const size_t end = reply.find("\r\n\r\n");
    return reply.starts_with("HTTP/1.1 200") && end != std::string::npos ? reply.substr(end + 4) : "";
}

uint16_t free_port()
{
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof at;
    bench::require(bind(fd, reinterpret_cast<sockaddr *>(&at), length) == 0 && getsockname(fd,
        reinterpret_cast<sockaddr *>(&at), &length) == 0,
                   "finding a port");
    close(fd);
    return ntohs(at.sin_port);
}

// nginx in a folder of its own, in the foreground, as one process that gives one file.
void start_peer(child &peer, const std::string &folder, uint16_t port, const std::string &text)
{
    std::ofstream(folder + "/grid.json") << text;
    std::ofstream(folder + "/nginx.conf")
        << "daemon off; master_process off; pid " << folder << "/pid; error_log " << folder << "/error.log;\n"
        << "events { worker_connections 256; }\n"
        << "http { access_log off; sendfile on; keepalive_requests 100000000; types { application/json json; }\n"
        << "client_body_temp_path " << folder << "/body; proxy_temp_path " << folder << "/proxy; fastcgi_temp_path " << folder
        << "/fastcgi; uwsgi_temp_path " << folder << "/uwsgi; scgi_temp_path " << folder << "/scgi;\n"
        << "server { listen 127.0.0.1:" << port << "; root " << folder << "; } }\n";
    peer.pid = fork();
    if (peer.pid == 0) {
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        (void)dup2(nowhere, STDERR_FILENO);
        const std::string conf = folder + "/nginx.conf", log = folder + "/error.log";
        for (const char *program : {"nginx", "/usr/sbin/nginx"}) {
            execlp(program, "nginx", "-p", folder.c_str(), "-c", conf.c_str(), "-e", log.c_str(), nullptr);
        }
        _exit(127);
    }
    for (int i = 0; i < 200 && fetched(port, "/grid.json") != text; ++i) usleep(20000);
    bench::require(fetched(port, "/grid.json") == text, "nginx (package nginx-light) giving the same bytes");
}

double requests_per_second(int connections, uint16_t port, const std::string &path)
{
    const std::string command = "wrk -t1 -c" + std::to_string(connections) + " -d1s 'http://127.0.0.1:" +
        std::to_string(port) + path + "'";
    FILE *const output = popen(command.c_str(), "r");
    bench::require(output != nullptr, "starting wrk");
    double rate = 0;
    char line[256];
    while (std::fgets(line, sizeof line, output) != nullptr) {
        (void)std::sscanf(line, "Requests/sec: %lf", &rate);
        bench::require(std::strstr(line, "Non-2xx") == nullptr && std::strstr(line, "Socket errors") == nullptr,
                       "wrk without errors");
    }
    (void)pclose(output);
    bench::require(rate > 0, "wrk (package wrk)");
    return rate;
}

// Processor time that the process has had, in microseconds; what else the machine does is not part of it.
double processor_time(pid_t pid)
{
    std::ifstream file("/proc/" + std::to_string(pid) + "/schedstat");
    double nanoseconds = 0;
    bench::require(static_cast<bool>(file >> nanoseconds), "reading a process's time");
    return nanoseconds / 1000;
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

struct server {
    pid_t pid;
    uint16_t port;
    const char *path;
    std::vector<double> rates, costs;   // requests per second, processor time per request

    void run(int connections)
    {
        const double before = processor_time(pid);
        rates.push_back(requests_per_second(connections, port, path));
        costs.push_back((processor_time(pid) - before) / rates.back());   // a round lasts a second
    }
};

void compare(server ours, server peer, size_t size)
{
    for (const int connections : {1, 32}) {
        std::vector<double> ratios;
        ours.rates.clear(), ours.costs.clear(), peer.rates.clear(), peer.costs.clear();
        for (int round = 0; round < rounds; ++round) {
            ours.run(connections);
            peer.run(connections);
            ratios.push_back(ours.rates.back() / peer.rates.back());
        }
        std::printf("| grid over HTTP, %zu bytes, %d connection%s | %.0f/s written anew, %.0f us of processor each | "
                    "nginx, a file %.0f/s, %.0f us | ratio %.2f, in processor time %.2f |\n",
                    size, connections, connections == 1 ? "" : "s", median(ours.rates), median(ours.costs), median(peer.rates),
                    median(peer.costs), median(ratios), median(peer.costs) / median(ours.costs));
        std::fflush(stdout);
    }
}

void measure_largest()
{
    const pid_t pid = fork();   // the library starts once per process
    if (pid == 0) {
        const bench::unit_folder folder(grid_section(ZEL_GPIO_HANDLER_COUNT, 195));
        start_unit(ZEL_GPIO_HANDLER_COUNT, 195);
        std::vector<char> room(size_t{64} << 20);
        size_t size = 0;
        std::vector<double> times;
        for (int round = 0; round < 21; ++round) {
            const auto begin = std::chrono::steady_clock::now();
            size = write_document(room);
            times.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - begin).count());
        }
        std::printf("| largest grid: 200 handlers with 195 triggers each | %zu bytes | %.1f ms |\n", size, median(times));
        std::fflush(stdout);
        std::exit(0);
    }
    int status = 0;
    (void)waitpid(pid, &status, 0);
    bench::require(status == 0, "the largest grid");
}

}  // namespace

int main()
{
    int pipe_ends[2];
    bench::require(pipe(pipe_ends) == 0, "a pipe");
    std::string pattern = "/tmp/zel_bench_nginx_XXXXXX";
    bench::require(mkdtemp(pattern.data()) != nullptr, "making a folder");
    {
        child host, peer;
        host.pid = fork();
        if (host.pid == 0) serve(40, 10, pipe_ends[1]);
        uint16_t port = 0;
        bench::require(read(pipe_ends[0], &port, sizeof port) == sizeof port, "starting the host");
        const std::string text = fetched(port, target);
        bench::require(text.size() > 10000, "fetching the grid");
        const uint16_t peer_port = free_port();
        start_peer(peer, pattern, peer_port, text);
        compare({host.pid, port, target, {}, {}}, {peer.pid, peer_port, "/grid.json", {}, {}}, text.size());
    }
    measure_largest();
    const std::string clean = "rm -rf " + pattern;
    return std::system(clean.c_str());
}
