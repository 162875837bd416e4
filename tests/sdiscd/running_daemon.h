// The daemon itself on a root of its own, and clients of it that speak its messages, in the test's process.
#pragma once

#include "child_process.h"
#include "messages.h"
#include "running_unit.h"

#include <zel_ipc.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace zel::test {

class daemon_root {
public:
    // `ember` is the address that the unit's services are at.
    explicit daemon_root(const std::string &ember = "127.0.0.1", const std::string &interface = "lo", const std::string &serial = "");

    const std::string &path() const { return folder_.path(); }
    std::string state() const { return path() + "/run/zel/zel_sdiscd.state"; }

private:
    temp_folder folder_;
};

class running_daemon {
public:
    explicit running_daemon(const daemon_root &root, const std::vector<std::string> &options = {});

    bool ready() const { return ready_; }
    child_process &process() { return child_; }
    void kill();
    // SIGTERM and the exit status.
    int stop();

private:
    child_process child_;
    bool ready_ = false;
};

// Its calls return when the daemon did what they ask, or when patience is out.
class raw_client {
public:
    explicit raw_client(const daemon_root &root, const char *name = "zel_gpio");
    ~raw_client();
    raw_client(const raw_client &) = delete;
    raw_client &operator=(const raw_client &) = delete;

    // On the interface of that index, by default that of "lo".
    void look(int32_t interface = 1);
    void publish(const std::string &name, uint16_t port = 9000, const std::string &txt = "\"path=/a/b\"", int32_t interface = 1);
    void unpublish(const std::string &name);
    bool send(uint8_t type, const std::string &bytes);
    // Found services are asked for their details at once, as the library does.
    void answer_reports() { answers_ = true; }

    // The messages so far, as "found NAME", "gone NAME", "NAME at ADDRESS:PORT TXT", "collision NAME", "failed", "made" and
    // "lost" for the link.
    const std::vector<std::string> &told() const { return told_; }
    size_t count(const std::string &line) const;
    bool await(const std::string &line, size_t times = 1);
    void forget() { told_.clear(); }
    // Serves the client for so long.
    void serve_for(std::chrono::milliseconds time);

    static bool await(const std::vector<raw_client *> &clients, const std::function<bool()> &done);

private:
    static void take(zel_ipc_client_t *client, uint8_t type, const void *payload, uint32_t length);
    void turn(int timeout_ms);

    zel_ipc_client_t *client_;
    std::vector<std::string> told_;
    bool answers_ = false;
};

}  // namespace zel::test
