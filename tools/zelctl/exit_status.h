// Exit statuses of zelctl; scripts rely on them.
#pragma once

namespace zel {

enum exit_status {
    done = 0,
    refused = 1,          // the unit refused the request
    wrong_command_line = 2,
    not_running = 3,      // no unit runs on that root, or it has ended
    link_failed = 4,      // the unit does not answer, or not in a way that can be understood
    time_is_up = 5,       // "watch": not as many lines as asked for in that time
};

}  // namespace zel
