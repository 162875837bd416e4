#include "running_agent.h"

#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <sstream>
#include <thread>

namespace zel::test {
namespace {

const char open_text[] =
    "rocommunity public 127.0.0.0/8\n"
    "rwcommunity private 127.0.0.0/8\n"
    "createUser operator SHA-256 \"operator pass\" AES \"private pass\"\n"
    "createUser viewer SHA-256 \"viewer pass\"\n"
    "rwuser operator priv\n"
    "rouser viewer auth\n";

}  // namespace

std::string agent_settings(const std::string &more)
{
    return ", \"snmp_agent\": {\"address\": \"" + own_address() + "\", \"port\": " + std::to_string(agent_port) + more + "}";
}

std::string with_sink()
{
    return ", \"trap_sinks\": [{\"address\": \"" + own_address() + "\", \"port\": " + std::to_string(sink_port) + "}]";
}

std::string small_unit_settings()
{
    return ", \"friendly_name\": \"Studio 1\", \"pins\": [{\"in_pin\": 1, \"out_pin\": 101}, {\"in_pin\": 2, \"out_pin\": 102}, "
           "{\"in_pin\": 3, \"out_pin\": 103}, {\"in_pin\": 4, \"out_pin\": 104}, {\"in_pin\": 17, \"cough\": true}], "
           "\"relays\": {\"base_pin\": 201, \"count\": 2}, \"virtual_count\": 2, \"user_buttons\": 2, "
           "\"handlers\": [{\"name\": \"Record\"}, {\"name\": \"Mute\"}], \"triggers\": [\"On Air\", \"Door\"]";
}

std::string small_unit_config()
{
    return "{\"gpio\": {\"physical\": {\"phys_gpio_count\": 5,"
           "\"gpio_0\": {\"type\": 1, \"handler\": \"Record\", \"handler_invert\": \"0\", \"input_mode\": 1},"
           "\"gpio_1\": {\"type\": 1, \"handler_invert\": \"\", \"input_mode\": 1},"
           "\"gpio_2\": {\"type\": 0},"
           "\"gpio_3\": {\"type\": 2, \"trigger\": \"On Air\", \"invert_trigger\": \"0\"},"
           "\"gpio_4\": {\"type\": 1, \"handler\": \"Mute\", \"handler_invert\": \"0\", \"input_mode\": 1}},"
           "\"virtual\": {\"virtual_gpio_count\": 2,"
           "\"vgpio_0\": {\"type\": 1, \"handler_invert\": \"\"},"
           "\"vgpio_1\": {\"type\": 2, \"trigger\": \"GPI 1\", \"invert_trigger\": \"0\"}},"
           "\"user_buttons\": {\"btn_1\": {\"type\": 1, \"handler_invert\": \"\"},"
           "\"led_1\": {\"type\": 2, \"trigger\": \"User Button 1\", \"invert_trigger\": \"0\"},"
           "\"btn_2\": {\"type\": 1, \"handler_invert\": \"\"},"
           "\"led_2\": {\"type\": 2, \"trigger\": \"On Air\", \"invert_trigger\": \"0\"}},"
           "\"relay\": {\"relay_count\": 2, \"relay_0\": {\"triggers\": \"GPI 1\", \"trigger_invert\": \"0\"},"
           "\"relay_1\": {\"triggers\": \"On Air\", \"trigger_invert\": \"0\"}}}}\n";
}

void write_agent_configuration(const unit_root &root, const std::string &text)
{
    const std::string path = root.path() + "/etc/zel/snmp/zel_snmpd.conf";
    write_file(path, text);
    (void)chmod(path.c_str(), 0600);
}

std::string open_configuration()
{
    return open_text;
}

void write_small_unit(const unit_root &root)
{
    root.write_settings(agent_settings(with_sink()) + small_unit_settings());
    write_file(root.config(), small_unit_config());
    write_agent_configuration(root, open_text);
}

agent_process::agent_process(const unit_root &root, environment variables)
{
    ready_ = start_service(child_, {ZEL_SNMPD, "--root", root.path()}, root.path() + "/notify_agent", std::move(variables));
}

int agent_process::stop()
{
    child_.signal(SIGTERM);
    return child_.wait();
}

environment tool_environment(const std::string &scratch)
{
    return {{"MIBDIRS", std::string(ZEL_TEST_MIBS) + ":" + ZEL_MIBS},
            {"MIBS", "ZEL-GPIO-MIB"},
            {"SNMPCONFPATH", scratch},
            {"SNMP_PERSISTENT_DIR", scratch + "/persistent"}};
}

manager::manager(std::vector<std::string> arguments, int port)
    : arguments_(std::move(arguments)), address_(own_address() + ":" + std::to_string(port))
{
}

run_result manager::run(const std::string &tool, std::vector<std::string> words, const std::vector<std::string> &options) const
{
    std::vector<std::string> line{tool};
    line.insert(line.end(), arguments_.begin(), arguments_.end());
    line.insert(line.end(), {"-t", "3", "-r", "0", "-Os"});
    line.insert(line.end(), options.begin(), options.end());
    line.push_back(address_);
    line.insert(line.end(), words.begin(), words.end());
    return test::run(line, tool_environment(scratch_.path()));
}

std::string manager::get(const std::string &object) const
{
    const run_result result = run("snmpget", {object}, {"-Oqv"});
    std::string text = result.status == 0 ? result.out : result.err;
    while (text.ends_with('\n')) text.pop_back();
    return text;
}

std::string manager::set(std::vector<std::string> words, const std::vector<std::string> &options) const
{
    const run_result result = run("snmpset", std::move(words), options);
    if (result.status == 0) return "";
    const size_t begin = result.err.find("Reason: ");
    if (begin == std::string::npos) return result.err;
    std::istringstream reason(result.err.substr(begin + 8));
    std::string word;
    reason >> word;
    return word;
}

bool manager::await(const std::string &object, const std::string &value) const
{
    const auto deadline = std::chrono::steady_clock::now() + patience;
    while (get(object) != value) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

trap_receiver::trap_receiver(const std::string &configuration)
{
    const std::string file = scratch_.path() + "/receiver.conf";
    write_file(file, configuration);
    // It opens its socket before it says that it runs.
    child_ = child_process({"snmptrapd", "-f", "-Lo", "-n", "-Os", "-C", "-c", file, "-m", "ZEL-GPIO-MIB",
                            "udp:" + own_address() + ":" + std::to_string(sink_port)},
                           tool_environment(scratch_.path()));
    ready_ = child_.out.await("NET-SNMP version").has_value();
}

bool trap_receiver::await(const std::vector<std::string> &parts)
{
    const auto matches = [&](const std::string &line) {
        return std::ranges::all_of(parts, [&](const std::string &part) { return line.find(part) != std::string::npos; });
    };
    const auto earlier = std::ranges::find_if(passed_over_, matches);
    if (earlier != passed_over_.end()) {
        passed_over_.erase(earlier);
        return true;
    }
    while (const auto line = child_.out.next()) {
        if (matches(*line)) return true;
        passed_over_.push_back(*line);
    }
    return false;
}

long memory_of(pid_t pid)
{
    std::istringstream status(read_file("/proc/" + std::to_string(pid) + "/status"));
    std::string word;
    long kib = -1;
    while (status >> word) {
        if (word == "VmRSS:") status >> kib;
    }
    return kib;
}

}  // namespace zel::test
