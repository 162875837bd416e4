// The discovery daemon of a unit, played by the test: other units' virtual outputs appear and go as it says.
#pragma once

#include "running_unit.h"

#include <zel_ipc.h>

#include <string>

namespace zel::test {

class scripted_discovery {
public:
    explicit scripted_discovery(const unit_root &root);
    ~scripted_discovery() { zel_ipc_server_term(server_); }
    scripted_discovery(const scripted_discovery &) = delete;
    scripted_discovery &operator=(const scripted_discovery &) = delete;

    bool await_unit();
    void announce(const std::string &name);
    void withdraw(const std::string &name);

private:
    void send(uint8_t type, const void *record, size_t size);
    bool turn(int milliseconds);

    zel_ipc_server_t *server_;
    uint32_t unit_ = 0;
};

}  // namespace zel::test
