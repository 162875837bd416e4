// SETs on their way: each waits for the unit's reply, within a time limit, and can be put back while it is not committed.
#pragma once

#include "tables.h"
#include "unit_link.h"

#include <cstdint>
#include <map>
#include <optional>

struct netsnmp_mib_handler_s;
struct netsnmp_handler_registration_s;
struct netsnmp_agent_request_info_s;
struct netsnmp_request_info_s;
struct netsnmp_delegated_cache_s;

namespace zel::snmpd {

// What a SET is about. Numbers, no pointers to rows: a row may go while a SET waits.
struct set_target {
    const table *of;
    const column *where;
    uint32_t index;
};

class set_requests {
public:
    static constexpr int64_t patience_ms = 800;   // a manager asks again after a second; the agent serves nobody meanwhile

    struct counters {
        uint32_t sent = 0, failed = 0;
    };
    struct call {
        netsnmp_mib_handler_s *handler;
        netsnmp_handler_registration_s *registration;
        netsnmp_agent_request_info_s *info;
        netsnmp_request_info_s *request;
    };

    set_requests(unit_model &model, unit_link &link) : model_(model), link_(link) {}
    ~set_requests();
    set_requests(const set_requests &) = delete;
    set_requests &operator=(const set_requests &) = delete;

    // Sends the request of a SET and lets its answer wait. The value was checked.
    void start(const call &from, const set_target &target, const cell &value);
    // Puts back what start() changed, if it did.
    void undo(const call &from, const set_target &target);

    void take_reply(int32_t tag, int32_t result);
    void link_lost();
    void expire(int64_t now_ms);
    std::optional<int64_t> next_due() const;
    void set_clock(int64_t now_ms) { now_ms_ = now_ms; }
    const counters &counted() const { return counted_; }

private:
    struct waiting {
        netsnmp_delegated_cache_s *cache;   // null: answered already for want of time
        set_target target;
        cell value, before;
        int64_t due_ms;
        bool undoing;
    };

    void send(const call &from, const set_target &target, const cell &value, bool undoing);
    void answer(waiting &entry, int error);
    void apply(const set_target &target, const cell &value);
    static int failure_of(bool undoing);

    unit_model &model_;
    unit_link &link_;
    std::map<int32_t, waiting> waiting_;
    int64_t now_ms_ = 0;
    counters counted_;
};

}  // namespace zel::snmpd
