// What the agent makes of lines of zel_snmpd.conf otherwise than the agent library would.
#pragma once

#include <string>

namespace zel::snmpd {

// Between the library's initialisation and its reading of the configuration: from here on receivers of informs that would stop
// the agent are refused, whichever file names them.
void watch_trap_sessions();
// Whether none was refused (each is logged).
bool trap_sessions_are_good();

// Behind the library's reading of the configuration. A user's key is kept from the user's first start on and would win over a
// password that is changed in the configuration later.
void let_passwords_win_over_kept_keys(const std::string &configuration_file);

}  // namespace zel::snmpd
