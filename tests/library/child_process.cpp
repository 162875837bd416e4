#include "child_process.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace fake {

namespace {

const testing::TestResult &result_so_far() { return *testing::UnitTest::GetInstance()->current_test_info()->result(); }

bool anything_failed_since(int first_part)
{
    for (int i = first_part; i < result_so_far().total_part_count(); ++i)
        if (result_so_far().GetTestPartResult(i).failed())
            return true;
    return false;
}

[[noreturn]] void be_the_child(int output, const std::function<void()> &body)
{
    const int first_part = result_so_far().total_part_count();   // what failed before is the parent's affair
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    close(output);
    body();
    std::exit(anything_failed_since(first_part) ? 1 : 0);
}

std::string all_of(int fd)
{
    std::string text;
    char part[4096];
    for (ssize_t got; (got = read(fd, part, sizeof part)) > 0 || (got < 0 && errno == EINTR);)
        if (got > 0)
            text.append(part, static_cast<size_t>(got));
    return text;
}

}  // namespace

child_result in_child(const std::function<void()> &body)
{
    int ends[2];
    if (pipe(ends) != 0)
        return {-1, 0, "no pipe"};
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        close(ends[0]);
        be_the_child(ends[1], body);
    }
    close(ends[1]);
    child_result result{-1, 0, all_of(ends[0])};
    close(ends[0]);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {}
    if (WIFEXITED(status))
        result.exit_status = WEXITSTATUS(status);
    else
        result.signal = WTERMSIG(status);
    return result;
}

}  // namespace fake
