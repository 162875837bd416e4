// Which requests are refused before anything is done for them.
//
// A page of a foreign site that is open in an operator's browser can send requests here, and can make its own name resolve to
// this machine's address. The first is seen by the Origin that browsers add, the second by the Host, which is then that name.
#pragma once

#include "replies.h"
#include "request.h"

#include <sys/socket.h>

#include <string>
#include <string_view>
#include <vector>

namespace zel::web {

// The names under which this server may be asked.
class host_names {
public:
    // The machine's own names, and `others`.
    explicit host_names(const char *const *others);

    // `host` is the header's text; `local` the address at which the connection arrived.
    bool accept(std::string_view host, const sockaddr_storage &local) const;

private:
    std::vector<std::string> names_;   // lower case
};

// Of the form of the request: no path, what stands twice, what contradicts itself.
error_reply check_form(const request &each);
// Of who asks.
error_reply check_origin(const request &each, const host_names &names, const sockaddr_storage &local);
// Of the body that a POST announces.
error_reply check_body(const request &each);

}  // namespace zel::web
