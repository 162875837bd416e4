// What the control socket's requests act on: parts of the running unit, borrowed.
#pragma once

#include "change_feed.h"
#include "grid.h"
#include "link_watch.h"
#include "port_names.h"
#include "pulses.h"
#include "settings.h"

#include <chrono>

namespace zel {

struct unit_parts {
    const unit_settings &settings;
    const port_map &ports;
    const link_watch &link;
    grid &wiring;
    pulses &presses;
    change_feed &feed;
    bool ember_open = false, web_open = false;
    std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();
};

}  // namespace zel
