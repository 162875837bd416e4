#include "web_pages.h"

#include "common/json_reading.h"
#include "common/json_text.h"
#include "common/unit_root.h"
#include "zel_debug.h"

#include <unistd.h>

#include <climits>
#include <exception>
#include <new>

namespace zel {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds between_looks{50};

bool is_folder(const std::string &path)
{
    return access((path + "/index.html").c_str(), R_OK) == 0;
}

// The installed pages, else those of the source tree that the program was built in.
std::string pages_beside_program()
{
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
    if (length <= 0) return "";
    const std::string program(path, static_cast<size_t>(length));
    const std::string folder = program.substr(0, program.rfind('/'));
    for (const char *place : {"/../share/zel/www", "/../../../www"}) {
        if (is_folder(folder + place)) return folder + place;
    }
    return "";
}

bool is_loopback(const std::string &address)
{
    return address.starts_with("127.") || address == "::1";
}

std::string text_of(json_t *value)
{
    const json_handle owned(value);
    const auto text = json_text(value, JSON_COMPACT);
    if (!text) throw std::bad_alloc();
    return *text;
}

}  // namespace

bool web_pages::open(const std::string &serial)
{
    serial_ = serial;
    const web_settings &settings = unit_.settings.web;
    const std::string pages = settings.pages.empty() ? pages_beside_program() : settings.pages;
    const std::string users = below_unit_root(web_users_path);
    if (pages.empty()) log_message(1, "%s: There are no pages; \"servers.web.pages\" can say where they are\n", __func__);
    std::vector<const char *> names;
    for (const std::string &name : settings.names) names.push_back(name.c_str());
    names.push_back(nullptr);
    zel_web_server_config_t config{};
    config.address = settings.address.c_str();
    config.port = static_cast<uint16_t>(settings.port);
    config.folder = pages.empty() ? nullptr : pages.c_str();
    config.names = names.data();
    config.users_file = users.c_str();
    config.before_request = before_request;
    config.user_data = this;
    server_.reset(zel_web_server_open(&config));
    if (server_ && add_documents()) {
        warn_without_login();
        return true;
    }
    log_message(0, "%s: No web server on %s port %d; the unit runs without its pages\n", __func__, settings.address.c_str(),
                settings.port);
    server_.reset();
    return false;
}

bool web_pages::add_documents()
{
    return zel_web_server_add_document(server_.get(), "/api/unit", ZEL_WEB_GET, answer_unit, this) == 0 &&
           zel_web_server_add_document(server_.get(), "/api/panel", ZEL_WEB_GET | ZEL_WEB_POST, answer_panel, this) == 0 &&
           zel_web_server_set_event_stream(server_.get(), "/api/events", greet, this) == 0;
}

void web_pages::warn_without_login() const
{
    if (is_loopback(unit_.settings.web.address) || zel_web_server_needs_login(server_.get()) != 0) return;
    log_message(1, "%s: Whoever reaches %s port %d can operate this unit: nobody has to log in (zel_unit --add-web-user NAME)\n",
                __func__, unit_.settings.web.address.c_str(), unit_.settings.web.port);
}

void web_pages::close()
{
    server_.reset();
}

void web_pages::set_fds(fd_set *readfds, int *maxfd)
{
    zel_web_server_set_fds(server_.get(), readfds, maxfd);
}

void web_pages::process(fd_set *readfds)
{
    contacts_.next_turn();
    zel_web_server_process_fds(server_.get(), readfds);
}

bool web_pages::anybody_listens() const
{
    return zel_web_server_listener_count(server_.get()) > 0;
}

void web_pages::tell_line(const std::string &line)
{
    (void)zel_web_server_send_event(server_.get(), "host", line.c_str());
}

void web_pages::tell_changes() noexcept
{
    try {
        last_look_ = clock::now();
        dirty_ = false;
        changes_.tell([this](const char *event, const std::string &data) {
            (void)zel_web_server_send_event(server_.get(), event, data.c_str());
        });
    } catch (const std::exception &problem) {
        log_message(0, "%s: Changes could not be told: %s\n", __func__, problem.what());
    }
}

// A document must not be older than the last change told: a page takes what is told after it asked as newer.
void web_pages::before_request(void *self) noexcept
{
    web_pages &own = *static_cast<web_pages *>(self);
    own.unit_.feed.settle();
    if (own.following_ && own.anybody_listens()) own.tell_changes();
}

void web_pages::settle(bool something_happened)
{
    following_ &= anybody_listens();
    if (!following_) return;
    dirty_ |= something_happened;
    if (dirty_ && clock::now() - last_look_ >= between_looks) tell_changes();
}

std::optional<milliseconds> web_pages::next_due() const
{
    if (contacts_.waiting()) return milliseconds(0);
    if (!following_ || !dirty_) return std::nullopt;
    const auto left = std::chrono::ceil<milliseconds>(last_look_ + between_looks - clock::now());
    return std::max(left, milliseconds(0));
}

void web_pages::greet(void *self, zel_web_listener_t *listener) noexcept
{
    web_pages &own = *static_cast<web_pages *>(self);
    try {
        if (!own.following_) own.changes_.begin();
        own.following_ = true;
        own.last_look_ = clock::now();
        (void)zel_web_listener_send(listener, "hello", own.unit_text().c_str());
    } catch (const std::exception &problem) {
        log_message(0, "%s: A listener could not be greeted: %s\n", __func__, problem.what());
    }
}

std::string web_pages::unit_text() const
{
    const unit_settings &settings = unit_.settings;
    return text_of(json_pack("{s:s, s:s, s:s, s:s, s:s, s:b}", "friendly_name", settings.friendly_name.c_str(), "product_id",
                             settings.product_id.c_str(), "serial", serial_.c_str(), "version", ZEL_VERSION, "pin_backend",
                             settings.pin_backend.c_str(), "web_login", zel_web_server_needs_login(server_.get())));
}

void web_pages::answer_unit(void *self, const zel_web_request_t *, zel_web_reply_t *reply) noexcept
{
    try {
        const std::string text = static_cast<web_pages *>(self)->unit_text();
        (void)zel_web_reply_text(reply, 200, "application/json", text.data(), text.size());
    } catch (const std::exception &problem) {
        log_message(0, "%s: %s\n", __func__, problem.what());
    }
}

std::string web_pages::panel_text(const zel_web_request_t &request, int &status)
{
    if (std::string_view(request.method) == "GET") return text_of(report_panel(unit_));
    const panel_answer done = press_on_panel(unit_, contacts_, std::string(request.body, request.body_len));
    status = done.status;
    if (!done.error.empty()) return text_of(json_pack("{s:s}", "error", done.error.c_str()));
    return done.note.empty() ? "{}" : text_of(json_pack("{s:s}", "note", done.note.c_str()));
}

void web_pages::answer_panel(void *self, const zel_web_request_t *request, zel_web_reply_t *reply) noexcept
{
    try {
        int status = 200;
        const std::string text = static_cast<web_pages *>(self)->panel_text(*request, status);
        (void)zel_web_reply_text(reply, status, "application/json", text.data(), text.size());
    } catch (const std::exception &problem) {
        log_message(0, "%s: %s\n", __func__, problem.what());
    }
}

}  // namespace zel
