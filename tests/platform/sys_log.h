// What the library under test logs, kept by this program's own log_message.
#pragma once

#include <string>
#include <vector>

struct logged {
    int level;
    std::string text;
};

std::vector<logged> &log_lines();
// Lines of that level whose text has all of `parts`.
int count_logged(int level, const std::vector<std::string> &parts);
