// Virtual inputs following virtual outputs of other units over Ember+ consumer sessions. Inputs whose sources are on one unit
// share a session.
#pragma once

#include <cstdint>

#include "zel_gpio/records.h"

namespace zel {

// Makes the name the port's source; "" or null for none. Does not connect. False if memory is short: the port has no source then.
bool set_source_name(gpio_port_t &port, const char *name);

// Gives a virtual input its source by name (null or unknown: none) and connects it. Choosing the source it has keeps it.
void choose_vgpo_source(gpio_port_t &port, const char *name);

// 0 when the input follows its source now, else -1.
int32_t connect_vgpi_to_vgpo(int32_t index);
// Before an input drops the source of this name (null or "" for none): a source that is neither reachable nor chosen by another
// port leaves the remote list. Always 0.
int32_t disconnect_vgpi_from_vgpo(const char *name, int32_t index);
// Before a source's remote path becomes another one: a shared session would go on handing out what is found at the old one.
void forget_remote_path(const char *source, const char *path);
// Ends the input's use of its session, and the session with its last user. Nothing without a session.
void close_vgpi_session(int32_t index);

}  // namespace zel
