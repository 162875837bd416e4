// Texts that outlive the records they came from. A port's source and provider address, and the names that consumer sessions hand
// back in their callbacks, stay readable when the remote record goes, changes its address, or comes back.
#pragma once

#include "zel_gpio/records.h"

namespace zel {

// The name of a source: valid while a port follows it, any consumer session lives, or names are held. Null if memory is short.
const char *keep_source_name(const char *name);
// Names stay valid as long as such an object lives: callbacks of the host may end every session while a name is being worked with.
class source_names_hold {
public:
    source_names_hold();
    ~source_names_hold();
    source_names_hold(const source_names_hold &) = delete;
    source_names_hold &operator=(const source_names_hold &) = delete;
};
// A provider's address: valid while a port holds it as its vgpi_provider_addr. Null if memory is short.
const char *keep_provider_address(const char *address);
// At shut-down, when no port and no session is left.
void release_kept_texts();

}  // namespace zel
