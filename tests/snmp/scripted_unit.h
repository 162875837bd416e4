// The unit's end of the agent's link, played by the test: it tells what it likes and answers as it likes.
#pragma once

#include "running_unit.h"
#include "wire_records.h"

#include <zel_ipc.h>

#include <deque>
#include <optional>

namespace zel::test {

class scripted_unit {
public:
    struct request {
        uint8_t type;
        snmpd::wire_request record;
    };

    // Connects to the agent on this root, under this name; when the link is made it tells of one output port (GPI 1), one input
    // port (GPI 2), two relays, a trigger and a handler. The environment's ZEL_ROOT is the test's own from then on.
    explicit scripted_unit(const unit_root &root, const char *name = "zel_gpio", const char *server = "snmp_gpio");
    ~scripted_unit();
    scripted_unit(const scripted_unit &) = delete;
    scripted_unit &operator=(const scripted_unit &) = delete;

    bool await_link();
    void send(uint8_t type, const void *payload, size_t length);
    template <typename record>
    void send(uint8_t type, const record &value) { send(type, &value, sizeof value); }
    // The next request; the agent's question whether everything was told is answered by itself.
    std::optional<request> next_request();
    void answer(const request &to, int32_t result);
    // Runs the link for a while, so that what was sent goes out and the agent's question is answered.
    void settle();
    bool linked() const { return linked_; }

private:
    static void event(zel_ipc_client_t *client, uint8_t type, const void *payload, uint32_t length);
    void tell_all();
    bool turn(int milliseconds);

    zel_ipc_client_t *client_ = nullptr;
    bool linked_ = false;
    std::deque<request> requests_;
};

}  // namespace zel::test
