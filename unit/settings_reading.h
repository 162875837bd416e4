// Reading unit.json whole: every mistake in it is found, each with the place where it was made.
#pragma once

#include "mistakes.h"
#include "settings.h"

#include <string>
#include <vector>

namespace zel {

struct settings_reading {
    unit_settings settings;          // usable when there are no mistakes
    std::vector<mistake> mistakes;   // in the file's order
};

// May throw std::bad_alloc.
settings_reading read_settings(const std::string &path);

// One line: "PATH:LINE: PLACE: TEXT".
std::string describe(const std::string &path, const mistake &wrong);

}  // namespace zel
