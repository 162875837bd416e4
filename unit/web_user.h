// Adding somebody who may log in at the unit's pages.
#pragma once

#include <string>

namespace zel {

// Asks for the password (a line of the standard input; at a terminal twice, unseen) and writes the user into the users file
// below the unit's root. False with one line in `problem`.
bool add_web_user(const std::string &name, std::string &problem);

}  // namespace zel
