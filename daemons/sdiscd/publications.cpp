#include "publications.h"

#include "zel_debug.h"

#include <utility>

namespace zel::sdiscd {
namespace {

bool is_announced(const publication &of)
{
    return of.at == standing::registering || of.at == standing::established;
}

bool is_to_be_retried(const publication &of)
{
    return of.at == standing::collided || of.at == standing::failed;
}

}  // namespace

void publications::announce(publication &of)
{
    if (of.number == 0) of.number = ++last_number_;
    of.at = standing::registering;
    network_.publish(of.number, of.what);
}

void publications::withdraw(publication &of)
{
    if (of.at != standing::held) network_.withdraw(of.number);
    of.number = 0;   // what is still told about the old one concerns nobody
    of.at = standing::held;
}

bool publications::request(const std::string &client, announcement what, bool announce_now)
{
    of_client &list = clients_[client];
    const service_id service = what.place.service;
    const auto known = list.find(service);
    if (known == list.end() && list.size() >= most_per_client) return false;
    publication &of = list[service];
    const bool same = known != list.end() && of.what == what;
    const bool moved = known != list.end() && of.what.place.interface != what.place.interface;
    of.confirmed = true;
    if (moved) withdraw(of);
    of.what = std::move(what);
    if (same && of.at == standing::collided) changed_(client, of);   // a client that asks anew is answered anew
    if (announce_now && (!same || of.at == standing::held)) announce(of);
    return true;
}

bool publications::take_back(const std::string &client, const std::string &name)
{
    const auto found = clients_.find(client);
    if (found == clients_.end()) return false;
    bool any = false;
    for (auto each = found->second.begin(); each != found->second.end();) {
        const auto which = each++;
        if (which->first.name != name) continue;
        drop(found->second, which);
        any = true;
    }
    return any;
}

void publications::drop(of_client &list, of_client::iterator which)
{
    const service_id service = which->first;
    const bool had_the_name = is_announced(which->second);
    withdraw(which->second);
    list.erase(which);
    if (had_the_name) name_is_free(service);
}

void publications::hold(const std::string &client)
{
    const auto found = clients_.find(client);
    if (found == clients_.end()) return;
    for (auto &[service, of] : found->second) {
        const bool had_the_name = is_announced(of);
        withdraw(of);
        if (had_the_name) name_is_free(service);
    }
}

void publications::announce_all(const std::string &client)
{
    const auto found = clients_.find(client);
    if (found == clients_.end()) return;
    for (auto &[service, of] : found->second) {
        of.confirmed = true;
        if (of.at == standing::held) announce(of);
    }
}

void publications::doubt(const std::string &client)
{
    const auto found = clients_.find(client);
    if (found == clients_.end()) return;
    for (auto &[service, of] : found->second) of.confirmed = false;
}

void publications::drop_doubted(const std::string &client)
{
    const auto found = clients_.find(client);
    if (found == clients_.end()) return;
    for (auto each = found->second.begin(); each != found->second.end();) {
        const auto which = each++;
        if (which->second.confirmed) continue;
        log_message(2, "%s: '%s' did not ask for '%s' again; it is withdrawn\n", __func__, client.c_str(), which->first.name.c_str());
        drop(found->second, which);
    }
}

void publications::forget(const std::string &client)
{
    hold(client);
    clients_.erase(client);
}

publication *publications::find(uint32_t number, std::string &client)
{
    if (number == 0) return nullptr;
    for (auto &[name, list] : clients_) {
        for (auto &[service, of] : list) {
            if (of.number != number) continue;
            client = name;
            return &of;
        }
    }
    return nullptr;
}

void publications::outcome(uint32_t number, publish_outcome result, int64_t now)
{
    std::string client;
    publication *const of = find(number, client);
    if (of == nullptr) return;
    switch (result) {
    case publish_outcome::established:
        of->at = standing::established;
        of->complained = false;
        return changed_(client, *of);
    case publish_outcome::failed:
        of->at = standing::failed;
        of->retry_ms = now + failure_retry_ms;
        return;
    case publish_outcome::collision:
        of->at = standing::collided;
        of->retry_ms = now + collision_retry_ms;
        if (!std::exchange(of->complained, true)) changed_(client, *of);
    }
}

void publications::name_is_free(const service_id &service)
{
    for (auto &[client, list] : clients_) {
        const auto found = list.find(service);
        if (found == list.end() || found->second.at != standing::collided) continue;
        log_message(2, "%s: Asking for the name '%s' again\n", __func__, service.name.c_str());
        announce(found->second);
    }
}

void publications::tick(int64_t now)
{
    for (auto &[client, list] : clients_) {
        for (auto &[service, of] : list) {
            if (is_to_be_retried(of) && of.retry_ms <= now) announce(of);
        }
    }
}

std::optional<int64_t> publications::next_due() const
{
    std::optional<int64_t> first;
    for (const auto &[client, list] : clients_) {
        for (const auto &[service, of] : list) {
            if (is_to_be_retried(of) && (!first || of.retry_ms < *first)) first = of.retry_ms;
        }
    }
    return first;
}

bool publications::is_own(const std::string &client, const service_id &service) const
{
    const auto list = clients_.find(client);
    if (list == clients_.end()) return false;
    const auto found = list->second.find(service);
    return found != list->second.end() && found->second.at == standing::established;
}

std::string publications::owner_of(const service_id &service) const
{
    for (const auto &[client, list] : clients_) {
        const auto found = list.find(service);
        if (found != list.end() && is_announced(found->second)) return client;
    }
    return "";
}

std::set<question> publications::disputed() const
{
    std::set<question> places;
    for (const auto &[client, list] : clients_) {
        for (const auto &[service, of] : list) {
            if (of.at == standing::collided) places.insert({of.what.place.interface, service.type});
        }
    }
    return places;
}

}  // namespace zel::sdiscd
