#include "sys_bench.h"

#include "common/unique_fd.h"
#include "fake_gpio_lines.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace {

class sim_bench : public pin_bench {
public:
    explicit sim_bench(const char *signal) { setenv("ZEL_SIM_SIGNAL", signal, 1); }
    int32_t input(int n) const override { return 1 + n; }
    int32_t output(int n) const override { return 101 + n; }
    void press(int n, bool pressed, bool) override { EXPECT_EQ(zel_sys_sim_press(input(n), pressed), 0); }
    int output_level(int n, bool) override { return zel_sys_sim_level(output(n)); }
    bool simulated() const override { return true; }

private:
    unit_folder unit_;
};

// Inputs are pins 11 to 13, outputs 21 and 22, each by chip label and offset.
std::string kernel_configuration(const std::string &label, const std::vector<int> &offsets)
{
    std::string lines;
    const int pins[] = {11, 12, 13, 21, 22};
    for (size_t i = 0; i < offsets.size() && i < std::size(pins); ++i) {
        lines += (i != 0 ? ", \"" : "\"") + std::to_string(pins[i]) + R"(": {"chip": ")" + label + R"(", "offset": )" +
                 std::to_string(offsets[i]) + "}";
    }
    return R"({"pin_backend": "kernel", "kernel_lines": {)" + lines + "}}";
}

class kernel_bench : public pin_bench {
public:
    kernel_bench(const std::string &label, std::vector<int> offsets)
        : offsets_(std::move(offsets)), unit_(kernel_configuration(label, offsets_))
    {
    }
    int32_t input(int n) const override { return 11 + n; }
    int32_t output(int n) const override { return 21 + n; }
    void press(int n, bool pressed, bool active_low) override { set_line(offsets_.at(n), pressed != active_low); }
    int output_level(int n, bool active_low) override { return line(offsets_.at(3 + n)) != active_low; }

protected:
    virtual void set_line(int offset, int level) = 0;
    virtual int line(int offset) = 0;

private:
    std::vector<int> offsets_;
    unit_folder unit_;
};

class fake_kernel_bench : public kernel_bench {
public:
    fake_kernel_bench() : kernel_bench(fake_gpio_lines::label, {0, 1, 2, 6, 7})
    {
        setenv("ZEL_SYSFS_GPIO", lines_.folder().c_str(), 1);
    }
    ~fake_kernel_bench() override { unsetenv("ZEL_SYSFS_GPIO"); }

private:
    void set_line(int offset, int level) override { lines_.set_line(offset, level); }
    int line(int offset) override { return lines_.line(offset); }

    fake_gpio_lines lines_;
};

// Somebody at the other end of a serial line moves the lines.
class real_kernel_bench : public kernel_bench {
public:
    real_kernel_bench(const std::string &label, std::vector<int> offsets)
        : kernel_bench(label, std::move(offsets)), channel_(open(std::getenv("ZEL_TEST_LINE_CHANNEL"), O_RDWR | O_NOCTTY | O_CLOEXEC))
    {
        termios raw = {};
        if (tcgetattr(channel_.get(), &raw) != 0) throw std::runtime_error("no channel to who moves the lines");
        cfmakeraw(&raw);
        (void)tcsetattr(channel_.get(), TCSANOW, &raw);
    }

private:
    void set_line(int offset, int level) override { (void)ask("set " + std::to_string(offset) + " " + std::to_string(level)); }
    int line(int offset) override { return std::stoi(ask("get " + std::to_string(offset))); }

    std::string ask(const std::string &request)
    {
        const std::string sent = request + "\n";
        if (write(channel_.get(), sent.data(), sent.size()) != static_cast<ssize_t>(sent.size())) throw std::runtime_error(request);
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

std::unique_ptr<pin_bench> make_real_kernel_bench()
{
    std::istringstream text(std::getenv("ZEL_TEST_LINES"));
    std::string label, offset;
    std::vector<int> offsets;
    std::getline(text, label, ':');
    while (std::getline(text, offset, ',')) offsets.push_back(std::stoi(offset));
    return std::make_unique<real_kernel_bench>(label, offsets);
}

bool out_of_band_data_works()
{
    int fds[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) return false;
    const zel::unique_fd near(fds[0]), far(fds[1]);
    return send(far.get(), "!", 1, MSG_OOB | MSG_NOSIGNAL) == 1;
}

bool terminals_work()
{
    const zel::unique_fd master(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    return master && unlockpt(master.get()) == 0 && ptsname(master.get()) != nullptr;
}

}  // namespace

unit_folder::unit_folder(const std::string &unit_json)
{
    if (!unit_json.empty()) write_text(folder_.path() + "/etc/zel/unit.json", unit_json);
    setenv("ZEL_ROOT", folder_.path().c_str(), 1);
}

unit_folder::~unit_folder()
{
    unsetenv("ZEL_ROOT");
}

std::vector<bench_kind> benches()
{
    std::vector<bench_kind> kinds;
    const auto add = [&kinds](bool works, const char *name, std::unique_ptr<pin_bench> (*make)()) {
        if (works) kinds.push_back({name, make});
    };
    const bool lines = std::getenv("ZEL_TEST_LINES") != nullptr;
    add(out_of_band_data_works(), "sim_oob", []() -> std::unique_ptr<pin_bench> { return std::make_unique<sim_bench>("oob"); });
    add(terminals_work(), "sim_pty", []() -> std::unique_ptr<pin_bench> { return std::make_unique<sim_bench>("pty"); });
    add(lines, "kernel_lines", make_real_kernel_bench);
    add(!lines && fuse_mount::possible(), "kernel_fuse",
        []() -> std::unique_ptr<pin_bench> { return std::make_unique<fake_kernel_bench>(); });
    return kinds;
}

bool exceptional(int fd, int within_ms)
{
    fd_set exceptfds;
    FD_ZERO(&exceptfds);
    FD_SET(fd, &exceptfds);
    timeval limit = {within_ms / 1000, (within_ms % 1000) * 1000};
    return select(fd + 1, nullptr, nullptr, &exceptfds, &limit) == 1 && FD_ISSET(fd, &exceptfds);
}
