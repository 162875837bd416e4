// One request from its first line to its reply.
#include "server.h"

#include "zel_debug.h"

#include <algorithm>
#include <exception>
#include <new>

using namespace zel::web;

namespace {

const char *word_of(verb method)
{
    constexpr const char *words[] = {"GET", "HEAD", "POST", "other"};
    return words[static_cast<size_t>(method)];
}

// What a client sends stands in the log as one line of plain characters.
std::string printable(std::string_view text)
{
    constexpr size_t longest = 200;
    std::string shown(text.substr(0, longest));
    for (char &c : shown) {
        if (c < ' ' || c == 0x7f) c = '?';
    }
    return shown;
}

MHD_Result take_into(void *headers, MHD_ValueKind, const char *key, size_t key_size, const char *value, size_t value_size)
{
    const std::string_view text = value != nullptr ? std::string_view(value, value_size) : std::string_view("");
    take_header(*static_cast<request_headers *>(headers), {key, key_size}, text);
    return MHD_YES;
}

// What a GET brings along is not looked at.
bool has_form(const request &each)
{
    return each.method == verb::post;
}

bool brings_body(const request &each)
{
    const std::string_view length = each.headers.content_length;
    return each.headers.transfer_encoding.data() != nullptr || (!length.empty() && length != "0");
}

const error_reply form_too_long{413, "the form is too long", nullptr, ""};

}  // namespace

void *zel_web_server::begin_request(void *, const char *target, MHD_Connection *) noexcept
{
    try {
        auto each = std::make_unique<open_request>();
        each->asked.target = target;
        (void)each->asked.split_target();
        return each.release();
    } catch (const std::exception &) {
        return nullptr;
    }
}

MHD_Result zel_web_server::take(void *self, MHD_Connection *mhd, const char *, const char *method, const char *, const char *data,
                                size_t *size, void **request) noexcept
{
    if (*request == nullptr) return MHD_NO;
    try {
        return static_cast<zel_web_server *>(self)->take_piece(mhd, *static_cast<open_request *>(*request), method, data, size);
    } catch (const std::exception &problem) {
        log_message(0, "%s: A request is given up: %s\n", __func__, problem.what());
        return MHD_NO;
    }
}

void zel_web_server::note_connection(void *self, MHD_Connection *mhd, void **context,
                                     MHD_ConnectionNotificationCode what) noexcept
{
    connection_list &list = static_cast<zel_web_server *>(self)->connections_;
    if (what == MHD_CONNECTION_NOTIFY_STARTED) *context = list.started(mhd);
    else list.ended(static_cast<connection *>(*context));
}

void zel_web_server::end_request(void *, MHD_Connection *, void **request, MHD_RequestTerminationCode how) noexcept
{
    const std::unique_ptr<open_request> each(static_cast<open_request *>(*request));
    *request = nullptr;
    if (!each) return;
    const auto &asked = each->asked;
    if (asked.link != nullptr) connection_list::enter(*asked.link, phase::receiving);
    try {
        log_message(4, "%s: %s %s %s %u %llu%s\n", __func__, asked.link != nullptr ? asked.link->peer.c_str() : "-",
                    word_of(asked.method), printable(asked.target).c_str(), asked.status,
                    static_cast<unsigned long long>(asked.size),
                    how == MHD_REQUEST_TERMINATED_COMPLETED_OK ? "" : " (not completed)");
    } catch (const std::exception &) {
        return;   // only the line is lost
    }
}

// libmicrohttpd calls first without data, then with each piece of a body, then once more without.
MHD_Result zel_web_server::take_piece(MHD_Connection *mhd, open_request &each, const char *method, const char *data, size_t *size)
{
    if (!each.asked.checked) {
        if (each.login.state == login_state::unknown) return begin(mhd, each, method);
        return admit(mhd, each);
    }
    if (*size > 0) {
        if (has_form(each.asked)) each.asked.add_body({data, *size});
        *size = 0;
        return MHD_YES;
    }
    if (each.refused.status != 0) return send_error(mhd, each.asked, each.refused);
    if (each.asked.body_too_long) return send_error(mhd, each.asked, form_too_long);
    return serve(mhd, each.asked);
}

