#include "lookups.h"

#include "zel_debug.h"

#include <algorithm>

namespace zel::sdiscd {
namespace {

void earlier(std::optional<int64_t> &first, int64_t time)
{
    if (time != 0 && (!first || time < *first)) first = time;
}

class checksum {
public:
    void add(const std::string &text)
    {
        for (const char c : text) add(static_cast<unsigned char>(c));
        add(0xffu);   // so that texts do not run into each other
    }
    void add(unsigned byte) { value_ = (value_ ^ byte) * 0x100000001b3u; }
    uint64_t value() const { return value_ != 0 ? value_ : 1; }

private:
    uint64_t value_ = 0xcbf29ce484222325u;   // FNV-1a
};

}  // namespace

uint64_t sum_of(const service_place &place, const service_details &details)
{
    checksum sum;
    for (const std::string *text : {&place.interface, &details.address}) sum.add(*text);
    sum.add(details.port & 0xffu);
    sum.add(unsigned{details.port} >> 8);
    for (const std::string &text : details.txt) sum.add(text);
    return sum.value();
}

bool lookups::ask(const std::string &client, const question &what)
{
    seeker &s = seekers_[client];
    if (!s.questions.contains(what) && s.questions.size() >= most_questions_per_client) return false;
    s.questions.insert(what);
    update_browsers();
    reconcile_all(client, s);
    return true;
}

void lookups::want_details(const std::string &client, const service_id &service)
{
    seeker &s = seekers_[client];
    const auto told = s.told.find(service);
    const auto *const best = best_for(client, s, service);
    if (told == s.told.end() || best == nullptr) {
        (void)clients_.send_resolve_failed(client);
        return;
    }
    told->second.wants_details = true;
    told->second.details_sum = 0;
    reconcile(client, s, service);
}

void lookups::restore(const std::string &client, reports told, int64_t now)
{
    seeker &s = seekers_[client];
    s.told = std::move(told);
    for (auto &[service, report] : s.told) report.restored = report.wants_details = true;
    s.doubt_until_ms = now + doubt_ms;
}

void lookups::reachable(const std::string &client, bool tell_again)
{
    seeker &s = seekers_[client];
    s.reachable = true;
    if (tell_again) {
        // What is still there is announced anew; what is not is told as removed below.
        for (auto &[service, report] : s.told) {
            const auto *const best = best_for(client, s, service);
            if (best == nullptr) continue;
            report.details_sum = 0;
            (void)clients_.send_found(client, best->first);
        }
    }
    reconcile_all(client, s);
}

void lookups::unreachable(const std::string &client)
{
    const auto found = seekers_.find(client);
    if (found != seekers_.end()) found->second.reachable = false;
}

void lookups::forget(const std::string &client)
{
    seekers_.erase(client);
    update_browsers();
    for (auto &[place, of] : services_) {
        if (of.owner == client) of.owner = clients_.publisher_of(place.service);
        update_resolver(place, of);
    }
}

void lookups::watch_for(std::set<question> places)
{
    if (places == watched_) return;
    watched_ = std::move(places);
    update_browsers();
}

void lookups::update_browsers()
{
    std::set<question> wanted = watched_;
    for (const auto &[client, s] : seekers_) wanted.insert(s.questions.begin(), s.questions.end());
    for (auto each = browsers_.begin(); each != browsers_.end();) {
        if (wanted.contains(each->first)) {
            ++each;
            continue;
        }
        network_.stop_browsing(each->second);
        drop_sightings(each->first);
        each = browsers_.erase(each);
    }
    for (const question &what : wanted) {
        if (browsers_.contains(what)) continue;
        browsers_[what] = ++last_number_;
        network_.browse(last_number_, what);
    }
}

// Nobody asked for them any more, so nobody is told.
void lookups::drop_sightings(const question &of)
{
    for (auto each = services_.begin(); each != services_.end();) {
        const bool concerned = each->first.interface == of.interface && each->first.service.type == of.type;
        each = concerned ? erase(each) : std::next(each);
    }
}

lookups::sightings::iterator lookups::erase(sightings::iterator which)
{
    if (which->second.resolver != 0) {
        network_.stop_resolving(which->second.resolver);
        resolvers_.erase(which->second.resolver);
    }
    return services_.erase(which);
}

bool lookups::is_visible(const std::string &client, const sighting &of, const service_id &service) const
{
    return !of.failed && of.owner != client && !clients_.is_own(client, service);
}

// The place that the client is told of: one whose details are known rather than one where they are not.
const lookups::sightings::value_type *lookups::best_for(const std::string &client, const seeker &s, const service_id &service) const
{
    const sightings::value_type *best = nullptr;
    for (const question &asked : s.questions) {
        if (asked.type != service.type) continue;
        const auto found = services_.find({asked.interface, service});
        if (found == services_.end() || !is_visible(client, found->second, service)) continue;
        if (best == nullptr || (!best->second.known && found->second.known)) best = &*found;
    }
    return best;
}

void lookups::reconcile(const std::string &client, seeker &s, const service_id &service)
{
    if (!s.reachable) return;
    const auto *const best = best_for(client, s, service);
    if (best == nullptr) return tell_gone(client, s, service);
    auto told = s.told.find(service);
    if (told == s.told.end()) {
        if (!clients_.send_found(client, best->first)) return;
        told = s.told.emplace(service, service_report{best->first.interface}).first;
    }
    told->second.restored = false;
    tell_details(client, told->second, *best);
}

void lookups::tell_gone(const std::string &client, seeker &s, const service_id &service)
{
    const auto told = s.told.find(service);
    if (told == s.told.end() || told->second.restored) return;
    if (clients_.send_removed(client, {told->second.interface, service})) s.told.erase(told);
}

void lookups::tell_details(const std::string &client, service_report &told, const sightings::value_type &of)
{
    if (!told.wants_details || !of.second.known) return;
    const uint64_t sum = sum_of(of.first, *of.second.known);
    if (sum == told.details_sum) return;
    if (!clients_.send_resolved(client, of.first, *of.second.known)) return;
    told.details_sum = sum;
    told.interface = of.first.interface;
}

void lookups::reconcile_all(const std::string &client, seeker &s)
{
    std::set<service_id> concerned;
    for (const auto &[service, report] : s.told) concerned.insert(service);
    for (auto &[place, of] : services_) {
        concerned.insert(place.service);
        update_resolver(place, of);
    }
    for (const service_id &service : concerned) reconcile(client, s, service);
}

template <class call>
void lookups::each_sighting_of(const service_id &service, const call &run)
{
    for (const auto &[asked, number] : browsers_) {
        if (asked.type != service.type) continue;
        const auto found = services_.find({asked.interface, service});
        if (found != services_.end()) run(found->first, found->second);
    }
}

void lookups::review(const service_id &service)
{
    for (auto &[client, s] : seekers_) reconcile(client, s, service);
    each_sighting_of(service, [this](const service_place &place, sighting &of) { update_resolver(place, of); });
}

void lookups::not_local_any_more(const service_id &service)
{
    each_sighting_of(service, [](const service_place &, sighting &of) { of.owner.clear(); });
    review(service);
}

bool lookups::is_sought(const service_place &place, const sighting &of) const
{
    return std::ranges::any_of(seekers_, [&](const auto &each) {
        return each.second.questions.contains({place.interface, place.service.type}) && of.owner != each.first &&
               !clients_.is_own(each.first, place.service);
    });
}

// One resolver stays open for every service that a client sees: it alone notices a publisher that crashed, or one that came
// back elsewhere before its old records had run out.
void lookups::update_resolver(const service_place &place, sighting &of)
{
    const bool wanted = is_sought(place, of);
    if (wanted && of.resolver == 0 && of.retry_ms == 0) {
        of.resolver = ++last_number_;
        resolvers_[of.resolver] = place;
        network_.resolve(of.resolver, place);
    } else if (!wanted && of.resolver != 0) {
        network_.stop_resolving(of.resolver);
        resolvers_.erase(of.resolver);
        of.resolver = 0;
        of.settled_ms = 0;
    }
}

const question *lookups::by_browser(uint32_t number) const
{
    const auto found = std::ranges::find(browsers_, number, [](const auto &each) { return each.second; });
    return found != browsers_.end() ? &found->first : nullptr;
}

void lookups::found(uint32_t number, const std::string &name, bool local, int64_t now)
{
    const question *const asked = by_browser(number);
    if (asked == nullptr) return;
    const service_place place{asked->interface, {asked->type, name}};
    uint32_t left_out = 0;
    if (!is_service_name(name) || (!services_.contains(place) && services_.size() >= most_services)) {
        if (full_log_.allows(now, left_out)) {
            log_message(1, "%s: '%s' is left out: %s (%u others were, too)\n", __func__, name.c_str(),
                        is_service_name(name) ? "there are too many services" : "no valid name", left_out);
        }
        return;
    }
    sighting &of = services_[place];
    of.doubt_until_ms = 0;
    of.retry_ms = 0;   // who is heard again is asked at once
    of.owner = local ? clients_.publisher_of(place.service) : "";
    review(place.service);
}

std::optional<service_id> lookups::lost(uint32_t number, const std::string &name)
{
    const question *const asked = by_browser(number);
    if (asked == nullptr) return std::nullopt;
    const service_id service{asked->type, name};
    const auto which = services_.find({asked->interface, service});
    if (which == services_.end()) return std::nullopt;
    erase(which);
    review(service);
    return service;
}

void lookups::browsing_anew(uint32_t number, int64_t now)
{
    const question *const asked = by_browser(number);
    if (asked == nullptr) return;
    for (auto &[place, of] : services_) {
        if (place.interface == asked->interface && place.service.type == asked->type) of.doubt_until_ms = now + doubt_ms;
    }
}

lookups::sightings::value_type *lookups::by_resolver(uint32_t number)
{
    const auto place = resolvers_.find(number);
    if (place == resolvers_.end()) return nullptr;
    const auto found = services_.find(place->second);
    return found != services_.end() ? &*found : nullptr;
}

void lookups::resolved(uint32_t number, const service_details &details, int64_t now)
{
    auto *const found = by_resolver(number);
    if (found == nullptr) return;
    found->second.coming = details;
    found->second.settled_ms = now + settle_ms;
}

void lookups::become_known(const service_place &place, sighting &of)
{
    of.known = std::move(of.coming);
    of.coming.reset();
    of.settled_ms = 0;
    of.failed = false;
    of.retry_delay_ms = first_retry_ms;
    review(place.service);
}

std::optional<service_id> lookups::unresolved(uint32_t number, int64_t now)
{
    auto *const found = by_resolver(number);
    if (found == nullptr) return std::nullopt;
    sighting &of = found->second;
    const service_id service = found->first.service;
    const bool was_known = of.known.has_value();
    network_.stop_resolving(number);
    resolvers_.erase(number);
    of.resolver = 0;
    of.known.reset();
    of.coming.reset();
    of.settled_ms = 0;
    of.failed = true;
    of.retry_ms = now + of.retry_delay_ms;
    const auto longest = longest_retry_ms + static_cast<int64_t>(services_.size()) * retry_share_ms;
    of.retry_delay_ms = std::min(2 * of.retry_delay_ms, longest);
    tell_unresolved(service);
    review(service);
    if (!was_known) return std::nullopt;
    log_message(2, "%s: '%s' is announced, but nobody answers for it any more\n", __func__, service.name.c_str());
    return service;
}

// Those that wait for an answer and see it nowhere else.
void lookups::tell_unresolved(const service_id &service)
{
    for (auto &[client, s] : seekers_) {
        const auto told = s.told.find(service);
        if (!s.reachable || told == s.told.end() || !told->second.wants_details || told->second.details_sum != 0) continue;
        if (best_for(client, s, service) == nullptr) (void)clients_.send_resolve_failed(client);
    }
}

std::set<service_id> lookups::tick(int64_t now)
{
    std::set<service_id> gone;
    for (auto each = services_.begin(); each != services_.end();) {
        auto &[place, of] = *each;
        if (of.settled_ms != 0 && of.settled_ms <= now) become_known(place, of);
        if (of.retry_ms != 0 && of.retry_ms <= now) {
            of.retry_ms = 0;
            update_resolver(place, of);
        }
        const bool given_up = of.doubt_until_ms != 0 && of.doubt_until_ms <= now;
        if (given_up) gone.insert(place.service);
        each = given_up ? erase(each) : std::next(each);
    }
    for (const service_id &service : gone) review(service);
    for (auto &[client, s] : seekers_) {
        if (s.doubt_until_ms == 0 || s.doubt_until_ms > now) continue;
        s.doubt_until_ms = 0;
        for (auto &[service, report] : s.told) report.restored = false;
        reconcile_all(client, s);
    }
    return gone;
}

std::optional<int64_t> lookups::next_due() const
{
    std::optional<int64_t> first;
    for (const auto &[place, of] : services_) {
        for (const int64_t time : {of.settled_ms, of.retry_ms, of.doubt_until_ms}) earlier(first, time);
    }
    for (const auto &[client, s] : seekers_) earlier(first, s.doubt_until_ms);
    return first;
}

}  // namespace zel::sdiscd
