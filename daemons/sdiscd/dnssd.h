// The network's side as the service logic sees it: what it may ask for, and what it is then told.
//
// Interfaces are named by texts: a name, or "#7" for one that was given by its index and does not exist at present. An
// interface that does not exist (any more) is no error: what was asked for there begins when it comes.
#pragma once

#include "service.h"

#include <cstdint>
#include <string>

namespace zel::sdiscd {

struct question {
    std::string interface, type;
    auto operator<=>(const question &) const = default;
};

// A service where it was seen.
struct service_place {
    std::string interface;
    service_id service;
    auto operator<=>(const service_place &) const = default;
};

struct announcement {
    service_place place;
    uint16_t port = 0;
    std::vector<std::string> txt;
    bool operator==(const announcement &) const = default;
};

// What is asked for carries a number, under which it is answered and ended. Answers come later, never from inside a call.
class dnssd {
public:
    virtual ~dnssd() = default;
    // Announces; the same number again changes what is announced in place.
    virtual void publish(uint32_t number, const announcement &what) = 0;
    virtual void withdraw(uint32_t number) = 0;
    virtual void browse(uint32_t number, const question &what) = 0;
    virtual void stop_browsing(uint32_t number) = 0;
    virtual void resolve(uint32_t number, const service_place &what) = 0;
    virtual void stop_resolving(uint32_t number) = 0;
};

enum class publish_outcome { established, collision, failed };

class dnssd_listener {
public:
    virtual ~dnssd_listener() = default;
    virtual void published(uint32_t number, publish_outcome outcome) = 0;
    // `local`: announced by this daemon itself.
    virtual void found(uint32_t number, const std::string &name, bool local) = 0;
    virtual void lost(uint32_t number, const std::string &name) = 0;
    // What was found so far will be found again, as far as it is still there.
    virtual void browsing_anew(uint32_t number) = 0;
    // Also each time that something of it changes. May come twice for one change, first with part of it.
    virtual void resolved(uint32_t number, const service_details &details) = 0;
    // Not to be found, or not any more; the resolver is spent.
    virtual void unresolved(uint32_t number) = 0;
};

}  // namespace zel::sdiscd
