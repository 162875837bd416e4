// The routing grid as the library's two web endpoints give and change it. Called in this process, so that what the command line
// does goes the same way as what a browser does.
#pragma once

#include "common/json_reading.h"
#include "port_names.h"

#include <optional>
#include <string>
#include <vector>

namespace zel {

struct grid_outcome {
    bool ok = false;
    std::string text;  // why not; or a remark
};

struct port_view {
    port_type type = port_type::disabled;
    bool state = false;
    int input_mode = -1;      // 0 latching, 1 momentary, -1 none
    std::string source;       // a virtual input's: "-" for none
    bool source_valid = false;
};

struct relay_view {
    bool state = false;
    bool on_grid = false;
};

struct port_change {
    port_type type = port_type::disabled;
    std::optional<int> input_mode;
    std::optional<std::string> source;
};

class grid {
public:
    explicit grid(const port_map &ports) : ports_(ports) {}

    // The grid document; null if the library refuses it.
    json_handle document() const;
    // One entry per port of the library's port table.
    std::vector<port_view> port_views() const;
    // One entry per relay, in order.
    std::vector<relay_view> relay_views(size_t count) const;
    // The connections of a grid document, each with the names of its ends added: "input_name", "output_name".
    void name_connections(json_t *document) const;

    // Ends are named as in port_names.h, or those of triggers (inputs) and handlers (outputs).
    grid_outcome connect(const std::string &input, const std::string &output, bool invert);
    grid_outcome disconnect(const std::string &input, const std::string &output);
    grid_outcome set_port(port_ref port, const port_change &change);

private:
    struct item {
        std::string class_word;  // as the endpoints spell it
        int32_t id = 0;
        std::optional<port_ref> port;
    };
    struct link {
        item input, output;
    };
    std::optional<link> find_link(const std::string &input, const std::string &output, grid_outcome &outcome) const;
    std::optional<item> find_input(const std::string &name) const;
    std::optional<item> find_output(const std::string &name) const;
    std::optional<item> find_port(const std::string &name) const;
    const char *refusal_of_types(const link &wanted) const;
    std::string end_name(const json_t *connection, bool input) const;
    void put_on_grid(const link &wanted) const;
    bool knows_source(const std::string &name) const;
    // 0 or 1 for the invert of a connection that stands, else nothing.
    std::optional<bool> invert_of(const link &wanted) const;

    const port_map &ports_;
};

}  // namespace zel
