// The daemon's memory over its own end: a small JSON file in the socket folder, which a restart of the machine may clear.
//
// It holds what each client asked for, because a client asks only once, and what it was told, so that what vanished while
// there was no daemon is told as removed and what is still there is not told anew.
#pragma once

#include "discovery.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zel::sdiscd {

// What can be read of a file's content; what is not sound in it is left out. `complaint`: one line if anything was. Nothing, and
// no complaint, once the machine was started anew.
std::vector<kept_client> read_kept(const std::string &path, std::string &complaint);
// Replaces the file at once. False with errno. May throw std::bad_alloc.
bool write_kept(const std::string &path, const std::vector<kept_client> &clients);

// Writes the file when something changed: requests before the next wait, because they are not sent twice; reports a little
// later, so that many are one write.
class kept_state {
public:
    static constexpr int64_t report_delay_ms = 250, retry_ms = 5'000;

    explicit kept_state(std::string path) : path_(std::move(path)) {}
    std::vector<kept_client> read() const;
    void update(const discovery &logic, int64_t now);
    std::optional<int64_t> next_due() const { return due_ms_; }

private:
    void write(const discovery &logic, int64_t now);

    const std::string path_;
    uint64_t requests_ = 0, reports_ = 0;   // the changes that were written
    std::optional<int64_t> due_ms_;
    bool complained_ = false;
};

}  // namespace zel::sdiscd
