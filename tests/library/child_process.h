// A piece of a test in a process of its own: the library can be initialised only once per process, and a table of cases needs
// one start each.
#pragma once

#include <functional>
#include <string>

namespace fake {

struct child_result {
    int exit_status;      // 0: no expectation failed and nothing leaked; -1 when a signal ended it
    int signal;           // 0 when it ended by itself
    std::string output;   // standard output and error
};

/// Run `body` in a child process and wait for it. Expectations in it count there; leaks are looked for at its end.
child_result in_child(const std::function<void()> &body);

}  // namespace fake

/// Run `...` (statements) in a child process; its failed expectations, crashes and leaks fail this test, with its output.
#define EXPECT_CHILD_SUCCEEDS(...)                                                                        \
    do {                                                                                                  \
        const fake::child_result child_of_test = fake::in_child([&] { __VA_ARGS__; });                    \
        EXPECT_TRUE(child_of_test.exit_status == 0 && child_of_test.signal == 0)                          \
            << "exit status " << child_of_test.exit_status << ", signal " << child_of_test.signal << "\n" \
            << child_of_test.output;                                                                      \
    } while (false)
