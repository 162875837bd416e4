// What the clients want announced, and how far each announcement is.
//
// A request stands until its client takes it back or is forgotten, whatever becomes of the announcement: a name that another
// host holds is asked for again when that host gives it up, under the same name, because followers know it by this name.
#pragma once

#include "dnssd.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace zel::sdiscd {

enum class standing {
    held,         // its client is away: not announced
    registering,
    established,
    collided,     // another one has the name
    failed        // refused by the responder
};

struct publication {
    announcement what;
    uint32_t number = 0;
    standing at = standing::held;
    bool confirmed = true;     // asked for by the process that the client is at present
    bool complained = false;   // the client knows of the present collision
    int64_t retry_ms = 0;      // when a name that collided or failed is tried again at the latest
};

class publications {
public:
    static constexpr size_t most_per_client = 1024;
    static constexpr int64_t collision_retry_ms = 120'000, failure_retry_ms = 30'000;

    using report = std::function<void(const std::string &client, const publication &of)>;
    using of_client = std::map<service_id, publication>;

    // `changed` is called when a publication became established, and once when it collided.
    publications(dnssd &network, report changed) : network_(network), changed_(std::move(changed)) {}

    // False if the client has too many. `announce`: the client is here; else the request is held.
    bool request(const std::string &client, announcement what, bool announce);
    // Every publication of that name. False if there is none.
    bool take_back(const std::string &client, const std::string &name);
    // The client is away; its requests are kept.
    void hold(const std::string &client);
    // The client is here again, as the same process.
    void announce_all(const std::string &client);
    // The client is here again as a new process: what that does not ask for is dropped later.
    void doubt(const std::string &client);
    void drop_doubted(const std::string &client);
    void forget(const std::string &client);

    void outcome(uint32_t number, publish_outcome result, int64_t now);
    // The name was given up on the network.
    void name_is_free(const service_id &service);
    void tick(int64_t now);
    std::optional<int64_t> next_due() const;

    // Whether the service of that name is this client's own at present.
    bool is_own(const std::string &client, const service_id &service) const;
    // The client whose announcement of that name stands or is coming; "" if there is none.
    std::string owner_of(const service_id &service) const;
    // Where and after what collided requests must be watched for.
    std::set<question> disputed() const;
    const std::map<std::string, of_client> &all() const { return clients_; }

private:
    void announce(publication &of);
    void withdraw(publication &of);
    void drop(of_client &list, of_client::iterator which);
    publication *find(uint32_t number, std::string &client);

    dnssd &network_;
    const report changed_;
    std::map<std::string, of_client> clients_;
    uint32_t last_number_ = 0;
};

}  // namespace zel::sdiscd
