// Clients and servers of libzelipc in a unit's folder of their own, driven by one select() loop as a host would.
#pragma once

#include "temp_folder.h"

#include <zel_debug.h>
#include <zel_ipc.h>

#include <poll.h>
#include <sys/select.h>

#include <chrono>
#include <cstdarg>
#include <functional>
#include <memory>
#include <string>
#include <vector>

// What the library logged; the test program's own log_message() takes the place of the real one.
inline std::vector<std::string> logged;

extern "C" [[gnu::used]] inline void log_message(int level, const char *format, ...)
{
    char text[1024];
    va_list values;
    va_start(values, format);
    vsnprintf(text, sizeof text, format, values);
    va_end(values);
    logged.push_back(std::to_string(level) + " " + text);
}

inline size_t times_logged(const std::string &part)
{
    size_t count = 0;
    for (const std::string &line : logged) count += line.find(part) != std::string::npos ? 1 : 0;
    return count;
}

// A unit's root in a temporary folder; sockets land in run/zel below it.
class unit_folder {
public:
    explicit unit_folder(const std::string &below = "")
    {
        const std::string root = folder_.path() + below;
        std::filesystem::create_directories(root);
        setenv("ZEL_ROOT", root.c_str(), 1);
        logged.clear();
        run_ = root + "/run/zel";
    }
    ~unit_folder() { unsetenv("ZEL_ROOT"); }

    std::string run(const std::string &name = "") const { return name.empty() ? run_ : run_ + "/" + name; }
    const std::string &top() const { return folder_.path(); }

private:
    temp_folder folder_;
    std::string run_;
};

struct event {
    int type;
    std::string payload;
    bool operator==(const event &) const = default;
};

inline std::ostream &operator<<(std::ostream &out, const event &shown)
{
    return out << shown.type << ":" << shown.payload.substr(0, 40) << (shown.payload.size() > 40 ? "..." : "");
}

class test_client {
public:
    explicit test_client(const char *server = "server", const char *name = "client")
        : handle(zel_ipc_client_init(server, name, note, this))
    {
        EXPECT_NE(handle, nullptr);
    }
    ~test_client() { end(); }
    test_client(const test_client &) = delete;

    int send(int type, const std::string &text)
    {
        return zel_ipc_client_send(handle, static_cast<uint8_t>(type), text.data(), static_cast<uint32_t>(text.size()));
    }
    void end()
    {
        zel_ipc_client_term(handle);
        handle = nullptr;
    }
    size_t count(int type) const
    {
        size_t found = 0;
        for (const event &one : events) found += one.type == type ? 1 : 0;
        return found;
    }
    bool up() const { return count(ZEL_IPC_LINK_MADE) > count(ZEL_IPC_LINK_LOST); }
    std::vector<event> messages() const
    {
        std::vector<event> found;
        for (const event &one : events) {
            if (one.type > ZEL_IPC_LINK_MADE) found.push_back(one);
        }
        return found;
    }

    zel_ipc_client_t *handle;
    std::vector<event> events;
    std::function<void(const event &)> on_event;

private:
    static void note(zel_ipc_client_t *client, uint8_t type, const void *payload, uint32_t length)
    {
        auto *const self = static_cast<test_client *>(zel_ipc_client_user_data(client));
        EXPECT_NE(payload, nullptr);
        const event noted{type, std::string(static_cast<const char *>(payload), length)};
        self->events.push_back(noted);
        if (self->on_event) self->on_event(noted);
    }
};

class test_server {
public:
    // What a server saw: "connected", "message" or "disconnected", of whom, and what.
    struct entry {
        std::string what;
        uint32_t id;
        std::string name;
        event message;
    };

    explicit test_server(zel_ipc_server_config_t config = {}, const char *name = "server")
    {
        config.user_data = this;
        config.connected = note_connected;
        config.message = note_message;
        config.disconnected = note_disconnected;
        handle = zel_ipc_server_init(name, &config);
    }
    ~test_server() { end(); }
    test_server(const test_server &) = delete;

