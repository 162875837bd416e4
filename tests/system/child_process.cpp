#include "child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <string_view>
#include <thread>

namespace zel::test {
namespace {

using clock = std::chrono::steady_clock;

int left_until(clock::time_point deadline)
{
    return static_cast<int>(std::max<int64_t>(0, std::chrono::ceil<std::chrono::milliseconds>(deadline - clock::now()).count()));
}

std::vector<std::string> environment_with(const environment &variables)
{
    std::vector<std::string> all;
    const auto replaced = [&](std::string_view entry) {
        return std::ranges::any_of(variables, [&](const auto &each) { return entry.starts_with(each.first + "="); });
    };
    for (char **entry = environ; *entry != nullptr; ++entry) {
        if (!replaced(*entry)) all.emplace_back(*entry);
    }
    for (const auto &[name, value] : variables) all.push_back(name + "=" + value);
    return all;
}

std::vector<char *> pointers_to(std::vector<std::string> &texts)
{
    std::vector<char *> pointers;
    for (std::string &text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

std::pair<unique_fd, unique_fd> make_pipe()
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("pipe2");
    return {unique_fd(ends[0]), unique_fd(ends[1])};
}

}  // namespace

bool line_reader::fill(clock::time_point deadline)
{
    pollfd waited{fd_.get(), POLLIN, 0};
    char bytes[65536];
    if (poll(&waited, 1, left_until(deadline)) <= 0) return false;
    const ssize_t got = read(fd_.get(), bytes, sizeof bytes);
    if (got <= 0) return false;
    buffer_.append(bytes, static_cast<size_t>(got));
    seen_.append(bytes, static_cast<size_t>(got));
    return true;
}

std::optional<std::string> line_reader::next()
{
    const auto deadline = clock::now() + patience;
    size_t end;
    while ((end = buffer_.find('\n')) == std::string::npos) {
        if (!fill(deadline)) return std::nullopt;
    }
    std::string line = buffer_.substr(0, end);
    buffer_.erase(0, end + 1);
    return line;
}

std::optional<std::string> line_reader::await(const std::string &part)
{
    while (auto line = next()) {
        if (line->find(part) != std::string::npos) return line;
    }
    return std::nullopt;
}

std::string line_reader::rest()
{
    const auto deadline = clock::now() + patience;
    while (fill(deadline)) {}
    return std::exchange(buffer_, {});
}

child_process::child_process(const std::vector<std::string> &words, const environment &variables)
{
    auto [out_end, out_start] = make_pipe();
    auto [err_end, err_start] = make_pipe();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out_start.get(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err_start.get(), STDERR_FILENO);
    std::vector<std::string> arguments = words, all = environment_with(variables);
    const int error = posix_spawnp(&pid_, words[0].c_str(), &actions, nullptr, pointers_to(arguments).data(),
                                   pointers_to(all).data());
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) throw std::runtime_error(words[0] + " cannot be started");
    out = line_reader(std::move(out_end));
    err = line_reader(std::move(err_end));
}

child_process::~child_process()
{
    end();
}

child_process::child_process(child_process &&other) noexcept
    : out(std::move(other.out)), err(std::move(other.err)), pid_(std::exchange(other.pid_, -1)), status_(other.status_)
{
}

child_process &child_process::operator=(child_process &&other) noexcept
{
    if (this == &other) return *this;
    end();
    out = std::move(other.out);
    err = std::move(other.err);
    pid_ = std::exchange(other.pid_, -1);
    status_ = other.status_;
    return *this;
}

void child_process::end()
{
    if (pid_ <= 0) return;
    (void)kill(pid_, SIGKILL);
    (void)waitpid(pid_, nullptr, 0);
    pid_ = -1;
}

void child_process::signal(int number) const
{
    if (pid_ > 0) (void)kill(pid_, number);
}

int child_process::wait()
{
    if (pid_ <= 0) return status_;
    const unique_fd ended(static_cast<int>(syscall(SYS_pidfd_open, pid_, 0)));
    pollfd waited{ended.get(), POLLIN, 0};
    if (poll(&waited, 1, left_until(clock::now() + patience)) <= 0) return -1;
    int status = 0;
    (void)waitpid(pid_, &status, 0);
    pid_ = -1;
    status_ = WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    return status_;
}

run_result run(const std::vector<std::string> &words, const environment &variables)
{
    child_process child(words, variables);
    run_result result;
    // Both streams are read at once, so that neither can fill its pipe and stop the program.
    std::thread reading([&] { result.err = child.err.rest(); });
    result.out = child.out.rest();
    reading.join();
    result.status = child.wait();
    return result;
}

}  // namespace zel::test
