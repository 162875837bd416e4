// Programs that the unit runs when a handler changes: one at a time per handler, never waited for inside the loop.
#pragma once

#include "settings.h"

#include <sys/types.h>

#include <chrono>
#include <memory>
#include <optional>
#include <vector>

namespace zel {

struct command_call {
    int32_t handler_id;
    uint8_t state;
    int32_t source;
    uintptr_t context;
};

class command_runner {
public:
    // One slot per handler that has a command; the number of the slot. Borrows `handler`.
    size_t add(const handler_settings &handler);
    // Runs the slot's command for this change. While its last one still runs, only the latest state is kept, and the command
    // runs again for it if it then differs from the one last run for.
    void run(size_t slot, const command_call &call);
    // After SIGCHLD: takes note of what has ended and runs what waits.
    void reap();
    // Asks what still runs to end, waits for that at most so long, then ends it.
    void stop(std::chrono::milliseconds patience);

private:
    struct slot {
        const handler_settings *handler;
        pid_t pid = 0;  // 0: none runs
        uint8_t run_state = 0;
        std::optional<command_call> waiting;
    };
    void start(slot &each, const command_call &call);
    void take_end(slot &each);
    bool any_running() const;
    bool all_end_within(std::chrono::milliseconds patience);
    void signal_all(int number) const;

    std::vector<slot> slots_;
    bool stopping_ = false;
};

}  // namespace zel
