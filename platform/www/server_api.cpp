// The C border of the server.
#include "server.h"

#include "zel_debug.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>

using namespace zel::web;

namespace {

constexpr size_t longest_password = 256;

bool is_event_name(const char *event)
{
    return event != nullptr && std::strpbrk(event, "\r\n") == nullptr;
}

}  // namespace

zel_web_server_t *zel_web_server_open(const zel_web_server_config_t *config)
{
    if (config == nullptr) return nullptr;
    try {
        return zel_web_server::open(*config).release();
    } catch (const std::exception &problem) {
        log_message(0, "%s: The web server cannot start: %s\n", __func__, problem.what());
        return nullptr;
    }
}

void zel_web_server_close(zel_web_server_t *server)
{
    delete server;
}

void zel_web_server_set_fds(zel_web_server_t *server, fd_set *readfds, int *maxfd)
{
    if (server == nullptr || readfds == nullptr) return;
    if (server->fd() >= FD_SETSIZE) {
        log_message(0, "%s: Descriptor %d does not fit a descriptor set\n", __func__, server->fd());
        return;
    }
    FD_SET(server->fd(), readfds);
    if (maxfd != nullptr) *maxfd = std::max(*maxfd, server->fd());
}

void zel_web_server_process_fds(zel_web_server_t *server, fd_set *readfds)
{
    if (server == nullptr) return;
    const bool may_be_ready = readfds == nullptr || server->fd() >= FD_SETSIZE || FD_ISSET(server->fd(), readfds);
    if (!may_be_ready) return;
    try {
        server->process();
    } catch (const std::exception &problem) {
        log_message(0, "%s: %s\n", __func__, problem.what());
    }
}

uint16_t zel_web_server_get_port(const zel_web_server_t *server)
{
    return server != nullptr ? server->port() : 0;
}

int zel_web_server_needs_login(zel_web_server_t *server)
{
    if (server == nullptr) return 0;
    try {
        return server->needs_login() ? 1 : 0;
    } catch (const std::exception &) {
        return 1;
    }
}

int zel_web_server_add_document(zel_web_server_t *server, const char *path, int methods, zel_web_document_cb_t callback,
                                void *user_data)
{
    if (server == nullptr || path == nullptr) return -1;
    try {
        return server->add_document({path, methods, callback, user_data}) ? 0 : -1;
    } catch (const std::exception &) {
        log_message(0, "%s: Out of memory\n", __func__);
        return -1;
    }
}

int zel_web_server_set_event_stream(zel_web_server_t *server, const char *path, zel_web_greet_cb_t greet, void *user_data)
{
    if (server == nullptr || path == nullptr) return -1;
    try {
        return server->set_events({path, greet, user_data}) ? 0 : -1;
    } catch (const std::exception &) {
        log_message(0, "%s: Out of memory\n", __func__);
        return -1;
    }
}

int zel_web_server_listener_count(const zel_web_server_t *server)
{
    return server != nullptr ? static_cast<int>(const_cast<zel_web_server_t *>(server)->events().size()) : 0;
}

int zel_web_server_send_event(zel_web_server_t *server, const char *event, const char *data)
{
    if (server == nullptr || !is_event_name(event) || data == nullptr) return -1;
    const bool all_told = server->events().send_all(event, data);
    server->run_soon();
    return all_told ? 0 : -1;
}

int zel_web_listener_send(zel_web_listener_t *listener, const char *event, const char *data)
{
    if (listener == nullptr || !is_event_name(event) || data == nullptr) return -1;
    try {
        return listener->home->send(*listener, event_text(event, data)) ? 0 : -1;
    } catch (const std::exception &) {
        return -1;
    }
}

int zel_web_users_set(const char *users_file, const char *user, const char *password)
{
    const bool good = users_file != nullptr && user != nullptr && password != nullptr && is_user_name(user) &&
                      password[0] != '\0' && std::strlen(password) <= longest_password;
    if (!good) {
        log_message(0, "%s: A user needs a name of 1 to 64 plain characters and a password of 1 to 256 bytes\n", __func__);
        return -1;
    }
    try {
        user_table users;
        std::string problem;
        if (read_users(users_file, users, problem) == users_state::broken) {
            log_message(0, "%s: %s; nothing was changed\n", __func__, problem.c_str());
            return -1;
        }
        const std::string hash = hash_password(password);
        if (!hash.empty()) users[user] = hash;
        if (!hash.empty() && write_users(users_file, users)) return 0;
        log_message(0, "%s: %s cannot be written: %s\n", __func__, users_file, std::strerror(errno));
    } catch (const std::exception &) {
        log_message(0, "%s: Out of memory\n", __func__);
    }
    return -1;
}
