// Notifications of the MIB: what each change becomes, and sending them.
#pragma once

#include "notification_queue.h"
#include "unit_model.h"

#include <cstdint>
#include <optional>

namespace zel::snmpd {

class notifications {
public:
    explicit notifications(const unit_model &model) : model_(model) {}

    void row_touched(table_id table, uint32_t index);
    // What is found when the unit is first known is not news; what has changed by the time it is known again is.
    void link_changed(link_state state);
    // Sends what may be sent by now.
    void send_due(int64_t now_ms);
    std::optional<int64_t> next_due(int64_t now_ms) const;

    uint32_t sent() const { return sent_; }
    uint32_t merged() const { return queue_.merged(); }

private:
    std::optional<notification_state> look(notification_key key) const;
    void take_as_known();
    bool held_back() const;
    void send(const notification_queue::due_notification &due);

    const unit_model &model_;
    notification_queue queue_;
    bool known_once_ = false;
    uint32_t sent_ = 0;
};

}  // namespace zel::snmpd
