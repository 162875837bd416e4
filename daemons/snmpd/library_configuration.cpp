#include "library_configuration.h"

#include "net_snmp.h"

#include <fstream>
#include <string_view>

namespace zel::snmpd {
namespace {

bool refused_a_session = false;   // the library's handlers of configuration lines know nothing but the line

// The options of a trapsess line that count here, as the library reads them: a value may stand at its letter or behind it.
struct session_options {
    bool inform = false;
    bool version_3 = true;        // which the library takes when the line says nothing

    void take(char letter, std::string_view value)
    {
        if (letter == 'C' && value.find('i') != value.npos) inform = true;
        if (letter == 'v') version_3 = value == "3";
    }
};

session_options options_of(const char *line)
{
    session_options options;
    char word[SPRINT_MAX_LEN], letter = 0;
    do {
        line = copy_nword_const(line, word, sizeof word);
        std::string_view value = word;
        if (letter == 0 && value.size() >= 2 && value[0] == '-') {
            letter = value[1];
            value.remove_prefix(2);
            if (value.empty()) continue;
        }
        options.take(letter, value);
        letter = 0;
    } while (line != nullptr);
    return options;
}

// An inform of version 3 first asks the receiver who it is, and waits: a receiver that is away would stop the agent for seconds.
void take_trap_session(const char *word, char *line)
{
    const session_options options = options_of(line);
    if (!options.inform || !options.version_3) return snmpd_parse_config_trapsess(word, line);
    refused_a_session = true;
    netsnmp_config_error("informs of version 3 stop the agent while their receiver is away; use traps, or -v 2c");
}

}  // namespace

void watch_trap_sessions()
{
    snmpd_register_config_handler("trapsess", take_trap_session, snmpd_free_trapsinks, nullptr);
}

bool trap_sessions_are_good()
{
    return !refused_a_session;
}

void let_passwords_win_over_kept_keys(const std::string &configuration_file)
{
    std::ifstream file(configuration_file);
    for (std::string line; std::getline(file, line);) {
        char word[SPRINT_MAX_LEN];
        char *const rest = copy_nword(line.data(), word, sizeof word);
        if (rest != nullptr && strcasecmp(word, "createUser") == 0) usm_parse_create_usmUser(word, rest);
    }
}

}  // namespace zel::snmpd
