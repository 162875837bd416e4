// The agent: the unit's model kept by the link, served by the agent library, in one loop.
#pragma once

#include "agent_library.h"
#include "mib_objects.h"
#include "notifications.h"
#include "set_requests.h"
#include "unit_link.h"
#include "unit_model.h"

#include "common/unique_fd.h"

#include <sys/time.h>

#include <string>

namespace zel::snmpd {

struct agent_settings {
    library_settings library;
    std::string server;               // name of the link's socket
    bool udp_drives_gpis = false;
};

class agent final : private model_observer {
public:
    explicit agent(agent_settings settings);

    // False when it cannot run (logged).
    bool start();
    // Until SIGINT or SIGTERM.
    void run();

private:
    void row_appeared(table_id table, uint32_t index) override;
    void row_changed(table_id table, uint32_t index) override;
    void row_gone(table_id table, uint32_t index) override;
    void link_changed(link_state state) override;

    bool open_signals();
    void turn();
    timeval time_to_wait(int64_t now_ms, bool library_waits, const timeval &library_wait) const;
    void take_signals();
    void serve(fd_set *readable, bool something_ready);

    const agent_settings settings_;
    unit_model model_;
    unit_link link_{model_};
    set_requests sets_{model_, link_};
    agent_figures figures_;
    notifications notifications_{model_};
    mib_objects objects_;
    agent_library library_;           // ends first: its handlers point at all of the above
    unique_fd signals_;
    bool ending_ = false;
};

}  // namespace zel::snmpd
