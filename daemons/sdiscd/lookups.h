// What the clients look for, what the network has of it, and what each client was told.
//
// After every event what a client should see is compared with what it was told, and the difference is sent. A client sees a
// service once, however many interfaces it is on, and never its own.
#pragma once

#include "dnssd.h"
#include "log_budget.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace zel::sdiscd {

// What a client was told of a service.
struct service_report {
    std::string interface;
    bool wants_details = false;
    uint64_t details_sum = 0;   // of the details that it has; 0: none
    bool restored = false;      // told by the daemon's predecessor and not seen since
};

// The way to the clients. False if the client could not be told: it is about to be disconnected.
class report_sender {
public:
    virtual ~report_sender() = default;
    virtual bool send_found(const std::string &client, const service_place &place) = 0;
    virtual bool send_removed(const std::string &client, const service_place &place) = 0;
    virtual bool send_resolved(const std::string &client, const service_place &place, const service_details &details) = 0;
    virtual bool send_resolve_failed(const std::string &client) = 0;
    // Whose announcement that is; "" if no client's.
    virtual std::string publisher_of(const service_id &service) const = 0;
    virtual bool is_own(const std::string &client, const service_id &service) const = 0;
};

class lookups {
public:
    static constexpr size_t most_services = 4096, most_questions_per_client = 16;
    static constexpr int64_t settle_ms = 75;         // a change of a service is told in two steps within this time
    static constexpr int64_t doubt_ms = 10'000;      // for what was there before to be seen again
    static constexpr int64_t first_retry_ms = 500, longest_retry_ms = 10'000;
    static constexpr int64_t retry_share_ms = 15;    // longer for each service, so that many dead ones cost the network little

    using reports = std::map<service_id, service_report>;
    struct seeker {
        std::set<question> questions;
        reports told;
        bool reachable = false;
        int64_t doubt_until_ms = 0;   // of restored reports
    };

    lookups(dnssd &network, report_sender &clients) : network_(network), clients_(clients) {}

    // False if the client asks for too much.
    bool ask(const std::string &client, const question &what);
    void want_details(const std::string &client, const service_id &service);
    // A client that was told `told` by the daemon's predecessor.
    void restore(const std::string &client, reports told, int64_t now);
    // `tell_again`: messages may have been lost.
    void reachable(const std::string &client, bool tell_again);
    void unreachable(const std::string &client);
    void forget(const std::string &client);
    // Something about whose this service is has changed.
    void review(const service_id &service);
    void not_local_any_more(const service_id &service);
    // Places to look at for the daemon's own sake.
    void watch_for(std::set<question> places);

    void found(uint32_t number, const std::string &name, bool local, int64_t now);
    // The service that was lost, if it was known.
    std::optional<service_id> lost(uint32_t number, const std::string &name);
    void browsing_anew(uint32_t number, int64_t now);
    void resolved(uint32_t number, const service_details &details, int64_t now);
    // The service that seems to be gone, if it had been resolved.
    std::optional<service_id> unresolved(uint32_t number, int64_t now);

    // The services that are given up on the way.
    std::set<service_id> tick(int64_t now);
    std::optional<int64_t> next_due() const;

    const std::map<std::string, seeker> &all() const { return seekers_; }
    size_t service_count() const { return services_.size(); }

private:
    struct sighting {
        std::string owner;           // the client that announced it; "": another unit's
        uint32_t resolver = 0;
        std::optional<service_details> known, coming;
        bool failed = false;         // announced, but nobody answers for it
        int64_t settled_ms = 0;      // when `coming` is known; 0: nothing is coming
        int64_t retry_ms = 0;        // when it is resolved anew; 0: not
        int64_t retry_delay_ms = first_retry_ms;
        int64_t doubt_until_ms = 0;  // 0: no doubt
    };
    using sightings = std::map<service_place, sighting>;

    void update_browsers();
    void drop_sightings(const question &of);
    sightings::iterator erase(sightings::iterator which);
    bool is_visible(const std::string &client, const sighting &of, const service_id &service) const;
    const sightings::value_type *best_for(const std::string &client, const seeker &s, const service_id &service) const;
    void reconcile(const std::string &client, seeker &s, const service_id &service);
    template <class call>
    void each_sighting_of(const service_id &service, const call &run);
    void reconcile_all(const std::string &client, seeker &s);
    void tell_gone(const std::string &client, seeker &s, const service_id &service);
    void tell_details(const std::string &client, service_report &told, const sightings::value_type &of);
    void update_resolver(const service_place &place, sighting &of);
    bool is_sought(const service_place &place, const sighting &of) const;
    sightings::value_type *by_resolver(uint32_t number);
    const question *by_browser(uint32_t number) const;
    void become_known(const service_place &place, sighting &of);
    void tell_unresolved(const service_id &service);

    dnssd &network_;
    report_sender &clients_;
    std::map<std::string, seeker> seekers_;
    std::set<question> watched_;
    std::map<question, uint32_t> browsers_;
    sightings services_;
    std::map<uint32_t, service_place> resolvers_;
    uint32_t last_number_ = 0;
    log_budget full_log_;
};

// Of what a follower needs; the host's name is not part of it. Never 0.
uint64_t sum_of(const service_place &place, const service_details &details);

}  // namespace zel::sdiscd
