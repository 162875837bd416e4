// Looking for services and keeping an eye on those that were found.
#include "avahi_dnssd.h"

#include "zel_debug.h"

#include <avahi-common/address.h>
#include <avahi-common/error.h>
#include <avahi-common/strlst.h>
#include <avahi-core/rr.h>

#include <arpa/inet.h>

#include <algorithm>
#include <new>

namespace zel::sdiscd {
namespace {

constexpr size_t most_txt_bytes = 1024;   // a client's field holds no more
constexpr size_t most_addresses = 16;     // of one host
constexpr int64_t ask_ms = 300'000, ask_quickly_ms = 15'000, missing_ms = 3'600'000;

std::vector<std::string> strings_of(AvahiStringList *list)
{
    std::vector<std::string> strings;
    size_t bytes = 0;
    for (AvahiStringList *each = list; each != nullptr; each = avahi_string_list_get_next(each)) {
        const size_t length = avahi_string_list_get_size(each);
        bytes += length;
        if (bytes > most_txt_bytes) break;
        if (length != 0) strings.emplace_back(reinterpret_cast<const char *>(avahi_string_list_get_text(each)), length);
    }
    return strings;
}

service_details details_of(const char *host, const AvahiAddress *address, uint16_t port, AvahiStringList *txt)
{
    char text[AVAHI_ADDRESS_STR_MAX] = "";
    if (address != nullptr) (void)avahi_address_snprint(text, sizeof text, address);
    return {host != nullptr ? host : "", text, port, strings_of(txt)};
}

}  // namespace

void avahi_dnssd::browse(uint32_t number, const question &what)
{
    browsed_.try_emplace(number, browse_node{this, number, what});
    look_again_ = true;
}

void avahi_dnssd::stop_browsing(uint32_t number)
{
    browsed_.erase(number);
}

void avahi_dnssd::resolve(uint32_t number, const service_place &what)
{
    resolved_.try_emplace(number, resolve_node{this, number, what});
    look_again_ = true;
}

void avahi_dnssd::stop_resolving(uint32_t number)
{
    resolved_.erase(number);
}

// While an interface is away its browser stays: avahi itself then tells that the services are gone.
void avahi_dnssd::refresh_browser(browse_node &node)
{
    const int32_t index = interfaces::index_of(node.what.interface);
    if (index == 0 || (node.browser && node.index == index)) return;
    if (node.begun) note({event::kind::anew, node.number});
    node.index = index;
    node.begun = true;
    const int64_t now = now_ms();
    node.ask_again_ms = now + (now < node.missing_until_ms ? ask_quickly_ms : ask_ms);
    node.browser.reset(avahi_s_service_browser_new(server_.get(), index, AVAHI_PROTO_INET, node.what.type.c_str(), "local",
                                                   static_cast<AvahiLookupFlags>(0), on_browse, &node));
    if (node.browser) return;
    log_message(0, "%s: Services cannot be looked for on %s: %s; starting the responder anew\n", __func__,
                node.what.interface.c_str(), avahi_strerror(avahi_server_errno(server_.get())));
    failed_ = true;
}

// A browser asks ever more rarely, at last once an hour. A unit behind a switch that had failed for longer than its records
// live would not be found for as long, so the questions begin anew now and then, and more often while something is missing.
void avahi_dnssd::ask_again(browse_node &node, int64_t now)
{
    if (!node.browser || now < node.ask_again_ms) return;
    node.browser.reset();
    look_again_ = true;
}

// What is lost with our own link is in doubt only: when the link was but briefly away nobody needs to know.
void avahi_dnssd::note_loss(browse_node &node, const char *name)
{
    const int64_t now = now_ms();
    node.missing_until_ms = now + missing_ms;
    node.ask_again_ms = std::min(node.ask_again_ms, now + ask_quickly_ms);
    if (!interfaces::has_link(node.what.interface)) return note({event::kind::anew, node.number});
    note({event::kind::lost, node.number, publish_outcome::failed, name});
}

void avahi_dnssd::refresh_resolver(resolve_node &node)
{
    const int32_t index = interfaces::index_of(node.what.interface);
    if (index == 0) return;
    if (node.resolver && node.index == index) return watch_host(node);
    node.index = index;
    node.loopback = interfaces::is_loopback(node.what.interface);
    node.host_watch.reset();
    node.watched_host.clear();
    node.said = {};
    node.resolver.reset(avahi_s_service_resolver_new(server_.get(), index, AVAHI_PROTO_INET, node.what.service.name.c_str(),
                                                     node.what.service.type.c_str(), "local", AVAHI_PROTO_INET,
                                                     static_cast<AvahiLookupFlags>(0), on_resolve, &node));
    if (!node.resolver) note({event::kind::unresolved, node.number});
}

// A resolver of avahi holds on to an address: it gives a new one only when the old one has run out, and not even then when the
// SRV record went and came back meanwhile. So the addresses of the host are followed here as well, and the latest one counts.
void avahi_dnssd::watch_host(resolve_node &node)
{
    if (node.said.host == node.watched_host) return;
    node.watched_host = node.said.host;
    node.addresses.clear();
    node.host_watch.reset();
    const std::unique_ptr<AvahiKey, releaser<AvahiKey, avahi_key_unref>> key(
        avahi_key_new(node.watched_host.c_str(), AVAHI_DNS_CLASS_IN, AVAHI_DNS_TYPE_A));
    if (key) {
        node.host_watch.reset(avahi_s_record_browser_new(server_.get(), node.index, AVAHI_PROTO_INET, key.get(),
                                                         static_cast<AvahiLookupFlags>(0), on_host_address, &node));
    }
    if (!node.host_watch) log_message(1, "%s: The addresses of %s cannot be followed\n", __func__, node.watched_host.c_str());
}

void avahi_dnssd::tell_resolved(const resolve_node &node)
{
    service_details details = node.said;
    if (node.host_watch && node.watched_host == details.host) {
        if (node.addresses.empty()) return;   // it is about to be told
        details.address = node.addresses.back();
    }
    event told{event::kind::unresolved, node.number};
    const std::string fault = fault_of(details, node.loopback);
    uint32_t left_out = 0;
    if (fault.empty()) {
        told.what = event::kind::resolved;
        told.details = std::move(details);
    } else if (hostile_log_.allows(now_ms(), left_out)) {
        log_message(1, "%s: '%s' cannot be used, it gives %s (%u others were left out, too)\n", __func__,
                    node.what.service.name.c_str(), fault.c_str(), left_out);
    }
    note(std::move(told));
}

void avahi_dnssd::on_browse(AvahiSServiceBrowser *, AvahiIfIndex, AvahiProtocol, AvahiBrowserEvent what, const char *name,
                            const char *, const char *, AvahiLookupResultFlags flags, void *user_data)
{
    auto *const node = static_cast<browse_node *>(user_data);
    try {
        switch (what) {
        case AVAHI_BROWSER_NEW:
            return node->owner->note({event::kind::found, node->number, publish_outcome::failed, name,
                                      (flags & AVAHI_LOOKUP_RESULT_LOCAL) != 0});
        case AVAHI_BROWSER_REMOVE: return node->owner->note_loss(*node, name);
        case AVAHI_BROWSER_FAILURE: node->owner->failed_ = true; return;
        case AVAHI_BROWSER_CACHE_EXHAUSTED:
        case AVAHI_BROWSER_ALL_FOR_NOW: return;
        }
    } catch (const std::bad_alloc &) {
        node->owner->failed_ = true;
    }
}

void avahi_dnssd::on_resolve(AvahiSServiceResolver *, AvahiIfIndex, AvahiProtocol, AvahiResolverEvent what, const char *,
                             const char *, const char *, const char *host_name, const AvahiAddress *address, uint16_t port,
                             AvahiStringList *txt, AvahiLookupResultFlags, void *user_data)
{
    auto *const node = static_cast<resolve_node *>(user_data);
    avahi_dnssd &self = *node->owner;
    try {
        if (what != AVAHI_RESOLVER_FOUND) return self.note({event::kind::unresolved, node->number});
        node->said = details_of(host_name, address, port, txt);
        if (node->said.host != node->watched_host) self.look_again_ = true;
        self.tell_resolved(*node);
    } catch (const std::bad_alloc &) {
        self.failed_ = true;
    }
}

void avahi_dnssd::on_host_address(AvahiSRecordBrowser *, AvahiIfIndex, AvahiProtocol, AvahiBrowserEvent what, AvahiRecord *record,
                                  AvahiLookupResultFlags, void *user_data)
{
    auto *const node = static_cast<resolve_node *>(user_data);
    if (what == AVAHI_BROWSER_FAILURE) node->owner->failed_ = true;
    if (what != AVAHI_BROWSER_NEW && what != AVAHI_BROWSER_REMOVE) return;
    try {
        char text[INET_ADDRSTRLEN] = "";
        const in_addr address{record->data.a.address.address};
        if (inet_ntop(AF_INET, &address, text, sizeof text) == nullptr) return;
        std::vector<std::string> &known = node->addresses;
        std::erase(known, text);
        if (what == AVAHI_BROWSER_NEW) known.emplace_back(text);
        if (known.size() > most_addresses) known.erase(known.begin());
        node->owner->tell_resolved(*node);
    } catch (const std::bad_alloc &) {
        node->owner->failed_ = true;
    }
}

}  // namespace zel::sdiscd
