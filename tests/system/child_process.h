// Programs that a test starts, and the lines that they print.
#pragma once

#include "common/unique_fd.h"

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zel::test {

// Long enough for a loaded machine under sanitizers; a test that passes never waits that long.
inline constexpr std::chrono::seconds patience{40};

// Lines of a descriptor, as they come.
class line_reader {
public:
    explicit line_reader(unique_fd fd = unique_fd()) : fd_(std::move(fd)) {}

    // The next line; nothing at the end of the stream or when patience is out.
    std::optional<std::string> next();
    // The next line that holds `part`, passing over others; nothing if none comes.
    std::optional<std::string> await(const std::string &part);
    // All that comes until the end of the stream.
    std::string rest();
    // Everything read so far, for a failure's message.
    const std::string &seen() const { return seen_; }

private:
    bool fill(std::chrono::steady_clock::time_point deadline);

    unique_fd fd_;
    std::string buffer_, seen_;
};

using environment = std::vector<std::pair<std::string, std::string>>;

class child_process {
public:
    child_process() = default;
    // Starts `words[0]` with these variables besides the test's own.
    explicit child_process(const std::vector<std::string> &words, const environment &variables = {});
    ~child_process();  // kills it if it still runs
    child_process(child_process &&other) noexcept;
    child_process &operator=(child_process &&other) noexcept;

    pid_t pid() const { return pid_; }
    void signal(int number) const;
    // The exit status; 128 + number for a signal; -1 if it does not end.
    int wait();

    line_reader out, err;

private:
    void end();

    pid_t pid_ = -1;
    int status_ = -1;
};

struct run_result {
    int status = -1;
    std::string out, err;
};

// Starts a program, waits for its end.
run_result run(const std::vector<std::string> &words, const environment &variables = {});

}  // namespace zel::test
