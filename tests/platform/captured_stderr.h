// Standard error on a socket that keeps packets apart: what one write() put there is read as one piece.
#pragma once

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

class captured_stderr {
public:
    captured_stderr()
    {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) ADD_FAILURE() << "no socket pair";
        before_ = dup(STDERR_FILENO);
        dup2(ends[0], STDERR_FILENO);
        close(ends[0]);
        end_ = ends[1];
    }
    ~captured_stderr()
    {
        restore();
        close(end_);
    }
    captured_stderr(const captured_stderr &) = delete;
    captured_stderr &operator=(const captured_stderr &) = delete;

    // The next packet; waits for it at most `timeout_ms`, then gives "".
    std::string next(int timeout_ms = 30000)
    {
        pollfd readable{end_, POLLIN, 0};
        if (poll(&readable, 1, timeout_ms) != 1) return {};
        std::string packet(65536, '\0');
        const ssize_t size = recv(end_, packet.data(), packet.size(), 0);
        packet.resize(size > 0 ? static_cast<size_t>(size) : 0);
        return packet;
    }
    // Every packet that is there already.
    std::vector<std::string> all()
    {
        std::vector<std::string> packets;
        for (std::string packet = next(0); !packet.empty(); packet = next(0)) packets.push_back(packet);
        return packets;
    }
    void restore()
    {
        if (before_ < 0) return;
        dup2(before_, STDERR_FILENO);
        close(before_);
        before_ = -1;
    }

private:
    int before_ = -1;
    int end_ = -1;
};

// The part of a log line behind its stamps, "level: text\n".
inline std::string level_and_text(const std::string &line)
{
    const size_t bracket = line.find("] ");
    return bracket == std::string::npos ? "no log line: " + line : line.substr(bracket + 2);
}
