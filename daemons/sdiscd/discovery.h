// The daemon's logic: clients come and go, ask and are told; the network answers. It does no input or output of its own.
//
// A client is known by its name. What it asked for outlives its link: it stands for a grace period, is announced no longer
// when the client stays away, and is remembered for as long as the client's process lives, because a client asks only once.
// A new process under the same name begins anew, but what it asks for again is not interrupted.
#pragma once

#include "lookups.h"
#include "messages.h"
#include "process_identity.h"
#include "publications.h"

#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zel::sdiscd {

// What the logic needs of the machine.
class surroundings {
public:
    virtual ~surroundings() = default;
    // False if the client of this link could not be told.
    virtual bool send(uint32_t link, message_type type, std::span<const uint8_t> record) = 0;
    virtual std::string interface_reference(int32_t index) = 0;
    virtual int32_t interface_index(const std::string &reference) = 0;
    virtual bool is_running(const process_identity &process) = 0;
};

// What is kept over the daemon's end, however it ends.
struct kept_client {
    std::string name;
    process_identity process;
    std::vector<question> questions;
    std::vector<announcement> announcements;
    lookups::reports told;
};

class discovery final : public dnssd_listener, private report_sender {
public:
    static constexpr int64_t grace_ms = 3'000;      // for a client that went to return
    static constexpr int64_t return_ms = 5'000;     // for the clients of the daemon's predecessor to return
    static constexpr int64_t renewal_ms = 5'000;    // for a new process to ask for what the one before it had asked for
    static constexpr int64_t look_again_ms = 60'000;   // at the process of a client that stays away
    static constexpr size_t most_clients = 64;      // remembered, connected or not

    discovery(dnssd &network, surroundings &around);

    void restore(std::vector<kept_client> kept_ones, int64_t now);
    std::vector<kept_client> kept() const;
    // Counts changes: of what clients asked for, and of what they were told.
    uint64_t request_changes() const { return request_changes_; }
    uint64_t report_changes() const { return report_changes_; }

    // Links have numbers other than 0.
    void client_connected(uint32_t link, const std::string &name, const process_identity &process, int64_t now);
    void client_disconnected(uint32_t link, int64_t now);
    void message(uint32_t link, uint8_t type, std::string_view payload, int64_t now);

    void published(uint32_t number, publish_outcome outcome) override;
    void found(uint32_t number, const std::string &name, bool local) override;
    void lost(uint32_t number, const std::string &name) override;
    void browsing_anew(uint32_t number) override;
    void resolved(uint32_t number, const service_details &details) override;
    void unresolved(uint32_t number) override;

    // Does what is due. The time of events between two calls is that of the last call.
    void tick(int64_t now);
    std::optional<int64_t> next_due() const;

    size_t client_count() const { return clients_.size(); }

private:
    struct known_client {
        process_identity process;
        uint32_t link = 0;           // 0: not connected
        bool restored = false;       // not seen since the daemon's start
        bool missed = false;         // its process runs, but it stayed away
        int64_t gone_ms = 0;         // when it is taken for gone unless its process runs; 0: it is here
        int64_t renewed_ms = 0;      // when what it has not asked for again is dropped; 0: no doubt
    };
    using client_table = std::map<std::string, known_client>;
    struct request_row {
        message_type type;
        const char *what;
        bool (discovery::*take)(const std::string &client, std::string_view payload, std::string &problem);
    };
    static const request_row requests[];

    bool take_browse(const std::string &client, std::string_view payload, std::string &problem);
    bool take_resolve(const std::string &client, std::string_view payload, std::string &problem);
    bool take_publish(const std::string &client, std::string_view payload, std::string &problem);
    bool take_unpublish(const std::string &client, std::string_view payload, std::string &problem);

    client_table::value_type *by_link(uint32_t link);
    void welcome_back(const std::string &name, known_client &known);
    void welcome_successor(const std::string &name, known_client &known, const process_identity &process);
    void make_room();
    void see_off(client_table::iterator which);
    void publication_changed(const std::string &name, const publication &of);
    void watch_disputes();

    bool send(const std::string &client, message_type type, std::span<const uint8_t> record);
    bool send_found(const std::string &client, const service_place &place) override;
    bool send_removed(const std::string &client, const service_place &place) override;
    bool send_resolved(const std::string &client, const service_place &place, const service_details &details) override;
    bool send_resolve_failed(const std::string &client) override;
    std::string publisher_of(const service_id &service) const override;
    bool is_own(const std::string &client, const service_id &service) const override;

    surroundings &around_;
    client_table clients_;
    publications publications_;
    lookups lookups_;
    int64_t now_ = 0;
    uint64_t request_changes_ = 0, report_changes_ = 0;
    log_budget refusals_;
};

}  // namespace zel::sdiscd
