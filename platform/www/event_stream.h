// The stream of events: each listener has a bounded queue of its own, so that one that does not read holds up nobody.
#pragma once

#include "connections.h"
#include "request.h"

#include <microhttpd.h>

#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace zel::web {
class event_stream;
}

struct zel_web_listener {
    MHD_Connection *mhd = nullptr;
    zel::web::connection *link = nullptr;
    zel::web::event_stream *home = nullptr;
    std::string queue;
    size_t sent = 0;          // of the queue
    bool suspended = false;   // it has everything, and waits
    bool dropped = false;
    std::list<zel_web_listener>::iterator place;
};

namespace zel::web {

class event_stream {
public:
    static constexpr size_t longest_queue = size_t{256} << 10;

    size_t size() const { return listeners_.size(); }
    // The listener's reply to come. Null for want of memory.
    zel_web_listener *add(MHD_Connection *mhd, connection *link) noexcept;
    void remove(zel_web_listener &each) noexcept;
    // Fits MHD_create_response_from_callback with the listener.
    static ssize_t read(void *listener, uint64_t position, char *buffer, size_t room) noexcept;
    static void released(void *listener) noexcept;

    // False if somebody could not be told and was dropped.
    bool send_all(std::string_view event, std::string_view data) noexcept;
    bool send(zel_web_listener &each, std::string_view text) noexcept;
    // A sign of life for all.
    void send_alive() noexcept;
    // Whether somebody was taken up since the last call: libmicrohttpd sends to whom only when it is run.
    bool take_woken() noexcept { return std::exchange(woken_, false); }
    // Before the server ends: listeners that wait are taken up, or it would wait for them.
    void end_all() noexcept;

private:
    void drop(zel_web_listener &each, const char *why);
    void wake(zel_web_listener &each);

    std::list<zel_web_listener> listeners_;
    bool woken_ = false;
};

// The text of an event on the wire. May throw std::bad_alloc.
std::string event_text(std::string_view event, std::string_view data);

}  // namespace zel::web
