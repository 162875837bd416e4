// The network's side over an mDNS responder of our own, libavahi-core inside this process.
//
// The responder is made anew when it fails or when an interface is to be used that it was not allowed to; whatever was asked
// for is then asked of the new one. Callbacks of avahi only take notes, which settle() and deliver() work off outside of them:
// so avahi's objects are never freed while avahi is at work on them.
#pragma once

#include "dnssd.h"
#include "event_loop.h"
#include "interfaces.h"
#include "log_budget.h"

#include <avahi-core/core.h>
#include <avahi-core/lookup.h>
#include <avahi-core/publish.h>

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace zel::sdiscd {

struct responder_settings {
    std::string host_name;       // proposed; another one is taken when it is not free
    std::string address;         // where the unit is reached, in digits; "": the interface's own address
    std::string interface;       // the unit's
    uint32_t ttl_s = 120;        // of the records: for so long others believe in a unit that crashed
};

class avahi_dnssd final : public dnssd {
public:
    avahi_dnssd(event_loop &loop, responder_settings settings);
    ~avahi_dnssd() override;
    avahi_dnssd(const avahi_dnssd &) = delete;
    avahi_dnssd &operator=(const avahi_dnssd &) = delete;

    void publish(uint32_t number, const announcement &what) override;
    void withdraw(uint32_t number) override;
    void browse(uint32_t number, const question &what) override;
    void stop_browsing(uint32_t number) override;
    void resolve(uint32_t number, const service_place &what) override;
    void stop_resolving(uint32_t number) override;

    // An interface or address may have changed.
    void look_at_interfaces();
    // Does what became due. To be called before each wait.
    void settle(int64_t now);
    std::optional<int64_t> next_due() const;
    // Tells what happened since the last call.
    void deliver(dnssd_listener &listener);
    // Goodbyes for everything that was announced.
    void close();

private:
    template <class released, void (*release)(released *)>
    struct releaser {
        void operator()(released *object) const { release(object); }
    };
    using group_handle = std::unique_ptr<AvahiSEntryGroup, releaser<AvahiSEntryGroup, avahi_s_entry_group_free>>;
    using browser_handle = std::unique_ptr<AvahiSServiceBrowser, releaser<AvahiSServiceBrowser, avahi_s_service_browser_free>>;
    using resolver_handle = std::unique_ptr<AvahiSServiceResolver, releaser<AvahiSServiceResolver, avahi_s_service_resolver_free>>;
    using record_browser_handle = std::unique_ptr<AvahiSRecordBrowser, releaser<AvahiSRecordBrowser, avahi_s_record_browser_free>>;
    using server_handle = std::unique_ptr<AvahiServer, releaser<AvahiServer, avahi_server_free>>;

    // Each lives in a map, so that its place can be given to avahi; `index` is the interface that its object was made for.
    // avahi forgets to go on probing for records whose interface went away meanwhile; such a group is made anew.
    struct progress {
        static constexpr int64_t first_patience_ms = 3'000, share_ms = 50;   // the more there are, the longer it takes
        int64_t since_ms = 0;                    // registering; 0: it is not
        int64_t patience_ms = first_patience_ms; // longer each time, for a network where it takes long
    };
    struct published_node {
        avahi_dnssd *owner;
        uint32_t number;
        announcement what;
        std::string host;         // that the SRV record names
        group_handle group{};
        int32_t index = 0;
        bool stale = true;        // the records are to be made
        bool in_place = false;    // by changing those that are there
        progress probing{};
    };
    struct browse_node {
        avahi_dnssd *owner;
        uint32_t number;
        question what;
        browser_handle browser{};
        int32_t index = 0;
        bool begun = false;
        int64_t ask_again_ms = 0;   // when the network is asked anew
        int64_t missing_until_ms = 0;   // something was lost not long before
    };
    struct resolve_node {
        avahi_dnssd *owner;
        uint32_t number;
        service_place what;
        resolver_handle resolver{};
        int32_t index = 0;
        bool loopback = false;
        service_details said{};                 // by the resolver
        record_browser_handle host_watch{};
        std::string watched_host{};
        std::vector<std::string> addresses{};   // of that host, the latest last
    };
    struct address_node {
        avahi_dnssd *owner;
        std::string interface, address, host;
        group_handle group{};
        int32_t index = 0;
        progress probing{};
    };
    struct event {
        enum class kind { published, found, lost, anew, resolved, unresolved } what;
        uint32_t number;
        publish_outcome outcome = publish_outcome::failed;
        std::string name{};
        bool local = false;
        service_details details{};
    };

    // avahi_server.cpp
    void make_server(int64_t now);
    void drop_server();
    std::set<std::string> needed_interfaces() const;
    void take_other_host_name();
    void note(event what) noexcept;

    // avahi_publishing.cpp
    void watch_progress(int64_t now);
    void begin_unfinished_anew();
    bool is_stuck(const group_handle &group, progress &of, int64_t now);
    void refresh_addresses();
    void refresh_address(address_node &node);
    bool add_address(address_node &node, int flags);
    void refresh_publication(published_node &node);
    int add_records(published_node &node, int flags);
    void fail(published_node &node, int error);

    // avahi_browsing.cpp
    void refresh_browser(browse_node &node);
    void ask_again(browse_node &node, int64_t now);
    void note_loss(browse_node &node, const char *name);
    void refresh_resolver(resolve_node &node);
    void watch_host(resolve_node &node);
    void tell_resolved(const resolve_node &node);

    static void on_server(AvahiServer *server, AvahiServerState state, void *user_data);
    static void on_group(AvahiServer *server, AvahiSEntryGroup *group, AvahiEntryGroupState state, void *user_data);
    static void on_address(AvahiServer *server, AvahiSEntryGroup *group, AvahiEntryGroupState state, void *user_data);
    static void on_browse(AvahiSServiceBrowser *browser, AvahiIfIndex interface, AvahiProtocol protocol, AvahiBrowserEvent event,
                          const char *name, const char *type, const char *domain, AvahiLookupResultFlags flags, void *user_data);
    static void on_resolve(AvahiSServiceResolver *resolver, AvahiIfIndex interface, AvahiProtocol protocol,
                           AvahiResolverEvent event, const char *name, const char *type, const char *domain,
                           const char *host_name, const AvahiAddress *address, uint16_t port, AvahiStringList *txt,
                           AvahiLookupResultFlags flags, void *user_data);

    static void on_host_address(AvahiSRecordBrowser *browser, AvahiIfIndex interface, AvahiProtocol protocol, AvahiBrowserEvent event,
                                AvahiRecord *record, AvahiLookupResultFlags flags, void *user_data);

    event_loop &loop_;
    const responder_settings settings_;
    std::string host_name_;
    server_handle server_;
    std::set<std::string> allowed_;
    bool failed_ = false;            // the responder is to be made anew
    bool host_collided_ = false;
    bool look_again_ = true;
    bool interfaces_changed_ = false;
    std::optional<int64_t> progress_due_;
    bool complained_ = false;
    int64_t retry_ms_ = 0;
    std::map<uint32_t, published_node> published_;
    std::map<uint32_t, browse_node> browsed_;
    std::map<uint32_t, resolve_node> resolved_;
    std::map<std::string, address_node> addresses_;
    std::deque<event> events_;
    log_budget hostile_log_;
};

}  // namespace zel::sdiscd
