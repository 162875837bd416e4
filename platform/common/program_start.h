// What every program of the unit does first.
#pragma once

#include <string>

namespace zel {

// A descriptor below 3 that is closed would be given to a socket, which every careless print would then write to.
void open_standard_streams();

// Makes this folder the unit's root, as an absolute path, because programs run from here may change folder. A root that does not
// exist is a mistake, not a new unit: false, with errno.
bool enter_unit_root(const std::string &root);

}  // namespace zel
