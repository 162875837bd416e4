// A client: one link to a server, made again whenever it is lost.
#pragma once

#include "endpoint.h"
#include "event_sources.h"
#include "message_queue.h"
#include "reconnection.h"
#include "socket_watch.h"
#include "wire.h"

#include <zel_ipc.h>

#include <string>

struct zel_ipc_client {
public:
    // Both names are valid, the callback is not null. May throw std::bad_alloc.
    zel_ipc_client(const char *server, const char *name, zel_ipc_client_cb_t callback, void *user_data);

    bool open();
    int send(uint8_t type, const void *payload, uint32_t length);
    // Does what is due. False when a callback ended the client: it is to be deleted.
    bool process();
    // Closes everything. True if the client may be deleted now, false while process() is still at work on it.
    bool end();

    zel::ipc::event_sources &sources() { return sources_; }
    const zel::ipc::event_sources &sources() const { return sources_; }
    void *user_data() const { return user_data_; }

private:
    enum class link_state { down, greeting, up };
    enum class reading { goes_on, stopped };

    void serve(const epoll_event &event);
    void serve_watch();
    void serve_link(uint32_t events);
    void attempt();
    bool greet();
    void attempt_later();
    void complain(const char *what, int error);

    reading receive_one();
    reading accept_greeting();
    void deliver();
    void link_made();
    void link_lost();
    void close_link();
    void call_back(uint8_t type, const void *payload, uint32_t length);

    int send_or_keep(uint8_t type, const void *payload, uint32_t length);
    int keep(zel::ipc::message_queue &queue, uint8_t type, const void *payload, uint32_t length);
    void write_what_waits();
    void give_up_writing();
    void want_room(bool wanted);

    const zel::ipc::endpoint place_;
    const std::string name_;
    const zel_ipc_client_cb_t callback_;
    void *const user_data_;

    zel::ipc::event_sources sources_;
    zel::ipc::socket_watch watch_;
    zel::ipc::reconnection reconnection_;
    zel::unique_fd link_;
    link_state state_ = link_state::down;

    zel::ipc::message_queue early_;     // sent before the first link; survives until a link takes it
    zel::ipc::message_queue waiting_;   // did not fit the socket of the present link; lost with it
    bool was_up_ = false;
    bool deaf_ = false;                 // the link no longer takes messages; what it still brings is read before it is given up
    bool wants_room_ = false;
    bool hurried_ = false;              // an attempt is due because the socket appeared
    bool complained_ = false;           // about what keeps the link from being made; once per loss
    bool told_full_ = false;
    bool told_reserved_ = false;
    bool at_work_ = false;
    bool ended_ = false;
    zel::ipc::packet received_;
};
