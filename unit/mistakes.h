// What is wrong in a settings file, and where.
#pragma once

#include <string>

namespace zel {

struct mistake {
    std::string place;  // "pins[3].in_pin"; "" for the file as a whole
    std::string text;   // what is wrong: "must be a whole number from 0 to 65535, not \"x\""
    int line = 0;       // 0: unknown
};

}  // namespace zel
