// A web server in a loop of its own thread, as a host runs it, and clients that speak to it byte by byte.
#pragma once

#include "common/unique_fd.h"
#include "temp_folder.h"
#include "zel_www.h"

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace web_test {

using in_server = std::function<void(zel_web_server_t *)>;

class running_server {
public:
    // `set_up` runs in the server's thread before the first request. Without an address it listens on 127.0.0.1, on a free port.
    explicit running_server(zel_web_server_config_t config = {}, in_server set_up = {});
    ~running_server();
    running_server(const running_server &) = delete;
    running_server &operator=(const running_server &) = delete;

    uint16_t port() const { return port_; }
    bool open() const { return port_ != 0; }
    // Runs it in the server's thread and waits until that is done.
    void in_loop(const in_server &work);
    int listeners();
    // Ends the server's thread and closes the server.
    void stop();

private:
    void run(zel_web_server_config_t config, const in_server &set_up);
    void loop();

    zel_web_server_t *server_ = nullptr;
    zel::unique_fd wake_, done_;
    const in_server *work_ = nullptr;
    bool ending_ = false;
    uint16_t port_ = 0;
    std::thread thread_;
};

struct reply {
    int status = 0;                              // 0: the connection ended before it
    std::map<std::string, std::string> headers;  // names in lower case
    std::string body;
    bool whole = false;

    std::string header(const std::string &name) const;
};

using header_list = std::vector<std::pair<std::string, std::string>>;

class client {
public:
    explicit client(uint16_t port, const std::string &address = "127.0.0.1");

    bool connected() const { return connected_; }
    int fd() const { return fd_.get(); }
    void send(std::string_view text) const;
    void end_sending() const;
    // The next reply; `to_head`: it has no body.
    reply next(bool to_head = false);
    // A request with the Host of this server.
    reply ask(const std::string &method, const std::string &target, const header_list &headers = {}, const std::string &body =
              "");
    reply get(const std::string &target, const header_list &headers = {}) { return ask("GET", target, headers); }
    // A form from the server's own pages.
    reply post(const std::string &target, const std::string &form, header_list headers = {});
    std::string host() const { return host_; }
    // Whether the server ends the connection, and with no byte before that.
    bool ends();

    // The stream of events: the headers of its reply, then event by event as "name|data". Signs of life are left out unless
    // they are wanted.
    reply listen(const std::string &target, const header_list &headers = {});
    std::string event(bool with_life = false);

private:
    bool receive();
    bool line(std::string &text);
    bool head(reply &into);
    bool chunk(std::string &into);

    zel::unique_fd fd_;
    std::string host_, in_, events_;
    bool connected_ = false;
};

std::string unpacked(const std::string &gzip);

}  // namespace web_test
