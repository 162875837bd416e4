#include "event_stream.h"

#include "zel_debug.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <utility>

namespace zel::web {

std::string event_text(std::string_view event, std::string_view data)
{
    std::string text = "event: ";
    text.append(event).append("\n");
    while (true) {
        const size_t end = data.find('\n');
        text.append("data: ").append(data.substr(0, end)).append("\n");
        if (end == std::string_view::npos) return text.append("\n");
        data.remove_prefix(end + 1);
    }
}

zel_web_listener *event_stream::add(MHD_Connection *mhd, connection *link) noexcept
{
    try {
        zel_web_listener &each = listeners_.emplace_back();
        each.place = std::prev(listeners_.end());
        each.mhd = mhd;
        each.link = link;
        each.home = this;
        return &each;
    } catch (const std::exception &) {
        return nullptr;
    }
}

void event_stream::remove(zel_web_listener &each) noexcept
{
    listeners_.erase(each.place);
}

void event_stream::released(void *listener) noexcept
{
    zel_web_listener &each = *static_cast<zel_web_listener *>(listener);
    each.home->remove(each);
}

ssize_t event_stream::read(void *listener, uint64_t, char *buffer, size_t room) noexcept
{
    zel_web_listener &each = *static_cast<zel_web_listener *>(listener);
    if (each.dropped) return MHD_CONTENT_READER_END_WITH_ERROR;
    const size_t length = std::min(room, each.queue.size() - each.sent);
    if (length == 0) {
        each.suspended = true;
        MHD_suspend_connection(each.mhd);
        return 0;
    }
    std::memcpy(buffer, each.queue.data() + each.sent, length);
    each.sent += length;
    if (each.sent == each.queue.size()) {
        each.queue.clear();
        each.sent = 0;
    }
    return static_cast<ssize_t>(length);
}

void event_stream::wake(zel_web_listener &each)
{
    if (!each.suspended) return;
    each.suspended = false;
    woken_ = true;
    MHD_resume_connection(each.mhd);
}

void event_stream::drop(zel_web_listener &each, const char *why)
{
    log_message(1, "%s: A listener to the events is dropped: %s\n", __func__, why);
    each.dropped = true;
    each.queue.clear();
    each.sent = 0;
    if (each.link != nullptr) connection_list::end(*each.link);
    wake(each);
}

bool event_stream::send(zel_web_listener &each, std::string_view text) noexcept
{
    if (each.dropped) return true;   // known already
    if (each.queue.size() - each.sent + text.size() > longest_queue) {
        drop(each, "it fell too far behind");
        return true;
    }
    try {
        if (each.sent > longest_queue / 2) each.queue.erase(0, std::exchange(each.sent, 0));
        each.queue.append(text);
    } catch (const std::exception &) {
        drop(each, "out of memory");
        return false;
    }
    wake(each);
    return true;
}

bool event_stream::send_all(std::string_view event, std::string_view data) noexcept
{
    if (listeners_.empty()) return true;
    bool all_told = true;
    try {
        const std::string text = event_text(event, data);
        for (zel_web_listener &each : listeners_) all_told &= send(each, text);
    } catch (const std::exception &) {
        for (zel_web_listener &each : listeners_) drop(each, "out of memory");
        return false;
    }
    return all_told;
}

void event_stream::send_alive() noexcept
{
    // An event, since a page is not told of comments: it can tell a lost unit from a quiet one.
    for (zel_web_listener &each : listeners_) (void)send(each, "event: alive\ndata: {}\n\n");
}

void event_stream::end_all() noexcept
{
    for (zel_web_listener &each : listeners_) {
        each.dropped = true;
        wake(each);
    }
}

}  // namespace zel::web
