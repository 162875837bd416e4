// Looking for services and keeping an eye on those that were found.
#include "avahi_dnssd.h"

#include "zel_debug.h"

#include <avahi-common/address.h>
#include <avahi-common/error.h>
#include <avahi-common/strlst.h>

#include <algorithm>
#include <new>
#include <utility>

namespace zel::sdiscd {
namespace {

constexpr size_t most_txt_bytes = 1024;   // a client's field holds no more
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

// A resolver of avahi keeps the address that it had when the SRV record goes and comes back, and then gives the old address
// with the new port. Only the first answer of each is relied on; at the next one another takes its place, within the time that
// answers take to settle.
void avahi_dnssd::refresh_resolver(resolve_node &node)
{
    if (std::exchange(node.renew, false)) node.resolver.reset();
    const int32_t index = interfaces::index_of(node.what.interface);
    if (index == 0 || (node.resolver && node.index == index)) return;
    node.index = index;
    node.loopback = interfaces::is_loopback(node.what.interface);
    node.has_answered = false;
    node.resolver.reset(avahi_s_service_resolver_new(server_.get(), index, AVAHI_PROTO_INET, node.what.service.name.c_str(),
                                                     node.what.service.type.c_str(), "local", AVAHI_PROTO_INET,
                                                     static_cast<AvahiLookupFlags>(0), on_resolve, &node));
    if (!node.resolver) note({event::kind::unresolved, node.number});
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

void avahi_dnssd::on_resolve(AvahiSServiceResolver *, AvahiIfIndex, AvahiProtocol, AvahiResolverEvent what, const char *name,
                             const char *, const char *, const char *host_name, const AvahiAddress *address, uint16_t port,
                             AvahiStringList *txt, AvahiLookupResultFlags, void *user_data)
{
    auto *const node = static_cast<resolve_node *>(user_data);
    avahi_dnssd &self = *node->owner;
    try {
        event told{event::kind::unresolved, node->number};
        if (what == AVAHI_RESOLVER_FOUND) {
            if (std::exchange(node->has_answered, true)) node->renew = self.look_again_ = true;
            told.details = details_of(host_name, address, port, txt);
            log_message(4, "%s: '%s' is at %s:%u\n", __func__, name, told.details.address.c_str(), port);
            const std::string fault = fault_of(told.details, node->loopback);
            uint32_t left_out = 0;
            if (fault.empty()) told.what = event::kind::resolved;
            else if (self.hostile_log_.allows(now_ms(), left_out)) {
                log_message(1, "%s: '%s' cannot be used, it gives %s (%u others were left out, too)\n", __func__, name,
                            fault.c_str(), left_out);
            }
        }
        self.note(std::move(told));
    } catch (const std::bad_alloc &) {
        self.failed_ = true;
    }
}

}  // namespace zel::sdiscd