    void end()
    {
        zel_ipc_server_term(handle);
        handle = nullptr;
    }
    int send(uint32_t id, int type, const std::string &text)
    {
        return zel_ipc_server_send(handle, id, static_cast<uint8_t>(type), text.data(), static_cast<uint32_t>(text.size()));
    }
    size_t count(const std::string &what) const
    {
        size_t found = 0;
        for (const entry &one : entries) found += one.what == what ? 1 : 0;
        return found;
    }
    std::vector<event> messages() const
    {
        std::vector<event> found;
        for (const entry &one : entries) {
            if (one.what == "message") found.push_back(one.message);
        }
        return found;
    }
    // The id of the client of this name that connected last; 0 if it is not connected.
    uint32_t id_of(const std::string &name) const
    {
        uint32_t id = 0;
        for (const entry &one : entries) {
            if (one.name != name) continue;
            if (one.what == "connected") id = one.id;
            if (one.what == "disconnected" && one.id == id) id = 0;
        }
        return id;
    }
    std::vector<uint32_t> walk() const
    {
        std::vector<uint32_t> ids;
        zel_ipc_peer_t peer;
        for (uint32_t cursor = 0; zel_ipc_server_next_client(handle, &cursor, &peer) == 1;) ids.push_back(peer.id);
        return ids;
    }

    zel_ipc_server_t *handle;
    std::vector<entry> entries;
    std::function<void(const entry &)> on_entry;

private:
    static void note(void *user_data, const entry &noted)
    {
        auto *const self = static_cast<test_server *>(user_data);
        self->entries.push_back(noted);
        if (self->on_entry) self->on_entry(noted);
    }
    static void note_connected(zel_ipc_server_t *, void *user_data, const zel_ipc_peer_t *peer)
    {
        note(user_data, {"connected", peer->id, peer->name, {}});
    }
    static void note_message(zel_ipc_server_t *, void *user_data, const zel_ipc_peer_t *peer, uint8_t type, const void *payload,
                             uint32_t length)
    {
        EXPECT_NE(payload, nullptr);
        note(user_data, {"message", peer->id, peer->name, {type, std::string(static_cast<const char *>(payload), length)}});
    }
    static void note_disconnected(zel_ipc_server_t *, void *user_data, const zel_ipc_peer_t *peer)
    {
        note(user_data, {"disconnected", peer->id, peer->name, {}});
    }
};

// A host's loop over any number of clients and servers.
class test_loop {
public:
    test_loop() = default;
    template <class... ends>
    explicit test_loop(ends &...all)
    {
        (add(all), ...);
    }
    void add(test_client &client) { clients_.push_back(&client); }
    void add(test_server &server) { servers_.push_back(&server); }

    // Turns until `done` says so; false when nothing has led there in a long time.
    bool until(const std::function<bool()> &done)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!done()) {
            if (std::chrono::steady_clock::now() > end) return false;
            turn(1000);
        }
        return true;
    }
    // Turns until `ms` milliseconds are over; how often select() returned before that.
    int wakeups_in(int ms)
    {
        int count = 0;
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
        for (auto now = std::chrono::steady_clock::now(); now < end; now = std::chrono::steady_clock::now()) {
            count += turn(static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(end - now).count()) + 1) ? 1 : 0;
        }
        return count;
    }
    // One select(); false if nothing was due in time.
    bool turn(int timeout_ms)
    {
        fd_set due;
        FD_ZERO(&due);
        int maxfd = -1;
        for (test_client *const client : clients_) zel_ipc_client_set_fds(client->handle, &due, &maxfd);
        for (test_server *const server : servers_) zel_ipc_server_set_fds(server->handle, &due, &maxfd);
        timeval timeout{timeout_ms / 1000, timeout_ms % 1000 * 1000};
        if (select(maxfd + 1, &due, nullptr, nullptr, &timeout) <= 0) return false;
        for (test_client *const client : clients_) zel_ipc_client_process_fds(client->handle, &due);
        for (test_server *const server : servers_) zel_ipc_server_process_fds(server->handle, &due);
        return true;
    }

private:
    std::vector<test_client *> clients_;
    std::vector<test_server *> servers_;
};

// "number:" and a pattern of its own up to `size` bytes, so that no two messages are alike.
inline std::string numbered(int number, size_t size)
{
    std::string text = std::to_string(number) + ":";
    for (size_t at = text.size(); at < size; ++at) text.push_back(static_cast<char>(static_cast<size_t>(number) + at));
    return text;
}

inline std::vector<event> numbered_events(int first, int count)
{
    std::vector<event> made;
    for (int i = first; i < first + count; ++i) made.push_back({2 + i % 254, std::to_string(i)});
    return made;
}

// How many of them were accepted.
inline int send_numbered(test_client &client, int first, int count)
{
    int sent = 0;
    for (const event &one : numbered_events(first, count)) sent += client.send(one.type, one.payload) == 0 ? 1 : 0;
    return sent;
}

inline bool is_readable(int fd)
{
    pollfd asked{fd, POLLIN, 0};
    return poll(&asked, 1, 0) == 1;
}

inline size_t open_descriptors()
{
    size_t count = 0;
    for ([[maybe_unused]] const auto &one : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
    return count;
}
