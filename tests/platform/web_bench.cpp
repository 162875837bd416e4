#include "web_bench.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <zlib.h>

#include <algorithm>
#include <cstdlib>

namespace web_test {
namespace {

constexpr int patience_s = 30;

void wait_for(int fd)
{
    pollfd waited{fd, POLLIN, 0};
    (void)poll(&waited, 1, patience_s * 1000);
    eventfd_t count;
    (void)eventfd_read(fd, &count);
}

std::string lower(std::string text)
{
    for (char &c : text) c = static_cast<char>(tolower(static_cast<unsigned char>(c)));
    return text;
}

}  // namespace

running_server::running_server(zel_web_server_config_t config, in_server set_up)
    : wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), done_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    (void)signal(SIGPIPE, SIG_IGN);
    thread_ = std::thread([this, config, set_up] { run(config, set_up); });
    wait_for(done_.get());
}

running_server::~running_server()
{
    stop();
}

void running_server::stop()
{
    if (!thread_.joinable()) return;
    in_loop([this](zel_web_server_t *) { ending_ = true; });
    thread_.join();
}

void running_server::run(zel_web_server_config_t config, const in_server &set_up)
{
    server_ = zel_web_server_open(&config);
    if (server_ != nullptr && set_up) set_up(server_);
    port_ = zel_web_server_get_port(server_);
    (void)eventfd_write(done_.get(), 1);
    loop();
    zel_web_server_close(server_);
}

void running_server::loop()
{
    while (!ending_) {
        fd_set readable;
        FD_ZERO(&readable);
        int highest = wake_.get();
        FD_SET(wake_.get(), &readable);
        zel_web_server_set_fds(server_, &readable, &highest);
        if (select(highest + 1, &readable, nullptr, nullptr, nullptr) < 0) continue;
        zel_web_server_process_fds(server_, &readable);
        if (!FD_ISSET(wake_.get(), &readable)) continue;
        eventfd_t count;
        (void)eventfd_read(wake_.get(), &count);
        (*work_)(server_);
        (void)eventfd_write(done_.get(), 1);
    }
}

void running_server::in_loop(const in_server &work)
{
    work_ = &work;
    (void)eventfd_write(wake_.get(), 1);
    wait_for(done_.get());
}

int running_server::listeners()
{
    int count = 0;
    in_loop([&count](zel_web_server_t *server) { count = zel_web_server_listener_count(server); });
    return count;
}

std::string reply::header(const std::string &name) const
{
    const auto found = headers.find(name);
    return found == headers.end() ? "" : found->second;
}

