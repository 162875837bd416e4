// The responder itself: how it is made, what happens when it fails, and what is told of it.
#include "avahi_dnssd.h"

#include "zel_debug.h"

#include <avahi-common/alternative.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>
#include <avahi-core/log.h>

#include <algorithm>
#include <new>
#include <utility>

namespace zel::sdiscd {
namespace {

constexpr int64_t server_retry_ms = 2'000;

struct avahi_text_release {
    void operator()(char *text) const { avahi_free(text); }
};
using avahi_text = std::unique_ptr<char, avahi_text_release>;

struct list_release {
    void operator()(AvahiStringList *list) const { avahi_string_list_free(list); }
};

log_budget avahi_log;

// What avahi says is caused by the network and may come in any number.
void write_avahi_log(AvahiLogLevel level, const char *text)
{
    uint32_t left_out = 0;
    const bool serious = level <= AVAHI_LOG_WARN;
    if (serious && !avahi_log.allows(now_ms(), left_out)) return;
    log_message(serious ? 1 : 4, "avahi: %s\n", text);
    if (left_out > 0) log_message(1, "avahi: %u other messages were left out\n", left_out);
}

}  // namespace

avahi_dnssd::avahi_dnssd(event_loop &loop, responder_settings settings)
    : loop_(loop), settings_(std::move(settings)), host_name_(settings_.host_name)
{
    avahi_set_log_function(write_avahi_log);
}

avahi_dnssd::~avahi_dnssd()
{
    close();
}

void avahi_dnssd::note(event what) noexcept
{
    try {
        events_.push_back(std::move(what));
    } catch (const std::bad_alloc &) {
        log_message(0, "%s: Out of memory; starting the responder anew\n", __func__);
        failed_ = true;
    }
}

std::set<std::string> avahi_dnssd::needed_interfaces() const
{
    std::set<std::string> names{settings_.interface};
    const auto need = [&names](const std::string &reference) {
        const std::string name = reference.starts_with('#') ? interfaces::name_of(reference) : reference;
        if (!name.empty()) names.insert(name);
    };
    for (const auto &[number, node] : published_) need(node.what.place.interface);
    for (const auto &[number, node] : browsed_) need(node.what.interface);
    return names;
}

void avahi_dnssd::make_server(int64_t now)
{
    allowed_ = needed_interfaces();
    std::unique_ptr<AvahiStringList, list_release> names;
    for (const std::string &name : allowed_) names.reset(avahi_string_list_add(names.release(), name.c_str()));
    AvahiServerConfig config;
    avahi_server_config_init(&config);
    config.host_name = host_name_.data();
    config.use_ipv4 = 1;
    config.use_ipv6 = 0;   // else each service is told once for each protocol
    config.use_iff_running = 1;   // so that a cable that is put in again lets everything be asked for and announced again
    config.allow_interfaces = names.get();
    config.publish_hinfo = config.publish_addresses = config.publish_workstation = config.publish_domain = 0;
    config.enable_wide_area = 0;
    int error = AVAHI_OK;
    failed_ = host_collided_ = false;
    server_.reset(avahi_server_new(loop_.api(), &config, on_server, this, &error));
    look_again_ = true;
    if (server_ && !failed_) {
        log_message(2, "%s: Responder started as %s\n", __func__, avahi_server_get_host_name_fqdn(server_.get()));
        retry_ms_ = 0;
        complained_ = false;
        return;
    }
    if (!complained_) log_message(0, "%s: No responder: %s; trying again until there is one\n", __func__, avahi_strerror(error));
    complained_ = true;
    server_.reset();
    failed_ = false;
    retry_ms_ = now + server_retry_ms;
}

void avahi_dnssd::drop_server()
{
    // The server's own end sends the goodbyes of its groups, and frees them, so they are let go of first.
    for (auto &[number, node] : published_) {
        (void)node.group.release();
        node.index = 0;
        node.stale = true;
        node.in_place = false;
    }
    for (auto &[name, node] : addresses_) (void)node.group.release();
    addresses_.clear();
    for (auto &[number, node] : browsed_) node.browser.reset();
    for (auto &[number, node] : resolved_) {
        node.resolver.reset();
        node.host_watch.reset();
        node.watched_host.clear();
    }
    server_.reset();
    look_again_ = true;
}

void avahi_dnssd::close()
{
    drop_server();
    events_.clear();
}

void avahi_dnssd::take_other_host_name()
{
    host_collided_ = false;
    const avahi_text other(avahi_alternative_host_name(host_name_.c_str()));
    if (!server_ || other == nullptr) return;
    log_message(1, "%s: Another unit has the host name '%s'; taking '%s'\n", __func__, host_name_.c_str(), other.get());
    host_name_ = other.get();
    if (avahi_server_set_host_name(server_.get(), host_name_.c_str()) < 0) failed_ = true;
    look_again_ = true;
}

void avahi_dnssd::look_at_interfaces()
{
    look_again_ = interfaces_changed_ = true;
}

void avahi_dnssd::settle(int64_t now)
{
    if (server_ && failed_) {
        drop_server();
        retry_ms_ = now + server_retry_ms;
    }
    if (server_ && look_again_ && !std::ranges::includes(allowed_, needed_interfaces())) {
        log_message(2, "%s: Another interface is asked for; starting the responder anew\n", __func__);
        drop_server();
    }
    if (!server_ && retry_ms_ <= now) make_server(now);
    if (host_collided_) take_other_host_name();
    if (!server_ || failed_) return;
    for (auto &[number, node] : browsed_) ask_again(node, now);
    watch_progress(now);
    if (!look_again_) return;
    look_again_ = false;
    if (std::exchange(interfaces_changed_, false)) begin_unfinished_anew();
    refresh_addresses();
    for (auto &[number, node] : published_) refresh_publication(node);
    for (auto &[number, node] : browsed_) refresh_browser(node);
    for (auto &[number, node] : resolved_) refresh_resolver(node);
    watch_progress(now);
}

std::optional<int64_t> avahi_dnssd::next_due() const
{
    if (!events_.empty()) return 0;
    if (!server_) return retry_ms_;
    if (look_again_ || failed_ || host_collided_) return 0;
    std::optional<int64_t> first = progress_due_;
    for (const auto &[number, node] : browsed_) {
        if (node.browser && (!first || node.ask_again_ms < *first)) first = node.ask_again_ms;
    }
    return first;
}

void avahi_dnssd::deliver(dnssd_listener &listener)
{
    std::deque<event> events;
    events.swap(events_);
    for (const event &each : events) {
        switch (each.what) {
        case event::kind::published: listener.published(each.number, each.outcome); break;
        case event::kind::found: listener.found(each.number, each.name, each.local); break;
        case event::kind::lost: listener.lost(each.number, each.name); break;
        case event::kind::anew: listener.browsing_anew(each.number); break;
        case event::kind::resolved: listener.resolved(each.number, each.details); break;
        case event::kind::unresolved: listener.unresolved(each.number); break;
        }
    }
}

// Also called from inside avahi_server_new(), when there is no server yet.
void avahi_dnssd::on_server(AvahiServer *server, AvahiServerState state, void *user_data)
{
    auto *const self = static_cast<avahi_dnssd *>(user_data);
    if (state == AVAHI_SERVER_COLLISION) self->host_collided_ = true;
    if (state != AVAHI_SERVER_FAILURE) return;
    log_message(0, "%s: The responder failed: %s\n", __func__, avahi_strerror(avahi_server_errno(server)));
    self->failed_ = true;
}

}  // namespace zel::sdiscd
