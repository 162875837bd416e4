#include "sys_log.h"

#include "zel_debug.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

std::vector<logged> &log_lines()
{
    static std::vector<logged> lines;
    return lines;
}

void log_message(int level, const char *format, ...)
{
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    (void)vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    log_lines().push_back({level, text});
}

int count_logged(int level, const std::vector<std::string> &parts)
{
    return static_cast<int>(std::ranges::count_if(log_lines(), [&](const logged &line) {
        const auto has = [&](const std::string &part) { return line.text.find(part) != std::string::npos; };
        return line.level == level && std::ranges::all_of(parts, has);
    }));
}
