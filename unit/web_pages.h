// The unit's web server: the pages, what they ask for, and the changes that they are told of.
#pragma once

#include "live_changes.h"
#include "panel.h"
#include "unit_parts.h"
#include "zel_www.h"

#include <sys/select.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace zel {

class web_pages {
public:
    explicit web_pages(unit_parts &unit) : unit_(unit), changes_(unit) {}

    // False, with the cause in the log, if it cannot listen there.
    bool open(const std::string &serial);
    void close();
    bool is_open() const { return server_ != nullptr; }

    void set_fds(fd_set *readfds, int *maxfd);
    void process(fd_set *readfds);
    bool anybody_listens() const;
    // A line of the change feed.
    void tell_line(const std::string &line);
    // To be called at the end of each turn; `something_happened`: it was no mere time-out.
    void settle(bool something_happened);
    // How long the loop may wait; nothing: as long as it likes.
    std::optional<std::chrono::milliseconds> next_due() const;

private:
    using clock = std::chrono::steady_clock;
    struct release {
        void operator()(zel_web_server_t *server) const { zel_web_server_close(server); }
    };
    static void answer_unit(void *self, const zel_web_request_t *, zel_web_reply_t *reply) noexcept;
    static void answer_panel(void *self, const zel_web_request_t *request, zel_web_reply_t *reply) noexcept;
    static void greet(void *self, zel_web_listener_t *listener) noexcept;
    static void before_request(void *self) noexcept;
    bool add_documents();
    void warn_without_login() const;
    std::string unit_text() const;
    std::string panel_text(const zel_web_request_t &request, int &status);
    void tell_changes() noexcept;

    unit_parts &unit_;
    std::string serial_;
    std::unique_ptr<zel_web_server_t, release> server_;
    live_changes changes_;
    contact_moves contacts_;
    bool following_ = false;   // the changes are up to date
    bool dirty_ = false;       // something may have changed since
    clock::time_point last_look_{};
};

// The file of those who may log in, below the unit's root.
inline constexpr std::string_view web_users_path = "/etc/zel/web_users";

}  // namespace zel
