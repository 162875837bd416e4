// The programs beside the unit, run and kept running by it on request: the discovery daemon and the SNMP agent.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace zel {

class companions {
public:
    using clock = std::chrono::steady_clock;

    // Starts those of `programs` (file names) that lie in the folder of the running program, each with "--root ROOT". What ends by
    // itself is started again; what is missing is logged. They end with this process, whatever ends it.
    void start(const std::vector<std::string> &programs);
    // After SIGCHLD: takes note of what has ended.
    void reap();
    // To be called in every turn of the loop.
    void restart_due();
    std::optional<std::chrono::milliseconds> next_due() const;
    // Asks all to end, waits for that at most so long, then ends them.
    void stop(std::chrono::milliseconds patience);

private:
    struct companion {
        std::string path;
        pid_t pid = 0;  // 0: not running
        clock::time_point started{}, next_start{};
        std::chrono::milliseconds pause{};
    };
    void launch(companion &each);
    void take_end(companion &each, int status);
    bool all_end_within(std::chrono::milliseconds patience);

    std::vector<companion> all_;
    bool stopping_ = false;
};

}  // namespace zel
