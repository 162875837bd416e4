// Telling the service manager how far the unit is, as systemd's sd_notify protocol describes; nothing without NOTIFY_SOCKET.
#pragma once

namespace zel {

void notify_service(const char *state);  // "READY=1", "STOPPING=1"

}  // namespace zel
