#include "replies.h"

#include "compression.h"
#include "connections.h"

#include <utility>

namespace zel::web {
namespace {

// Scripts and styles come from this server's files only; nobody may put the pages into a frame, guess at types, or be told where
// an operator came from.
constexpr std::pair<const char *, const char *> common_headers[] = {
    {"Content-Security-Policy",
     "default-src 'self'; object-src 'none'; base-uri 'none'; form-action 'self'; frame-ancestors 'none'"},
    {"X-Frame-Options", "DENY"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "same-origin"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
};

// A text that is compressed anew for each request holds up the host's loop meanwhile.
constexpr size_t longest_compressed = size_t{1} << 20;
constexpr int quickly = 1;

void give_back(void *buffer)
{
    std::unique_ptr<reply_buffer> owned(static_cast<reply_buffer *>(buffer));
    reply_buffers *const home = owned->home;
    home->give_back(std::move(owned));
}

response_ptr buffer_response(std::unique_ptr<reply_buffer> buffer, size_t length)
{
    char *const bytes = buffer->bytes.get();
    response_ptr response(MHD_create_response_from_buffer_with_free_callback_cls(length, bytes, give_back, buffer.get()));
    if (response) (void)buffer.release();
    return response;
}

bool pays(const char *content_type, size_t length)
{
    return is_worth_compressing(content_type, length) && length <= longest_compressed;
}

// What is told of a text that was made for this one request.
MHD_Result send_fresh(MHD_Connection *mhd, request &each, unsigned status, const char *content_type, response_ptr response,
                      bool varies)
{
    if (!response) return MHD_NO;
    if (varies) add_header(response.get(), "Vary", "Accept-Encoding");
    add_header(response.get(), "Cache-Control", "no-store");
    return send(mhd, each, status, content_type, std::move(response));
}

}  // namespace

response_ptr copied_response(std::string_view body)
{
    return response_ptr(MHD_create_response_from_buffer(body.size(), const_cast<char *>(body.data()), MHD_RESPMEM_MUST_COPY));
}

void add_header(MHD_Response *response, const char *name, const char *value)
{
    (void)MHD_add_response_header(response, name, value);
}

MHD_Result send(MHD_Connection *mhd, request &each, unsigned status, const char *content_type, response_ptr response)
{
    if (!response) return MHD_NO;
    for (const auto &[name, value] : common_headers) {
        if (MHD_add_response_header(response.get(), name, value) != MHD_YES) return MHD_NO;
    }
    if (content_type != nullptr) add_header(response.get(), "Content-Type", content_type);
    each.status = status;
    if (each.link != nullptr && each.link->now == phase::receiving) connection_list::enter(*each.link, phase::replying);
    return MHD_queue_response(mhd, status, response.get());
}

MHD_Result send_text(MHD_Connection *mhd, request &each, unsigned status, const char *content_type, std::string_view body)
{
    const bool varies = pays(content_type, body.size());
    const auto packed = varies && takes_gzip(each.headers.accept_encoding) ? gzip(body, quickly) : std::nullopt;
    each.size = packed ? packed->size() : body.size();
    response_ptr response = copied_response(packed ? std::string_view(*packed) : body);
    if (response && packed) add_header(response.get(), "Content-Encoding", "gzip");
    return send_fresh(mhd, each, status, content_type, std::move(response), varies);
}

MHD_Result send_buffer(MHD_Connection *mhd, request &each, unsigned status, const char *content_type,
                       std::unique_ptr<reply_buffer> buffer, size_t length)
{
    const bool varies = pays(content_type, length);
    if (varies && takes_gzip(each.headers.accept_encoding)) {
        const MHD_Result sent = send_text(mhd, each, status, content_type, {buffer->bytes.get(), length});
        reply_buffers *const home = buffer->home;
        home->give_back(std::move(buffer));
        return sent;
    }
    each.size = length;
    return send_fresh(mhd, each, status, content_type, buffer_response(std::move(buffer), length), varies);
}

MHD_Result send_error(MHD_Connection *mhd, request &each, const error_reply &error)
{
    const std::string body = error.line + "\n";
    response_ptr response = copied_response(body);
    if (!response) return MHD_NO;
    add_header(response.get(), "Cache-Control", "no-store");
    if (error.header != nullptr) add_header(response.get(), error.header, error.value.c_str());
    each.size = body.size();
    return send(mhd, each, error.status, plain_text, std::move(response));
}

}  // namespace zel::web
