#include "sys_bench.h"

#include "common/unique_fd.h"
#include "test_lines.h"

#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace {

class sim_bench : public pin_bench {
public:
    explicit sim_bench(const char *signal) { setenv("ZEL_SIM_SIGNAL", signal, 1); }
    int32_t input(int n) const override { return 1 + n; }
    int32_t output(int n) const override { return 101 + n; }
    void press(int n, bool pressed, bool) override { EXPECT_EQ(zel_sys_sim_press(input(n), pressed), 0); }
    int output_level(int n, bool) override { return zel_sys_sim_level(output(n)); }

private:
    unit_folder unit_;
};

// Inputs are pins 11 to 13, outputs 21 and 22, each by chip label and offset. Pins 13 and 22 are known to be active low.
class kernel_bench : public pin_bench {
public:
    int32_t input(int n) const override { return 11 + n; }
    int32_t output(int n) const override { return 21 + n; }
    void press(int n, bool pressed, bool active_low) override { lines_->set(lines_->offsets.at(n), pressed != active_low); }
    int output_level(int n, bool active_low) override { return lines_->get(lines_->offsets.at(3 + n)) != active_low; }
    int32_t taken_pin() const override { return 31; }
    void take_away(int n) override { (void)write_number("/unexport", lines_->offsets.at(n)); }
    bool export_by_hand(int n) override { return write_number("/export", lines_->offsets.at(n)); }

private:
    std::string configuration() const
    {
        const auto &o = lines_->offsets;
        return R"({"pin_backend": "kernel", "kernel_lines": )" +
               kernel_lines_json(*lines_, {{11, o.at(0)}, {12, o.at(1)}, {13, o.at(2)}, {21, o.at(3)}, {22, o.at(4)},
                                           {31, lines_->taken}}) +
               R"(, "pins": [{"in_pin": 13, "in_active_low": true, "out_pin": 22, "out_active_low": true}]})";
    }

    // As another program would do it.
    bool write_number(const std::string &file, int offset) const
    {
        const char *const made_up = std::getenv("ZEL_SYSFS_GPIO");
        const std::string folder = made_up != nullptr ? made_up : "/sys/class/gpio";
        for (const auto &entry : std::filesystem::directory_iterator(folder)) {
            if (!entry.path().filename().string().starts_with("gpiochip")) continue;
            if (text_of(entry.path().string() + "/label") != lines_->label + "\n") continue;
            const int base = std::stoi(text_of(entry.path().string() + "/base"));
            std::ofstream out(folder + file);
            return static_cast<bool>(out << base + offset << std::flush);
        }
        return false;
    }

    std::unique_ptr<test_lines> lines_ = make_test_lines();
    unit_folder unit_{configuration()};
};

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

std::vector<bench_kind> machine_benches()
{
    if (!test_lines_are_to_be_had()) return {};
    return {{real_lines_are_given() ? "kernel_lines" : "kernel_fuse",
             []() -> std::unique_ptr<pin_bench> { return std::make_unique<kernel_bench>(); }}};
}

std::vector<bench_kind> benches()
{
    std::vector<bench_kind> kinds;
    const auto add = [&kinds](bool works, const char *name, std::unique_ptr<pin_bench> (*make)()) {
        if (works) kinds.push_back({name, make});
    };
    add(out_of_band_data_works(), "sim_oob", []() -> std::unique_ptr<pin_bench> { return std::make_unique<sim_bench>("oob"); });
    add(terminals_work(), "sim_pty", []() -> std::unique_ptr<pin_bench> { return std::make_unique<sim_bench>("pty"); });
    for (const bench_kind &kind : machine_benches()) kinds.push_back(kind);
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
