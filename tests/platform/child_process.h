// A process of its own that runs a piece of the test's code; killed with the test.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

class child_process {
public:
    // `work` gives the exit status.
    template <class work>
    explicit child_process(work run) : id_(fork())
    {
        if (id_ < 0) ADD_FAILURE() << "no process";
        if (id_ != 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        _exit(run());
    }
    ~child_process()
    {
        kill(SIGKILL);
        (void)wait();
    }
    child_process(const child_process &) = delete;
    child_process &operator=(const child_process &) = delete;

    pid_t id() const { return id_; }
    void kill(int signal) const
    {
        if (id_ > 0) ::kill(id_, signal);
    }
    // Its exit status; -1 if a signal ended it or it was waited for before.
    int wait()
    {
        int status;
        if (id_ <= 0 || waitpid(id_, &status, 0) != id_) return -1;
        id_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t id_;
};
