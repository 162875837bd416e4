// The web server: libmicrohttpd in the host's loop, behind one descriptor.
//
// libmicrohttpd's own epoll instance, a timer for its time-outs and ours, and the answers of password checks stand in one epoll
// instance; its descriptor is all that the host has to wait for.
#pragma once

#include "common/unique_fd.h"
#include "connections.h"
#include "event_stream.h"
#include "login.h"
#include "replies.h"
#include "reply_buffers.h"
#include "request.h"
#include "request_rules.h"
#include "static_files.h"
#include "zel_www.h"

#include <microhttpd.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

namespace zel::web {

struct document {
    std::string path;
    int methods;
    zel_web_document_cb_t callback;
    void *user_data;
};

struct event_path {
    std::string path;
    zel_web_greet_cb_t greet = nullptr;
    void *user_data = nullptr;
};

// A request while libmicrohttpd knows it.
struct open_request {
    request asked;
    login_wait login;
    error_reply refused;     // to be told when the request is whole
};

}  // namespace zel::web

struct zel_web_server {
public:
    // Null with the cause in the log. May throw std::bad_alloc.
    static std::unique_ptr<zel_web_server> open(const zel_web_server_config_t &config);
    ~zel_web_server();
    zel_web_server(const zel_web_server &) = delete;
    zel_web_server &operator=(const zel_web_server &) = delete;

    int fd() const { return epoll_.get(); }
    uint16_t port() const { return port_; }
    void process();
    bool needs_login() { return login_.needed(); }
    bool add_document(zel::web::document row);
    bool set_events(zel::web::event_path events);
    zel::web::event_stream &events() { return stream_; }
    // To be called after events were sent: the loop must come round for them.
    void run_soon();

private:
    explicit zel_web_server(const zel_web_server_config_t &config);
    bool listen(const zel_web_server_config_t &config);
    bool start_daemon(const zel_web_server_config_t &config, zel::unique_fd listener);
    bool open_loop();
    bool watch(int fd);
    void run_daemon();
    void tick();
    void arm_timer();

    // libmicrohttpd's callbacks.
    static void *begin_request(void *self, const char *target, MHD_Connection *mhd) noexcept;
    static MHD_Result take(void *self, MHD_Connection *mhd, const char *, const char *method, const char *, const char *data,
                           size_t *size, void **request) noexcept;
    static void end_request(void *self, MHD_Connection *mhd, void **request, MHD_RequestTerminationCode how) noexcept;
    static void note_connection(void *self, MHD_Connection *mhd, void **context, MHD_ConnectionNotificationCode what) noexcept;
    [[gnu::format(printf, 2, 0)]] static void log_line(void *, const char *format, va_list arguments) noexcept;

    // Serving one request.
    MHD_Result take_piece(MHD_Connection *mhd, zel::web::open_request &each, const char *method, const char *data, size_t *size);
    MHD_Result begin(MHD_Connection *mhd, zel::web::open_request &each, const char *method);
    MHD_Result admit(MHD_Connection *mhd, zel::web::open_request &each);
    zel::web::error_reply refusal_of_login(const zel::web::open_request &each) const;
    zel::web::error_reply check_method(const zel::web::request &each) const;
    MHD_Result serve(MHD_Connection *mhd, zel::web::request &each);
    MHD_Result give_document(MHD_Connection *mhd, zel::web::request &each, const zel::web::document &row);
    MHD_Result give_handlers_text(MHD_Connection *mhd, zel::web::request &each, const zel_web_url_handler_t &handler);
    MHD_Result give_events(MHD_Connection *mhd, zel::web::request &each);
    const zel::web::document *find_document(const std::string &path) const;

    zel::web::host_names names_;
    zel::web::login login_;
    zel::web::connection_list connections_;
    zel::web::event_stream stream_;
    zel::web::event_path events_;
    zel::web::static_files files_;
    zel::web::reply_buffers buffers_;
    std::vector<zel::web::document> documents_;
    std::map<const zel_web_url_handler_t *, size_t> reply_sizes_;   // how large a handler's buffer had to be
    void (*before_request_)(void *user_data);
    void *user_data_;
    size_t listeners_max_;
    std::chrono::milliseconds alive_, tick_length_;
    zel::web::clock::time_point last_alive_ = zel::web::clock::now();
    zel::unique_fd epoll_, timer_;
    enum class timer_state { off, ticking, at_once } timer_now_ = timer_state::off;
    uint16_t port_ = 0;
    bool running_ = false;
    MHD_Daemon *daemon_ = nullptr;
};
