// The command "watch": what happens in the unit, line by line.
#pragma once

#include "commands.h"
#include "exit_status.h"
#include "unit_link.h"

namespace zel {

// Prints until SIGINT or SIGTERM, or until the count or the time that the options give is reached.
exit_status watch(unit_link &link, const command_words &words, bool as_json);

}  // namespace zel
