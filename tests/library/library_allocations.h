// Counts what the library allocates and makes its nth allocation fail. Link `library_allocations`: it wraps malloc, calloc,
// strdup, strndup and free of everything in the test program; the fake platform and the tests themselves allocate with C++ only.
#pragma once

#include <cstddef>

namespace fake {

/// The nth allocation from now on (from 0) fails; -1: none does.
void fail_allocation(int nth);
bool allocation_failed();
/// Allocations so far, and those of them that were not released.
int allocations();
size_t allocations_held();

}  // namespace fake
