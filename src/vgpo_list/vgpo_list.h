// What the library itself needs of the remote list beyond the public calls.
#pragma once

#include "zel_gpio.h"

namespace zel {

// A zero-filled record for a new entry: a removed one of this list, else a new one. Null if memory is short. The caller's until
// it is added.
vGPO_t *take_vgpo_record(vgpo_list_t *list);

}  // namespace zel
