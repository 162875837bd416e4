// What one setting alone cannot tell: whether the settings fit each other and the library's tables.
#pragma once

#include "mistakes.h"
#include "settings.h"

#include <vector>

namespace zel {

// Adds what is wrong. Values that were refused before are absent from `settings` and are passed over.
void check_settings(const unit_settings &settings, std::vector<mistake> &mistakes);

}  // namespace zel