MHD_Result zel_web_server::begin(MHD_Connection *mhd, open_request &each, const char *method)
{
    request &asked = each.asked;
    const MHD_ConnectionInfo *const info = MHD_get_connection_info(mhd, MHD_CONNECTION_INFO_SOCKET_CONTEXT);
    asked.link = info != nullptr ? static_cast<connection *>(info->socket_context) : nullptr;
    if (asked.link == nullptr) return MHD_NO;
    asked.method = verb_of(method);
    (void)MHD_get_connection_values_n(mhd, MHD_HEADER_KIND, take_into, &asked.headers);
    each.refused = check_form(asked);
    if (each.refused.status == 0) each.refused = check_origin(asked, names_, asked.link->local);
    each.login.state = login_state::passed;
    if (each.refused.status == 0 && login_.needed()) {
        login_.check(each.login, mhd, asked.headers.authorization, asked.link->peer);
    }
    if (each.login.state != login_state::pending) return admit(mhd, each);
    MHD_suspend_connection(mhd);   // and this is called again when the password was checked
    return MHD_YES;
}

// A refusal waits for the end of the request, because libmicrohttpd ends connections that are answered before; but nothing is
// read of a body that would be for nothing.
MHD_Result zel_web_server::admit(MHD_Connection *mhd, open_request &each)
{
    request &asked = each.asked;
    asked.checked = true;
    if (each.refused.status == 0) each.refused = refusal_of_login(each);
    if (each.refused.status == 0) each.refused = check_method(asked);
    if (each.refused.status == 0) return MHD_YES;
    log_message(each.refused.status == 403 ? 2 : 4, "%s: A request of %s is refused: %s\n", __func__, asked.link->peer.c_str(),
                each.refused.line.c_str());
    return brings_body(asked) ? send_error(mhd, asked, each.refused) : MHD_YES;
}

error_reply zel_web_server::refusal_of_login(const open_request &each) const
{
    switch (each.login.state) {
    case login_state::passed: return {};
    case login_state::impossible: return {503, "nobody can log in at present", nullptr, ""};
    case login_state::must_wait: {
        const int wait = std::max(1, login_.wait_of(each.asked.link->peer));
        return {429, "too many log-ins failed; wait", "Retry-After", std::to_string(wait)};
    }
    default: return {401, "log in", "WWW-Authenticate", "Basic realm=\"unit\", charset=\"UTF-8\""};
    }
}

error_reply zel_web_server::check_method(const request &each) const
{
    int methods = ZEL_WEB_GET;
    if (const document *const row = find_document(each.path); row != nullptr) methods = row->methods;
    else if (zel_web_server_find_handler(each.path.c_str()) != nullptr) methods = ZEL_WEB_GET | ZEL_WEB_POST;
    const int wanted = each.method == verb::other ? 0 : each.method == verb::post ? ZEL_WEB_POST : ZEL_WEB_GET;
    constexpr const char *allowed[] = {"", "GET, HEAD", "POST", "GET, HEAD, POST"};
    if ((methods & wanted) == 0) return {405, "that method is not for this path", "Allow", allowed[methods]};
    return has_form(each) ? check_body(each) : error_reply{};
}

MHD_Result zel_web_server::serve(MHD_Connection *mhd, request &each)
{
    if (before_request_ != nullptr) before_request_(user_data_);
    if (each.path == events_.path) return give_events(mhd, each);
    if (const document *const row = find_document(each.path); row != nullptr) return give_document(mhd, each, *row);
    const zel_web_url_handler_t *const handler = zel_web_server_find_handler(each.path.c_str());
    if (handler != nullptr) return give_handlers_text(mhd, each, *handler);
    return files_.give(mhd, each);
}
