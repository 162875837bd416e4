#include "discovery.h"

#include "zel_debug.h"

#include <algorithm>
#include <utility>

namespace zel::sdiscd {

discovery::discovery(dnssd &network, surroundings &around)
    : around_(around),
      publications_(network, [this](const std::string &name, const publication &of) { publication_changed(name, of); }),
      lookups_(network, *this)
{
}

void discovery::client_connected(uint32_t link, const std::string &name, const process_identity &process, int64_t now)
{
    now_ = now;
    ++request_changes_;
    const auto found = clients_.find(name);
    if (found == clients_.end()) {
        make_room();
        known_client &fresh = clients_[name];
        fresh.process = process;
        fresh.link = link;
        return lookups_.reachable(name, false);
    }
    known_client &known = found->second;
    known.link = link;
    known.gone_ms = 0;
    known.missed = false;
    if (known.process == process) return welcome_back(name, known);
    welcome_successor(name, known, process);
}

// The same process: it will not ask again, so all that it asked for stands.
void discovery::welcome_back(const std::string &name, known_client &known)
{
    log_message(2, "%s: '%s' is back\n", __func__, name.c_str());
    publications_.announce_all(name);
    lookups_.reachable(name, !std::exchange(known.restored, false));
}

void discovery::welcome_successor(const std::string &name, known_client &known, const process_identity &process)
{
    log_message(2, "%s: '%s' is back as process %d\n", __func__, name.c_str(), process.pid);
    known.process = process;
    known.restored = false;
    known.renewed_ms = now_ + renewal_ms;
    publications_.doubt(name);
    lookups_.forget(name);
    lookups_.reachable(name, false);
}

void discovery::client_disconnected(uint32_t link, int64_t now)
{
    now_ = now;
    auto *const found = by_link(link);
    if (found == nullptr) return;
    found->second.link = 0;
    found->second.gone_ms = now + grace_ms;
    lookups_.unreachable(found->first);
}

// Clients that are not connected make room for one that is; the server lets in fewer than are remembered.
void discovery::make_room()
{
    if (clients_.size() < most_clients) return;
    const auto away = std::ranges::find(clients_, 0u, [](const auto &each) { return each.second.link; });
    if (away == clients_.end()) return;
    log_message(1, "%s: There are too many clients to remember '%s'\n", __func__, away->first.c_str());
    publications_.forget(away->first);
    lookups_.forget(away->first);
    clients_.erase(away);
}

discovery::client_table::value_type *discovery::by_link(uint32_t link)
{
    const auto found = std::ranges::find(clients_, link, [](const auto &each) { return each.second.link; });
    return link != 0 && found != clients_.end() ? &*found : nullptr;
}

// The client stays away. What it published is withdrawn; what it asked for is remembered while its process may return.
void discovery::see_off(client_table::iterator which)
{
    const std::string name = which->first;
    if (around_.is_running(which->second.process)) {
        if (!std::exchange(which->second.missed, true)) {
            log_message(1, "%s: '%s' stays away, though its process runs; its services are withdrawn until it returns\n", __func__,
                        name.c_str());
        }
        which->second.gone_ms = now_ + look_again_ms;
        return publications_.hold(name);
    }
    log_message(2, "%s: '%s' is gone\n", __func__, name.c_str());
    ++request_changes_;
    publications_.forget(name);
    lookups_.forget(name);
    clients_.erase(which);
}

void discovery::tick(int64_t now)
{
    now_ = now;
    for (auto each = clients_.begin(); each != clients_.end();) {
        const auto which = each++;
        known_client &one = which->second;
        if (one.renewed_ms != 0 && one.renewed_ms <= now) {
            one.renewed_ms = 0;
            ++request_changes_;
            publications_.drop_doubted(which->first);
        }
        if (one.gone_ms != 0 && one.gone_ms <= now) see_off(which);
    }
    for (const service_id &service : lookups_.tick(now)) publications_.name_is_free(service);
    publications_.tick(now);
    watch_disputes();
}

std::optional<int64_t> discovery::next_due() const
{
    std::optional<int64_t> first;
    const auto earlier = [&first](std::optional<int64_t> time) {
        if (time && *time != 0 && (!first || *time < *first)) first = time;
    };
    for (const auto &[name, one] : clients_) {
        earlier(one.gone_ms);
        earlier(one.renewed_ms);
    }
    earlier(publications_.next_due());
    earlier(lookups_.next_due());
    return first;
}

void discovery::published(uint32_t number, publish_outcome outcome)
{
    publications_.outcome(number, outcome, now_);
}

void discovery::publication_changed(const std::string &name, const publication &of)
{
    const service_id &service = of.what.place.service;
    if (of.at == standing::established) return lookups_.review(service);
    log_message(1, "%s: Another unit has the name '%s', which '%s' asks for; waiting until it is given up\n", __func__,
                service.name.c_str(), name.c_str());
    const browse_record record = make_browse_record(around_.interface_index(of.what.place.interface), service);
    (void)send(name, name_collision, bytes_of(record));
    lookups_.not_local_any_more(service);
}

// A name that is in dispute is watched also where no client looks for it.
void discovery::watch_disputes()
{
    lookups_.watch_for(publications_.disputed());
}

void discovery::found(uint32_t number, const std::string &name, bool local)
{
    lookups_.found(number, name, local, now_);
}

void discovery::lost(uint32_t number, const std::string &name)
{
    const auto service = lookups_.lost(number, name);
    if (service) publications_.name_is_free(*service);
}

void discovery::browsing_anew(uint32_t number)
{
    lookups_.browsing_anew(number, now_);
}

void discovery::resolved(uint32_t number, const service_details &details)
{
    lookups_.resolved(number, details, now_);
}

void discovery::unresolved(uint32_t number)
{
    const auto service = lookups_.unresolved(number, now_);
    if (service) publications_.name_is_free(*service);
}

void discovery::restore(std::vector<kept_client> kept_ones, int64_t now)
{
    now_ = now;
    for (kept_client &each : kept_ones) {
        if (clients_.size() >= most_clients) break;
        known_client &one = clients_[each.name];
        one.process = each.process;
        one.restored = true;
        one.gone_ms = now + return_ms;
        for (const question &asked : each.questions) (void)lookups_.ask(each.name, asked);
        lookups_.restore(each.name, std::move(each.told), now);
        for (announcement &what : each.announcements) (void)publications_.request(each.name, std::move(what), false);
    }
}

std::vector<kept_client> discovery::kept() const
{
    std::vector<kept_client> all;
    for (const auto &[name, one] : clients_) {
        kept_client &each = all.emplace_back(kept_client{name, one.process, {}, {}, {}});
        if (const auto seeker = lookups_.all().find(name); seeker != lookups_.all().end()) {
            each.questions.assign(seeker->second.questions.begin(), seeker->second.questions.end());
            each.told = seeker->second.told;
        }
        if (const auto list = publications_.all().find(name); list != publications_.all().end()) {
            for (const auto &[service, of] : list->second) each.announcements.push_back(of.what);
        }
    }
    return all;
}

}  // namespace zel::sdiscd
