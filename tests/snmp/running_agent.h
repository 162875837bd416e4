// An agent of the test's own beside a unit, and Debian's tools as its managers.
#pragma once

#include "running_unit.h"

#include <string>
#include <vector>

namespace zel::test {

inline constexpr int agent_port = 1161, sink_port = 1162;

// unit.json's members for an agent on own_address(), each with a comma in front. `more`: members of "snmp_agent".
std::string agent_settings(const std::string &more = "");
// A sink on own_address().
std::string with_sink();
// A small unit: GPI 1 to 4 (4 is an output at first), cough port 1, vGPI/vGPO 1 and 2, buttons 1 and 2, relays 1 and 2, a
// handler "Record", triggers "On Air" and "Door".
std::string small_unit_settings();
std::string small_unit_config();
// A root with that unit and its wiring, read-write access for the community "private", and a user for version 3.
void write_small_unit(const unit_root &root);
// zel_snmpd.conf with these lines.
void write_agent_configuration(const unit_root &root, const std::string &text);
std::string open_configuration();

class agent_process {
public:
    // Starts the agent and waits until it serves.
    explicit agent_process(const unit_root &root, environment variables = {});

    bool ready() const { return ready_; }
    child_process &process() { return child_; }
    int stop();

private:
    child_process child_;
    bool ready_ = false;
};

// Variables for the tools: only our own MIB, nothing of the machine's settings.
environment tool_environment(const std::string &scratch);

// A manager: snmpget and the like, with names of our MIB.
class manager {
public:
    // `arguments`: how to reach the agent, such as {"-v2c", "-c", "private"}.
    explicit manager(std::vector<std::string> arguments = {"-v2c", "-c", "private"}, int port = agent_port);

    // One line per variable, "zelGpiState.1 = INTEGER: off(0)"; what the tool complains about goes to `err`.
    run_result run(const std::string &tool, std::vector<std::string> words, const std::vector<std::string> &options = {}) const;
    // The value of one object, as the tool shows it without its type; the tool's complaint if there is none.
    std::string get(const std::string &object) const;
    // "" when done, else the reason: "wrongValue".
    std::string set(std::vector<std::string> words, const std::vector<std::string> &options = {}) const;
    // Asks until the object has this value, as long as patience lasts.
    bool await(const std::string &object, const std::string &value) const;

    const std::string &scratch() const { return scratch_.path(); }

private:
    std::vector<std::string> arguments_;
    std::string address_;
    temp_folder scratch_;
};

// snmptrapd on own_address(), its lines by name.
class trap_receiver {
public:
    explicit trap_receiver(const std::string &configuration = "authCommunity log public\n");

    bool ready() const { return ready_; }
    // Takes the first line that holds all of these parts, among those passed over before and those still to come.
    bool await(const std::vector<std::string> &parts);
    const std::string &seen() const { return child_.out.seen(); }
    child_process &process() { return child_; }

private:
    temp_folder scratch_;
    child_process child_;
    std::vector<std::string> passed_over_;
    bool ready_ = false;
};

// Resident memory of a process, in KiB.
long memory_of(pid_t pid);

}  // namespace zel::test
