// Each allocation that the pins and their control socket make fails once: the call fails or not, and all goes on.
#include "common/local_socket.h"
#include "sys_allocations.h"
#include "sys_bench.h"
#include "sys_log.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <filesystem>
#include <utility>

namespace {

template <typename Call>
auto library(Call &&call)
{
    allocations.counted = true;
    const auto result = call();
    allocations.counted = false;
    return result;
}

void turn()
{
    fd_set readfds;
    FD_ZERO(&readfds);
    int maxfd = -1;
    zel_sys_control_set_fds(&readfds, &maxfd);
    timeval now = {0, 0};
    if (select(maxfd + 1, &readfds, nullptr, nullptr, &now) < 0) FD_ZERO(&readfds);
    library([&] {
        zel_sys_control_process_fds(&readfds);
        return 0;
    });
}

// What a client reads after a request.
std::string answer(const std::string &path, const std::string &request)
{
    zel::local_socket_address address;
    const zel::unique_fd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!zel::make_local_socket_address(path, address) || connect(fd.get(), address.get(), address.length) != 0) return "";
    EXPECT_EQ(send(fd.get(), request.data(), request.size(), MSG_NOSIGNAL), static_cast<ssize_t>(request.size()));
    for (int i = 0; i < 20; ++i) turn();
    char bytes[4096];
    const ssize_t got = recv(fd.get(), bytes, sizeof(bytes), MSG_DONTWAIT);
    return {bytes, got > 0 ? static_cast<size_t>(got) : 0};
}

// Everything once; whether all of it succeeded. Each call may fail, none may do half.
bool use_everything()
{
    const unit_folder unit(R"({"kernel_lines": {"5": {"chip": "a chip with a name that is not kept inside the text itself"}}})");
    bool good = library([] { return zel_sys_control_open(); }) == 0;
    const pin_handle input(library([] { return zel_sys_gpio_open(61, 0); }), zel_sys_gpio_close);
    const pin_handle output(library([] { return zel_sys_gpio_open(161, 2); }), zel_sys_gpio_close);
    good = good && input && output && library([&] { return zel_sys_gpio_set_edge(input.get(), 3); }) == 0;
    const int pressed = library([] { return zel_sys_sim_press(61, 1); });
    EXPECT_EQ(library([&] { return zel_sys_gpio_read(input.get()); }), input ? pressed == 0 : -1);
    EXPECT_EQ(library([&] { return zel_sys_gpio_write(output.get(), 1); }), output ? 0 : -1);
    const std::string long_line = "read 61" + std::string(80, ' ') + "\n";
    good = good && pressed == 0 && answer(unit.path() + "/run/zel/pins", "watch\nlist\nrelease 61\n" + long_line + "press 61\n") ==
                                       "ok watching\nok 2 61:in:1 161:out:1\npin 61 in 0\nok 61 0\nok 61 0\npin 61 in 1\nok 61 1\n";
    EXPECT_EQ(zel_sys_sim_press(61, 0), 0);
    zel_sys_control_close();
    return good;
}

size_t open_descriptors()
{
    size_t count = 0;
    for (const auto &entry : std::filesystem::directory_iterator("/proc/self/fd")) count += entry.exists() ? 1 : 0;
    return count;
}

TEST(pins_without_memory, fail_call_by_call_and_work_again)
{
    ASSERT_TRUE(use_everything());
    const size_t before = open_descriptors();
    int failures = 0;
    for (int nth = 0;; ++nth) {
        SCOPED_TRACE(nth);
        ASSERT_LT(nth, 10000);
        allocations.until_failure = nth;
        const bool good = use_everything();
        const bool fired = allocations.until_failure < 0;
        allocations.until_failure = -1;
        EXPECT_EQ(open_descriptors(), before);
        if (!fired) {
            EXPECT_TRUE(good) << "nothing failed";
            break;
        }
        failures += good ? 0 : 1;
        ASSERT_TRUE(use_everything()) << "the failure left something behind";
    }
    EXPECT_GT(failures, 10);
}

}  // namespace
