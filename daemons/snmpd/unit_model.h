// What the agent knows of the unit: its ports, relays and names as the unit last told them.
//
// A link begins with the unit telling everything. Until that is complete, and after the link is lost, what was known before
// stays and is marked stale; what the unit no longer has goes when it is complete. No sockets here, no clocks.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace zel::snmpd {

enum class table_id : uint8_t { gpi, cough, network, button, led, relay, trigger, handler, source };
inline constexpr size_t table_count = 9;
inline constexpr size_t counted_tables = 6;   // whose rows are numbered from 0 up to a count; the others hold names by id

constexpr size_t at(table_id table) { return static_cast<size_t>(table); }
constexpr bool is_counted(table_id table) { return at(table) < counted_tables; }

// More rows than any unit has. What lies beyond is refused.
inline constexpr uint32_t most_rows = 4096;

enum port_type : int32_t { type_disabled = 0, type_input = 1, type_output = 2 };
enum port_mode : int32_t { mode_latching = 0, mode_momentary = 1 };

// A port or a relay; a relay uses the triggers and the state only.
struct port_row {
    int32_t type = type_disabled;
    int32_t mode = mode_latching;
    int32_t state = 0;                  // 0 or 1
    std::vector<int32_t> handlers;      // ids; at most as many as a message holds
    std::vector<int32_t> triggers;
    std::vector<int32_t> active;
    uint32_t handler_count = 0;         // true counts, which may be higher
    uint32_t trigger_count = 0;
    uint32_t active_count = 0;
    std::string source;
    bool fresh = false;                 // told during the present link

    bool operator==(const port_row &) const = default;
};

struct name_row {
    std::string name;
    bool fresh = false;
};

enum class link_state : uint8_t { away = 1, synchronising = 2, present = 3 };

// Told of every change, after it is made. `index` counts from 0: a port's or relay's number, or an id.
class model_observer {
public:
    virtual ~model_observer() = default;
    virtual void row_appeared(table_id table, uint32_t index) = 0;
    virtual void row_changed(table_id table, uint32_t index) = 0;
    virtual void row_gone(table_id table, uint32_t index) = 0;
    virtual void link_changed(link_state state) = 0;
};

class unit_model {
public:
    // May be null. Borrowed.
    void observe(model_observer *observer) { observer_ = observer; }

    void link_made();
    void link_complete();               // everything was told
    void link_lost();
    link_state link() const { return link_; }

    // False, and nothing changes, for what cannot be: more rows than most_rows, a row beyond the count.
    bool set_count(table_id table, uint32_t count);
    bool set_row(table_id table, uint32_t index, port_row row);
    // An empty name removes.
    bool set_name(table_id table, uint32_t id, std::string name);

    uint32_t count(table_id table) const { return counts_[at(table)]; }
    // Null when there is none. Borrowed until the next change.
    const port_row *row(table_id table, uint32_t index) const;
    const name_row *name(table_id table, uint32_t id) const;
    // Id of a name; -1 if there is none.
    int64_t id_of(table_id table, const std::string &name) const;
    size_t size(table_id table) const;

    // Calls visit(index) in ascending order.
    template <typename visitor>
    void for_each(table_id table, const visitor &visit) const
    {
        if (is_counted(table)) {
            for (const auto &[index, row] : rows_[at(table)]) visit(index);
        } else {
            for (const auto &[index, row] : names_[at(table) - counted_tables]) visit(index);
        }
    }

    // Of a trigger: ports and relays that list it, and those that it holds on. Of a handler: ports that drive it.
    uint32_t listed_by(int32_t trigger) const { return use_of(listed_, trigger); }
    uint32_t active_in(int32_t trigger) const { return use_of(active_, trigger); }
    uint32_t driven_by(int32_t handler) const { return use_of(driven_, handler); }
    // Virtual ports that follow the source of this name.
    uint32_t followers_of(const std::string &source) const;

private:
    using uses = std::map<int32_t, uint32_t>;
    using row_map = std::map<uint32_t, port_row>;
    using name_map = std::map<uint32_t, name_row>;

    static uint32_t use_of(const uses &counted, int32_t id);
    static void count_uses(uses &counted, const std::vector<int32_t> &ids, bool add);
    void count_uses_of(const port_row &row, bool add);
    void tell_uses(const std::vector<int32_t> &before, const std::vector<int32_t> &after);
    name_map &names_of(table_id table) { return names_[at(table) - counted_tables]; }
    const name_map &names_of(table_id table) const { return names_[at(table) - counted_tables]; }
    void remove_row(table_id table, uint32_t index);
    void remove_name(table_id table, uint32_t id);
    void remove_stale(table_id table);
    void mark_stale();
    void change_link(link_state state);

    model_observer *observer_ = nullptr;
    link_state link_ = link_state::away;
    std::array<uint32_t, counted_tables> counts_{};
    std::array<row_map, counted_tables> rows_;
    std::array<name_map, table_count - counted_tables> names_;
    uses listed_, active_, driven_;
};

}  // namespace zel::snmpd
