// The replies: what every one of them says beside its body.
#pragma once

#include "reply_buffers.h"
#include "request.h"

#include <microhttpd.h>

#include <memory>
#include <string>
#include <string_view>

namespace zel::web {

struct response_release {
    void operator()(MHD_Response *response) const { MHD_destroy_response(response); }
};
using response_ptr = std::unique_ptr<MHD_Response, response_release>;

inline constexpr const char *plain_text = "text/plain; charset=utf-8";
inline constexpr const char *json_text_type = "application/json";

// Null for want of memory, as below.
response_ptr copied_response(std::string_view body);

void add_header(MHD_Response *response, const char *name, const char *value);
// Gives the reply with the headers against framing, sniffing and foreign scripts. MHD_NO ends the connection.
MHD_Result send(MHD_Connection *mhd, request &each, unsigned status, const char *content_type, response_ptr response);
// A body that is another one at each request. Compressed if that pays.
MHD_Result send_text(MHD_Connection *mhd, request &each, unsigned status, const char *content_type, std::string_view body);
// The same for a text that is in such a buffer, which goes back to where it came from when it was sent.
MHD_Result send_buffer(MHD_Connection *mhd, request &each, unsigned status, const char *content_type,
                       std::unique_ptr<reply_buffer> buffer, size_t length);

// One line that says what is wrong, and one more header where the status wants one.
struct error_reply {
    unsigned status = 0;             // 0: nothing is wrong
    std::string line;
    const char *header = nullptr;
    std::string value;               // of the header
};
MHD_Result send_error(MHD_Connection *mhd, request &each, const error_reply &error);

}  // namespace zel::web
