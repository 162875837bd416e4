#include "watching.h"

#include "printing.h"

#include <signal.h>
#include <sys/signalfd.h>

#include <cstdio>
#include <ctime>

namespace zel {
namespace {

using clock = std::chrono::steady_clock;

unique_fd signals_that_end()
{
    sigset_t wanted;
    sigemptyset(&wanted);
    sigaddset(&wanted, SIGINT);
    sigaddset(&wanted, SIGTERM);
    sigprocmask(SIG_BLOCK, &wanted, nullptr);
    return unique_fd(signalfd(-1, &wanted, SFD_CLOEXEC));
}

std::string time_of_day()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char text[32];
    const size_t length = std::strftime(text, sizeof text, "%H:%M:%S", &local);
    std::snprintf(text + length, sizeof text - length, ".%03ld ", now.tv_nsec / 1000000);
    return text;
}

std::string line_for(const std::string &raw, bool as_json)
{
    if (as_json) return raw;
    const json_handle change(json_loadb(raw.data(), raw.size(), 0, nullptr));
    if (!change) throw link_problem{link_failed, "a line of the unit cannot be understood"};
    return print_change(change.get());
}

}  // namespace

exit_status watch(unit_link &link, const command_words &words, bool as_json)
{
    constexpr int64_t most_lines = 1000000000, most_seconds = 10000000;
    const std::string *const count_text = words.value_of("--count"), *const time_text = words.value_of("--for");
    const int64_t count = count_text != nullptr ? number_argument(*count_text, "--count", 1, most_lines) : 0;
    std::optional<clock::time_point> deadline;
    if (time_text != nullptr) {
        deadline = clock::now() + std::chrono::seconds(number_argument(*time_text, "--for", 0, most_seconds));
    }
    const unique_fd signals = signals_that_end();
    std::fputs("zelctl: watching\n", stderr);  // from here on nothing is missed
    for (int64_t lines = 0; count == 0 || lines < count; ++lines) {
        const auto raw = link.next_line(deadline, signals.get());
        if (!raw) return deadline && clock::now() >= *deadline && count != 0 ? time_is_up : done;
        const std::string line = (words.has("--time") ? time_of_day() : "") + line_for(*raw, as_json) + "\n";
        if (std::fputs(line.c_str(), stdout) < 0 || std::fflush(stdout) != 0) return link_failed;
    }
    return done;
}

}  // namespace zel
