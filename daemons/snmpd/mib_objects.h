// The MIB's objects in the agent library: one handler for all tables, one for the scalars.
#pragma once

#include "set_requests.h"
#include "unit_link.h"

#include <array>
#include <cstdint>
#include <functional>
#include <map>

struct netsnmp_tdata_s;
struct netsnmp_tdata_row_s;
struct netsnmp_table_registration_info_s;
struct netsnmp_request_info_s;

namespace zel::snmpd {

// What the scalars show besides the model.
struct agent_figures {
    uint32_t link_since = 0;   // hundredths of a second of the agent's up-time
    uint32_t notifications = 0, merged = 0;
};

class mib_objects {
public:
    mib_objects(const unit_model &model, const unit_link &link, set_requests &sets, const agent_figures &figures,
                bool udp_drives_gpis);
    ~mib_objects();
    mib_objects(const mib_objects &) = delete;
    mib_objects &operator=(const mib_objects &) = delete;

    // Between the agent library's initialisation and its start. False if it refuses (logged).
    bool register_all();
    void add_row(table_id table, uint32_t index);
    void remove_row(table_id table, uint32_t index);

    // For the agent library's handlers, which are plain functions.
    void serve_cell(const set_requests::call &call, const table &of);
    void serve_scalar(const set_requests::call &call) const;

private:
    struct row_entry {
        uint32_t index;
        netsnmp_tdata_row_s *row;
    };

    bool register_table(const table &of);
    bool register_scalars();
    void get_cell(const set_requests::call &call, const set_target &target) const;
    void check_cell(const set_requests::call &call, const set_target &target) const;
    bool find_target(const set_requests::call &call, const table &of, set_target &target) const;

    const unit_model &model_;
    const unit_link &link_;
    set_requests &sets_;
    const agent_figures &figures_;
    const bool udp_drives_gpis_;
    std::array<netsnmp_tdata_s *, table_count> tables_{};
    std::array<netsnmp_table_registration_info_s *, table_count> descriptions_{};   // of the tables, for the agent library
    std::array<std::map<uint32_t, row_entry>, table_count> rows_;   // nodes, whose addresses the library keeps
};

}  // namespace zel::snmpd
