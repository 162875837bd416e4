// Announcing: the services' records and the unit's address.
//
// Records are made one by one, because avahi's own service call gives the pointer record 75 minutes to live, for which time a
// unit that lost its power would seem to be there.
#include "avahi_dnssd.h"

#include "zel_debug.h"

#include <avahi-common/domain.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>
#include <avahi-core/rr.h>

#include <arpa/inet.h>

#include <algorithm>

namespace zel::sdiscd {
namespace {

constexpr const char *domain = "local";
constexpr uint32_t longest_address_ttl = 120;

struct record_release {
    void operator()(AvahiRecord *record) const { avahi_record_unref(record); }
};
using record_handle = std::unique_ptr<AvahiRecord, record_release>;

record_handle make_record(const std::string &name, uint16_t type, uint32_t ttl)
{
    return record_handle(avahi_record_new_full(name.c_str(), AVAHI_DNS_CLASS_IN, type, ttl));
}

record_handle make_pointer(const std::string &from, const std::string &to, uint32_t ttl)
{
    record_handle record = make_record(from, AVAHI_DNS_TYPE_PTR, ttl);
    if (record) record->data.ptr.name = avahi_strdup(to.c_str());
    return record && record->data.ptr.name != nullptr ? std::move(record) : nullptr;
}

record_handle make_srv(const std::string &name, const std::string &host, uint16_t port, uint32_t ttl)
{
    record_handle record = make_record(name, AVAHI_DNS_TYPE_SRV, ttl);
    if (!record) return nullptr;
    record->data.srv.priority = record->data.srv.weight = 0;
    record->data.srv.port = port;
    record->data.srv.name = avahi_strdup(host.c_str());
    return record->data.srv.name != nullptr ? std::move(record) : nullptr;
}

record_handle make_txt(const std::string &name, const std::vector<std::string> &strings, uint32_t ttl)
{
    record_handle record = make_record(name, AVAHI_DNS_TYPE_TXT, ttl);
    if (!record) return nullptr;
    record->data.txt.string_list = nullptr;
    for (auto each = strings.rbegin(); each != strings.rend(); ++each) {   // a list grows at its front
        AvahiStringList *const longer = avahi_string_list_add_arbitrary(
            record->data.txt.string_list, reinterpret_cast<const uint8_t *>(each->data()), each->size());
        if (longer == nullptr) return nullptr;
        record->data.txt.string_list = longer;
    }
    return record;
}

record_handle make_address(const std::string &host, const std::string &address, uint32_t ttl)
{
    record_handle record = make_record(host, AVAHI_DNS_TYPE_A, ttl);
    if (record && inet_pton(AF_INET, address.c_str(), &record->data.a.address.address) != 1) return nullptr;
    return record;
}

}  // namespace

void avahi_dnssd::publish(uint32_t number, const announcement &what)
{
    auto [place, is_new] = published_.try_emplace(number, published_node{this, number, what, ""});
    published_node &node = place->second;
    node.in_place = !is_new;
    node.what = what;
    node.stale = true;
    look_again_ = true;
}

void avahi_dnssd::withdraw(uint32_t number)
{
    published_.erase(number);
    look_again_ = true;
}

void avahi_dnssd::fail(published_node &node, int error)
{
    const bool collided = error == AVAHI_ERR_COLLISION;
    if (!collided) {
        log_message(0, "%s: '%s' cannot be published: %s\n", __func__, node.what.place.service.name.c_str(), avahi_strerror(error));
    }
    note({event::kind::published, node.number, collided ? publish_outcome::collision : publish_outcome::failed});
}

void avahi_dnssd::refresh_publication(published_node &node)
{
    const int32_t index = interfaces::index_of(node.what.place.interface);
    const std::string host = avahi_server_get_host_name_fqdn(server_.get());
    if (index == 0) return;   // its interface is awaited; while it was there before, avahi keeps the records for it
    if (node.index != index) {
        node.group.reset();
        node.stale = true;
        node.in_place = false;
    }
    if (node.host != host) node.stale = node.in_place = true;
    if (!node.stale) return;
    node.stale = false;
    node.index = index;
    node.host = host;
    if (!node.group) node.group.reset(avahi_s_entry_group_new(server_.get(), on_group, &node));
    if (!node.group) return fail(node, avahi_server_errno(server_.get()));

    const AvahiEntryGroupState state = avahi_s_entry_group_get_state(node.group.get());
    const bool stands = state == AVAHI_ENTRY_GROUP_ESTABLISHED || state == AVAHI_ENTRY_GROUP_REGISTERING;
    if (node.in_place && stands && add_records(node, AVAHI_PUBLISH_UPDATE) == AVAHI_OK) {
        if (state == AVAHI_ENTRY_GROUP_ESTABLISHED) note({event::kind::published, node.number, publish_outcome::established});
        return;
    }
    avahi_s_entry_group_reset(node.group.get());
    int error = add_records(node, 0);
    if (error == AVAHI_OK) error = avahi_s_entry_group_commit(node.group.get());
    if (error == AVAHI_OK) return;
    avahi_s_entry_group_reset(node.group.get());
    fail(node, error);
}

// An update concerns what can differ; the pointers stay as they are.
int avahi_dnssd::add_records(published_node &node, int flags)
{
    const service_id &service = node.what.place.service;
    char full[AVAHI_DOMAIN_NAME_MAX];
    int error = avahi_service_name_join(full, sizeof full, service.name.c_str(), service.type.c_str(), domain);
    if (error < 0) return error;
    const std::string type = service.type + "." + domain, types = std::string("_services._dns-sd._udp.") + domain;
    const uint32_t ttl = settings_.ttl_s;
    struct row {
        record_handle record;
        int flags;
        bool in_update;
    };
    const row rows[] = {
        {make_srv(full, node.host, node.what.port, ttl), AVAHI_PUBLISH_UNIQUE, true},
        {make_txt(full, node.what.txt, ttl), AVAHI_PUBLISH_UNIQUE, true},
        {make_pointer(type, full, ttl), 0, false},
        {make_pointer(types, type, ttl), AVAHI_PUBLISH_ALLOW_MULTIPLE, false},
    };
    for (const row &each : rows) {
        if (each.record == nullptr) return AVAHI_ERR_NO_MEMORY;
        if (flags != 0 && !each.in_update) continue;
        error = avahi_server_add(server_.get(), node.group.get(), node.index, AVAHI_PROTO_INET,
                                 static_cast<AvahiPublishFlags>(each.flags | flags), each.record.get());
        if (error < 0) return error;
    }
    return AVAHI_OK;
}

void avahi_dnssd::on_group(AvahiServer *, AvahiSEntryGroup *, AvahiEntryGroupState state, void *user_data)
{
    const auto *const node = static_cast<published_node *>(user_data);
    switch (state) {
    case AVAHI_ENTRY_GROUP_ESTABLISHED:
        return node->owner->note({event::kind::published, node->number, publish_outcome::established});
    case AVAHI_ENTRY_GROUP_COLLISION:
        return node->owner->note({event::kind::published, node->number, publish_outcome::collision});
    case AVAHI_ENTRY_GROUP_FAILURE:
        return node->owner->note({event::kind::published, node->number, publish_outcome::failed});
    case AVAHI_ENTRY_GROUP_UNCOMMITED:
    case AVAHI_ENTRY_GROUP_REGISTERING: return;
    }
}

bool avahi_dnssd::is_stuck(const group_handle &group, progress &of, int64_t now)
{
    if (!group || avahi_s_entry_group_get_state(group.get()) != AVAHI_ENTRY_GROUP_REGISTERING) {
        of.since_ms = 0;
        return false;
    }
    if (of.since_ms == 0) of.since_ms = now;
    const int64_t due = of.since_ms + of.patience_ms + progress::share_ms * static_cast<int64_t>(published_.size());
    if (now >= due) {
        of.since_ms = 0;
        of.patience_ms *= 2;
        return true;
    }
    progress_due_ = std::min(progress_due_.value_or(due), due);
    return false;
}

void avahi_dnssd::watch_progress(int64_t now)
{
    progress_due_.reset();
    for (auto &[number, node] : published_) {
        if (!is_stuck(node.group, node.probing, now)) continue;
        log_message(2, "%s: '%s' is not announced yet; beginning anew\n", __func__, node.what.place.service.name.c_str());
        node.in_place = false;
        node.stale = look_again_ = true;
    }
    for (auto &[name, node] : addresses_) {
        if (!is_stuck(node.group, node.probing, now)) continue;
        log_message(2, "%s: %s is not announced yet; beginning anew\n", __func__, node.host.c_str());
        node.group.reset();
        look_again_ = true;
    }
}

void avahi_dnssd::begin_unfinished_anew()
{
    const auto is_unfinished = [](const group_handle &group) {
        return group && avahi_s_entry_group_get_state(group.get()) == AVAHI_ENTRY_GROUP_REGISTERING;
    };
    for (auto &[number, node] : published_) {
        if (!is_unfinished(node.group)) continue;
        node.in_place = false;
        node.stale = true;
    }
    for (auto &[name, node] : addresses_) {
        if (is_unfinished(node.group)) node.group.reset();
    }
}

// The address is announced where something is published.
void avahi_dnssd::refresh_addresses()
{
    std::set<std::string> names;
    for (const auto &[number, node] : published_) {
        const std::string name = interfaces::name_of(node.what.place.interface);
        if (!name.empty()) names.insert(name);
    }
    for (const std::string &name : names) addresses_.try_emplace(name, address_node{this, name, "", ""});
    std::erase_if(addresses_, [&names](const auto &each) { return !names.contains(each.first); });
    for (auto &[name, node] : addresses_) refresh_address(node);
}

// While the interface has no address nothing is said on it, so that the record can wait for the next one and be changed then.
void avahi_dnssd::refresh_address(address_node &node)
{
    const int32_t index = interfaces::index_of(node.interface);
    const std::string address = settings_.address.empty() ? interfaces::address_of(node.interface) : settings_.address;
    const std::string host = avahi_server_get_host_name_fqdn(server_.get());
    if (node.group && node.index == index && node.host == host && (node.address == address || address.empty())) return;
    const bool in_place = node.group && node.index == index && node.host == host;
    node.index = index;
    node.host = host;
    node.address = address;
    if (address.empty()) {
        log_message(1, "%s: %s has no IPv4 address; waiting for one\n", __func__, node.interface.c_str());
        return node.group.reset();
    }
    log_message(2, "%s: %s is at %s on %s\n", __func__, host.c_str(), address.c_str(), node.interface.c_str());
    if (in_place && add_address(node, AVAHI_PUBLISH_UPDATE)) return;
    node.group.reset(avahi_s_entry_group_new(server_.get(), on_address, &node));
    if (node.group && add_address(node, 0) && avahi_s_entry_group_commit(node.group.get()) >= 0) return;
    log_message(0, "%s: The address cannot be announced: %s\n", __func__, avahi_strerror(avahi_server_errno(server_.get())));
}

// Without the record for the reverse direction: two units on one address would fight over it for ever.
bool avahi_dnssd::add_address(address_node &node, int flags)
{
    const record_handle record = make_address(node.host, node.address, std::min(settings_.ttl_s, longest_address_ttl));
    return record && avahi_server_add(server_.get(), node.group.get(), node.index, AVAHI_PROTO_INET,
                                      static_cast<AvahiPublishFlags>(AVAHI_PUBLISH_UNIQUE | flags), record.get()) >= 0;
}

void avahi_dnssd::on_address(AvahiServer *, AvahiSEntryGroup *, AvahiEntryGroupState state, void *user_data)
{
    const auto *const node = static_cast<address_node *>(user_data);
    if (state == AVAHI_ENTRY_GROUP_COLLISION) node->owner->host_collided_ = true;
    if (state == AVAHI_ENTRY_GROUP_ESTABLISHED) {
        log_message(4, "%s: %s is announced at %s\n", __func__, node->host.c_str(), node->address.c_str());
    }
}

}  // namespace zel::sdiscd
