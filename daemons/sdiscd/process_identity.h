// Which process a client is: a process id and when that process started, because ids are given again.
#pragma once

#include <cstdint>

namespace zel::sdiscd {

struct process_identity {
    int32_t pid = 0;
    uint64_t started = 0;   // in ticks since the machine's start
    bool operator==(const process_identity &) const = default;
};

// What the kernel says of the process of that id now; `started` is 0 if there is none.
process_identity identify_process(int32_t pid);

// Whether that very process runs still. One that cannot be seen from here (pid 0) counts as gone.
bool is_running(const process_identity &process);

}  // namespace zel::sdiscd
