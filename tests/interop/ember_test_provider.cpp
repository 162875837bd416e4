// A provider with a unit's tree that a test steers through its standard input: ember_test_provider PORT [PORTS]
//   tree                  every path, of a parameter with its value, then "end"
//   value PATH=TEXT       the application changes a value
//   add NAME=TEXT         a new element below "vgpio sources"
//   remove PATH
//   quit
// It says "listening PORT" and, when a consumer sets a parameter, "set PATH=VALUE". A set of "refused" is undone at once.

#include <sys/select.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "ember_unit_tree.h"

namespace {

void say(const std::string &line)
{
    std::cout << line << std::endl;
}

bool obey(unit_tree &tree, const std::string &line)
{
    const size_t blank = line.find(' ');
    const std::string verb = line.substr(0, blank);
    const std::string rest = blank == line.npos ? "" : line.substr(blank + 1);
    const size_t equals = rest.find('=');
    const std::string name = rest.substr(0, equals), value = equals == rest.npos ? "" : rest.substr(equals + 1);
    if (verb == "tree") {
        for (const auto &[path, element] : tree.elements)
            say(tree.kinds.contains(element) ? path + "=" + tree.values[path] : path);
        say("end");
    } else if (verb == "value") {
        say(tree.assign(name, value) ? "done" : "failed");
    } else if (verb == "add") {
        say(tree.text(name.c_str(), 1, value, tree.sources) != nullptr ? "done" : "failed");
    } else if (verb == "remove") {
        say(tree.remove(rest) ? "done" : "failed");
    }
    return verb != "quit";
}

// False at the end of the input or of the work.
bool read_commands(unit_tree &tree, std::string &pending)
{
    char buffer[4096];
    const ssize_t got = read(STDIN_FILENO, buffer, sizeof(buffer));
    if (got <= 0)
        return false;
    pending.append(buffer, static_cast<size_t>(got));
    for (size_t end; (end = pending.find('\n')) != pending.npos; pending.erase(0, end + 1))
        if (!obey(tree, pending.substr(0, end)))
            return false;
    return true;
}

}  // namespace

int main(int argc, char **argv)
{
    zel_ember_session_config_t config{};
    config.listen_port = static_cast<uint16_t>(argc > 1 ? std::atoi(argv[1]) : 0);
    zel_ember_session_t *session = zel_ember_session_init(&config);
    if (session == nullptr)
        return 1;
    unit_tree tree(session);
    tree.on_set = [&](const std::string &path, const std::string &value) {
        say("set " + path + "=" + value);
        if (value == "refused")
            tree.assign(path, "as before");
    };
    const int ports = argc > 2 ? std::atoi(argv[2]) : 4;
    tree.build(ports, ports / 2, ports / 2);
    say("listening " + std::to_string(zel_ember_get_port(session)));
    std::string pending;
    for (bool running = true; running;) {
        fd_set ready;
        FD_ZERO(&ready);
        FD_SET(STDIN_FILENO, &ready);
        int highest = STDIN_FILENO;
        zel_ember_set_fds(session, &ready, &highest);
        if (select(highest + 1, &ready, nullptr, nullptr, nullptr) < 0)
            break;
        zel_ember_process_fds(session, &ready);
        if (FD_ISSET(STDIN_FILENO, &ready))
            running = read_commands(tree, pending);
    }
    zel_ember_session_term(session);
    return 0;
}