client::client(uint16_t port, const std::string &address) : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(port);
    inet_pton(AF_INET, address.c_str(), &to.sin_addr);
    const timeval limit{patience_s, 0};
    setsockopt(fd_.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    setsockopt(fd_.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    connected_ = connect(fd_.get(), reinterpret_cast<sockaddr *>(&to), sizeof to) == 0;
    host_ = address + ":" + std::to_string(port);
}

void client::send(std::string_view text) const
{
    while (!text.empty()) {
        const ssize_t sent = ::send(fd_.get(), text.data(), text.size(), MSG_NOSIGNAL);
        if (sent <= 0) return;
        text.remove_prefix(static_cast<size_t>(sent));
    }
}

void client::end_sending() const
{
    (void)shutdown(fd_.get(), SHUT_WR);
}

bool client::receive()
{
    char buffer[65536];
    const ssize_t got = recv(fd_.get(), buffer, sizeof buffer, 0);
    if (got > 0) in_.append(buffer, static_cast<size_t>(got));
    return got > 0;
}

bool client::line(std::string &text)
{
    size_t end;
    while ((end = in_.find("\r\n")) == std::string::npos) {
        if (!receive()) return false;
    }
    text = in_.substr(0, end);
    in_.erase(0, end + 2);
    return true;
}

bool client::head(reply &into)
{
    std::string text;
    if (!line(text)) return false;
    into.status = std::atoi(text.substr(std::min<size_t>(9, text.size())).c_str());
    while (line(text)) {
        if (text.empty()) return true;
        const size_t colon = text.find(": ");
        into.headers[lower(text.substr(0, colon))] = colon == std::string::npos ? "" : text.substr(colon + 2);
    }
    return false;
}

bool client::chunk(std::string &into)
{
    std::string text;
    if (!line(text)) return false;
    const size_t size = std::strtoul(text.c_str(), nullptr, 16);
    while (in_.size() < size + 2) {
        if (!receive()) return false;
    }
    into.append(in_, 0, size);
    in_.erase(0, size + 2);
    return size > 0;
}

reply client::next(bool to_head)
{
    reply result;
    if (!head(result)) return result;
    if (result.status == 100) return next(to_head);
    const bool has_body = !to_head && result.status != 304;
    size_t size = has_body ? std::strtoul(result.header("content-length").c_str(), nullptr, 10) : 0;
    while (has_body && result.header("transfer-encoding") == "chunked" && chunk(result.body)) {}
    while (in_.size() < size) {
        if (!receive()) return result;
    }
    result.body += in_.substr(0, size);
    in_.erase(0, size);
    result.whole = true;
    return result;
}

reply client::ask(const std::string &method, const std::string &target, const header_list &headers, const std::string &body)
{
    std::string text = method + " " + target + " HTTP/1.1\r\n";
    const bool own_host = std::ranges::any_of(headers, [](const auto &each) { return lower(each.first) == "host"; });
    if (!own_host) text += "Host: " + host_ + "\r\n";
    for (const auto &[name, value] : headers) text += name + ": " + value + "\r\n";
    if (!body.empty()) text += "Content-Length: " + std::to_string(body.size()) + "\r\n";
    send(text + "\r\n" + body);
    return next(method == "HEAD");
}

reply client::post(const std::string &target, const std::string &form, header_list headers)
{
    headers.emplace_back("Origin", "http://" + host_);
    headers.emplace_back("Content-Type", "application/x-www-form-urlencoded");
    return ask("POST", target, headers, form);
}

bool client::ends()
{
    return in_.empty() && !receive();
}

reply client::listen(const std::string &target, const header_list &headers)
{
    std::string text = "GET " + target + " HTTP/1.1\r\nHost: " + host_ + "\r\n";
    for (const auto &[name, value] : headers) text += name + ": " + value + "\r\n";
    send(text + "\r\n");
    reply result;
    (void)head(result);
    return result;
}

std::string client::event(bool with_life)
{
    size_t end;
    while ((end = events_.find("\n\n")) == std::string::npos) {
        if (!chunk(events_)) return "";
    }
    std::string text = events_.substr(0, end), name, data;
    events_.erase(0, end + 2);
    if (text.starts_with("retry:")) return text;
    for (size_t begin = 0; begin < text.size();) {
        const size_t stop = std::min(text.find('\n', begin), text.size());
        const std::string each = text.substr(begin, stop - begin);
        if (each.starts_with("event: ")) name = each.substr(7);
        if (each.starts_with("data: ")) data += (data.empty() ? "" : "\n") + each.substr(6);
        begin = stop + 1;
    }
    return name == "alive" && !with_life ? event() : name + "|" + data;
}

std::string unpacked(const std::string &gzip)
{
    z_stream stream{};
    if (inflateInit2(&stream, 15 + 16) != Z_OK) return "";
    std::string text(size_t{4} << 20, '\0');
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(gzip.data()));
    stream.avail_in = static_cast<uInt>(gzip.size());
    stream.next_out = reinterpret_cast<Bytef *>(text.data());
    stream.avail_out = static_cast<uInt>(text.size());
    const int result = inflate(&stream, Z_FINISH);
    text.resize(stream.total_out);
    (void)inflateEnd(&stream);
    return result == Z_STREAM_END ? text : "not gzip";
}

}  // namespace web_test
