// A server: its listening place, its clients, and what is due for each of them.
#pragma once

#include "endpoint.h"
#include "event_sources.h"
#include "peer_table.h"
#include "wire.h"

#include <zel_ipc.h>

struct zel_ipc_server {
public:
    // `name` is valid, the configuration complete. May throw std::bad_alloc.
    zel_ipc_server(const char *name, const zel_ipc_server_config_t &config);

    bool open();   // may throw std::bad_alloc
    // Does what is due. False when a callback ended the server: it is to be deleted.
    bool process();
    // Closes everything. True if the server may be deleted now, false while process() is still at work on it.
    bool end();

    int send(uint32_t id, uint8_t type, const void *payload, uint32_t length);
    int disconnect(uint32_t id);
    bool next_client(uint32_t &cursor, zel_ipc_peer_t &seen) const;

    zel::ipc::event_sources &sources() { return sources_; }
    const zel::ipc::event_sources &sources() const { return sources_; }

private:
    using peer = zel::ipc::peer;
    enum class reading { goes_on, stopped };
    // What the events of the sources carry; those of a peer carry its id, which is never as small.
    static constexpr uint64_t listening_tag = 0, timer_tag = 1;

    // server_doors.cpp: who comes in
    void accept_clients();
    bool accept_one();
    void admit(zel::unique_fd socket);
    void turn_away(const char *why, const ucred &who);
    void rest_listening();
    void listen_again();
    void serve_timer();
    void end_greeting(peer &late);
    void arm_timer();
    void greet(peer &from);
    void replace_namesakes(const peer &newcomer);
    void announce(peer &newcomer);

    // server.cpp: who is in
    void serve(const epoll_event &event);
    void serve_peer(peer &from, uint32_t events);
    void read_messages(peer &from, int most);
    reading receive_one(peer &from);
    void deliver(peer &from);
    void write_what_waits(peer &to);
    void give_up_writing(peer &to);
    bool is_paused(const peer &from) const;
    void wait_for_what_matters(peer &of);
    void let_go(peer &leaving);
    void dismiss_leaving();
    void dismiss(peer &leaving);
    void close_link(peer &of);

    const zel::ipc::endpoint place_;
    const zel_ipc_server_config_t config_;
    zel::ipc::listening_place listening_;
    zel::ipc::event_sources sources_;
    zel::ipc::peer_table peers_;

    uint32_t leaving_ = 0;           // how many peers are to be dismissed
    int64_t listen_again_ms_ = 0;    // when clients are accepted again; 0: they are
    bool told_full_ = false;         // that clients are turned away
    bool told_resting_ = false;
    bool at_work_ = false;
    bool ended_ = false;
    zel::ipc::packet received_;
};
