// Two units, each on a host of its own with its daemons: a virtual output of the one, driven by its pin 1, is followed by a virtual
// input of the other, which drives relay 1.
#pragma once

#include "running_unit.h"
#include "two_hosts.h"

#include <memory>
#include <optional>
#include <string>

namespace zel::test {

class following_pair {
public:
    explicit following_pair(const two_hosts &hosts);

    bool start_source();
    bool start_follower();
    void end_source() { source_.reset(); }       // at once, without a good-bye
    void end_follower() { follower_.reset(); }
    child_process &source_process() { return source_->unit.process(); }

    // The contact at pin 1 of the source.
    void press(bool pressed);
    // Makes the virtual output an output, or disables it.
    void offer(bool offered);
    // SIGKILL to the discovery daemon of the source's or the follower's unit.
    bool kill_discovery_of_source() { return kill_discovery(*source_); }
    bool kill_discovery_of_follower() { return kill_discovery(*follower_); }

    // Waits until the follower has the level by a link that works, and its relay with it: how long that took. Nothing if it
    // does not come to pass.
    std::optional<std::chrono::milliseconds> await_level(bool level);
    // Waits until the follower says that its source cannot be reached.
    bool await_loss();
    // What the follower has, for a failure's message.
    std::string follower_report();

private:
    struct running {
        explicit running(const unit_root &root) : unit(root, {}, {"--with-daemons"}), link(root) {}
        unit_process unit;
        control_link link;
    };
    bool start(std::unique_ptr<running> &unit, const unit_root &root, two_hosts::host where);
    static bool kill_discovery(running &unit);
    static pid_t discovery_of(running &unit);
    static json_handle first_port_of_class(running &unit, const char *wanted);
    bool follower_has(bool level);

    const two_hosts &hosts_;
    unit_root source_root_, follower_root_;
    std::unique_ptr<running> source_, follower_;
};

}  // namespace zel::test
