// What is given: the host's documents, the texts of the library's handlers, and the stream of events.
#include "server.h"

#include "replies.h"

#include <algorithm>

using namespace zel::web;

// Filled in by the host's callback for a document.
struct zel_web_reply {
    int status = 0;
    std::string content_type, text;
};

namespace {

constexpr size_t first_reply_size = size_t{64} << 10, largest_reply_size = size_t{64} << 20;
constexpr int ok = 200, not_implemented = 501;
constexpr size_t event_block = 4096;
constexpr int signs_of_life_missed = 4;

bool is_status(int status)
{
    return status >= 200 && status <= 599;
}

}  // namespace

MHD_Result zel_web_server::give_document(MHD_Connection *mhd, request &each, const document &row)
{
    zel_web_reply reply;
    const zel_web_request_t asked{each.method == verb::post ? "POST" : "GET", each.path.c_str(), each.query.c_str(),
                                  each.query.size(), each.body.c_str(), each.body.size()};
    row.callback(row.user_data, &asked, &reply);
    if (reply.status == 0) return send_error(mhd, each, {500, "the unit could not answer", nullptr, ""});
    return send_text(mhd, each, static_cast<unsigned>(reply.status), reply.content_type.c_str(), reply.text);
}

// A text that does not fit its buffer is a failure of the handler, which is then asked again with a larger one; not so after a
// form, which it must not get twice.
MHD_Result zel_web_server::give_handlers_text(MHD_Connection *mhd, request &each, const zel_web_url_handler_t &handler)
{
    const bool repeatable = each.body.empty() && !each.query.empty();
    for (size_t size = std::max(reply_sizes_[&handler], first_reply_size);; size *= 4) {
        std::unique_ptr<reply_buffer> buffer = buffers_.take(size);
        if (!buffer) return send_error(mhd, each, {503, "the server is out of memory", nullptr, ""});
        int status = ok;
        char *text = nullptr;
        size_t length = 0;
        (void)handler.func(nullptr, each.query.empty() ? nullptr : each.query.c_str(), each.query.size(),
                           each.body.empty() ? nullptr : each.body.c_str(), each.body.size(), &status, &text, &length, nullptr,
                           buffer->bytes.get(), buffer->size);
        if (status == not_implemented && repeatable && size < largest_reply_size) {
            buffers_.give_back(std::move(buffer));
            continue;
        }
        if (status == ok) reply_sizes_[&handler] = size;
        const unsigned given = is_status(status) ? static_cast<unsigned>(status) : 500;
        if (text == buffer->bytes.get()) return send_buffer(mhd, each, given, json_text_type, std::move(buffer), length);
        return send_text(mhd, each, given, json_text_type, {text != nullptr ? text : "", text != nullptr ? length : 0});
    }
}

MHD_Result zel_web_server::give_events(MHD_Connection *mhd, request &each)
{
    if (each.method == verb::head) return send_text(mhd, each, ok, "text/event-stream", "");
    if (stream_.size() >= listeners_max_) return send_error(mhd, each, {503, "too many listen already", "Retry-After", "5"});
    zel_web_listener *const listener = stream_.add(mhd, each.link);
    if (listener == nullptr) return MHD_NO;
    response_ptr response(MHD_create_response_from_callback(MHD_SIZE_UNKNOWN, event_block, event_stream::read, listener,
                                                            event_stream::released));
    if (!response) {
        stream_.remove(*listener);
        return MHD_NO;
    }
    (void)stream_.send(*listener, "retry: 1000\n\n");
    if (events_.greet != nullptr) events_.greet(events_.user_data, listener);
    add_header(response.get(), "Cache-Control", "no-store");
    connection_list::enter(*each.link, phase::listening);
    connection_list::end_when_cut_off(*each.link, alive_ * signs_of_life_missed);
    return send(mhd, each, ok, "text/event-stream", std::move(response));
}

int zel_web_reply_text(zel_web_reply_t *reply, int status, const char *content_type, const void *text, size_t length)
{
    if (reply == nullptr || !is_status(status) || content_type == nullptr || (text == nullptr && length > 0)) return -1;
    try {
        reply->text.assign(static_cast<const char *>(text), length);
        reply->content_type = content_type;
        reply->status = status;
        return 0;
    } catch (const std::exception &) {
        return -1;
    }
}
