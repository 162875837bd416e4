#include "web_user.h"

#include "common/unit_root.h"
#include "web_pages.h"
#include "zel_www.h"

#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <optional>

namespace zel {
namespace {

constexpr size_t longest_password = 256;

// The terminal shows nothing of what is typed while this lives.
class unseen_typing {
public:
    unseen_typing()
    {
        changed_ = tcgetattr(STDIN_FILENO, &before_) == 0;
        termios quiet = before_;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        if (changed_) changed_ = tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet) == 0;
    }
    ~unseen_typing()
    {
        if (changed_) (void)tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_);
    }
    unseen_typing(const unseen_typing &) = delete;
    unseen_typing &operator=(const unseen_typing &) = delete;

private:
    termios before_{};
    bool changed_ = false;
};

// A byte at a time, so that nothing behind the line is taken from whoever reads on.
std::optional<std::string> read_line()
{
    std::string line;
    char c = 0;
    while (true) {
        const ssize_t got = read(STDIN_FILENO, &c, 1);
        if (got < 0 || (got == 0 && line.empty()) || line.size() > longest_password) return std::nullopt;
        if (got == 0 || c == '\n') return line;
        line += c;
    }
}

std::optional<std::string> typed(const char *prompt)
{
    const unseen_typing quiet;
    std::fputs(prompt, stderr);
    auto line = read_line();
    std::fputs("\n", stderr);
    return line;
}

}  // namespace

bool add_web_user(const std::string &name, std::string &problem)
{
    const bool at_terminal = isatty(STDIN_FILENO) != 0;
    std::optional<std::string> password = at_terminal ? typed("Password: ") : read_line();
    if (!password || password->empty() || password->size() > longest_password ||
        std::strlen(password->c_str()) != password->size()) {
        problem = "a password of 1 to 256 bytes is needed, as a line of the standard input";
        return false;
    }
    if (at_terminal && typed("The same again: ") != password) {
        problem = "the two passwords differ; nothing was changed";
        return false;
    }
    const std::string path = below_unit_root(web_users_path);
    if (!make_folder_of(path) || zel_web_users_set(path.c_str(), name.c_str(), password->c_str()) != 0) {
        problem = "user \"" + name + "\" could not be written to " + path;
        return false;
    }
    return true;
}

}  // namespace zel
