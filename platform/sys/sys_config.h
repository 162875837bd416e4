// What the unit's configuration says about pins and about the unit itself.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>

namespace zel {

inline constexpr const char *default_product_id = "ZEL-SOFT";

enum class pin_backend { sim, kernel, unknown };

// A kernel line by the label of its chip, since global line numbers move between kernels.
struct chip_line {
    std::string chip;
    int32_t offset = -1;  // below 0: the entry could not be used
};

struct sys_config {
    std::string product_id;
    pin_backend backend = pin_backend::sim;
    std::map<int32_t, chip_line> kernel_lines;
    std::set<std::pair<int32_t, int32_t>> active_low_pins;  // direction and number: the polarity is known before it is set
};

// Read at the first call and kept for the life of the process (anew only for another ZEL_ROOT). May throw std::bad_alloc.
const sys_config &config_of_unit();

}  // namespace zel
