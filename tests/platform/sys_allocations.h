// This program's allocations with operator new, the libraries' among them; those of a while are counted and one can fail.
#pragma once

struct allocation_fault {
    bool counted = false;    // now
    int until_failure = -1;  // so many succeed before one fails; below 0: none fails
};
extern allocation_fault allocations;
