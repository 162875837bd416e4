// The running unit: its parts, their start in order, the host's loop, and the end.
#pragma once

#include "change_feed.h"
#include "command_runner.h"
#include "companions.h"
#include "unit_requests.h"
#include "control_socket.h"
#include "ember_provider.h"
#include "grid.h"
#include "host_functions.h"
#include "link_watch.h"
#include "port_names.h"
#include "pulses.h"
#include "reactor.h"
#include "settings.h"
#include "udp_commands.h"
#include "unit_claim.h"
#include "unit_parts.h"
#include "web_pages.h"

#include "zel_net.h"

#include <memory>
#include <optional>

namespace zel {

class unit {
public:
    // `with_daemons`: the discovery daemon and the SNMP agent are started beside it.
    explicit unit(unit_settings settings, bool with_daemons = false);
    ~unit();
    unit(const unit &) = delete;
    unit &operator=(const unit &) = delete;

    // False if the unit cannot run; the cause is then in the log.
    bool start();
    // Until SIGINT or SIGTERM.
    void run();

private:
    bool claim_root();
    bool open_loop();
    bool open_control();
    bool has_tree() const;
    bool start_library();
    void start_inputs();
    void take_signals();
    void turn();
    void process(fd_set *readable, fd_set *exceptional);
    std::optional<std::chrono::milliseconds> next_due() const;
    void discard_gpi_edges(const fd_set *exceptional);

    unit_settings settings_;
    const bool with_daemons_;
    port_map ports_{settings_};
    change_feed feed_{ports_};
    grid wiring_{ports_};
    pulses presses_;
    command_runner commands_;
    companions companions_;
    host_functions functions_{settings_, ports_, feed_, commands_};
    unit_claim claim_;
    reactor reactor_;
    unique_fd signals_;
    link_watch link_;
    udp_commands udp_{feed_};
    ember_provider ember_;
    struct net_release {
        void operator()(zel_net_config_t *config) const { zel_net_config_free(config); }
    };
    std::unique_ptr<zel_net_config_t, net_release> net_;
    unit_parts parts_{settings_, ports_, link_, wiring_, presses_, feed_};
    unit_requests requests_{parts_};
    control_socket control_;
    web_pages web_{parts_};
    bool library_started_ = false;
    bool ending_ = false;
};

}  // namespace zel
