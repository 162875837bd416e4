#include "test_lines.h"

#include "common/unique_fd.h"
#include "fake_gpio_lines.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace {

class fake_lines : public test_lines {
public:
    fake_lines()
    {
        label = fake_gpio_lines::label;
        offsets = {0, 1, 2, 4, 5, 6, 7};
        taken = fake_gpio_lines::taken;
        setenv("ZEL_SYSFS_GPIO", lines_.folder().c_str(), 1);
    }
    ~fake_lines() override { unsetenv("ZEL_SYSFS_GPIO"); }
    void set(int offset, int level) override { lines_.set_line(offset, level); }
    int get(int offset) override { return lines_.line(offset); }

private:
    fake_gpio_lines lines_;
};

// Somebody at the other end of a serial line moves the lines.
class real_lines : public test_lines {
public:
    real_lines() : channel_(open(std::getenv("ZEL_TEST_LINE_CHANNEL"), O_RDWR | O_NOCTTY | O_CLOEXEC))
    {
        termios raw = {};
        if (tcgetattr(channel_.get(), &raw) != 0) throw std::runtime_error("no channel to who moves the lines");
        cfmakeraw(&raw);
        (void)tcsetattr(channel_.get(), TCSANOW, &raw);
        std::istringstream text(std::getenv("ZEL_TEST_LINES"));
        std::getline(text, label, ':');
        for (std::string offset; std::getline(text, offset, ',');) offsets.push_back(std::stoi(offset));
        if (const char *const used = std::getenv("ZEL_TEST_TAKEN_LINE")) taken = std::stoi(used);
    }
    void set(int offset, int level) override { (void)ask("set " + std::to_string(offset) + " " + std::to_string(level)); }
    int get(int offset) override { return std::stoi(ask("get " + std::to_string(offset))); }

private:
    std::string ask(const std::string &request)
    {
        const std::string sent = request + "\n";
        const ssize_t written = write(channel_.get(), sent.data(), sent.size());
        if (written != static_cast<ssize_t>(sent.size())) throw std::runtime_error(request);
        std::string answer;
        pollfd readable = {channel_.get(), POLLIN, 0};
        for (char byte = 0; byte != '\n'; answer += byte) {
            if (poll(&readable, 1, patience_ms) != 1 || read(channel_.get(), &byte, 1) != 1) throw std::runtime_error(request);
        }
        if (!answer.starts_with("ok")) throw std::runtime_error(request + ": " + answer);
        return answer.substr(2);
    }

    zel::unique_fd channel_;
};

}  // namespace

bool real_lines_are_given()
{
    return std::getenv("ZEL_TEST_LINES") != nullptr;
}

bool test_lines_are_to_be_had()
{
    return real_lines_are_given() || fuse_mount::possible();
}

std::unique_ptr<test_lines> make_test_lines()
{
    if (real_lines_are_given()) return std::make_unique<real_lines>();
    if (fuse_mount::possible()) return std::make_unique<fake_lines>();
    return nullptr;
}

std::string kernel_lines_json(const test_lines &lines, const std::vector<std::pair<int, int>> &pins_and_offsets)
{
    std::string text;
    for (const auto &[pin, offset] : pins_and_offsets) {
        text += (text.empty() ? "\"" : ", \"") + std::to_string(pin) + R"(": {"chip": ")" + lines.label + R"(", "offset": )" +
                std::to_string(offset) + "}";
    }
    return "{" + text + "}";
}
