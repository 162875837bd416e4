// Announcing virtual outputs of this unit through the discovery daemon.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zel_gpio/records.h"

namespace zel {

// "vGPO2@Studio 1" for the second virtual port. 0, or -1 if the port is no virtual output or there is no network configuration.
int32_t get_vgpo_service_name(int32_t index, char *name, size_t size);
// "path=..." in double quotes: where the port's node is in the tree. 0, or -1.
int32_t get_vgpo_strlist(int32_t index, char *strlist, size_t size);

// Failures are logged; nothing is repeated.
void publish_vgpo(int32_t index);
void unpublish_vgpo(int32_t index);

}  // namespace zel
