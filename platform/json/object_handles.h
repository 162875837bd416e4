// The handles that callers hold to the objects of a settings tree.
#pragma once

#include "common/json_reading.h"

#include <list>
#include <unordered_map>

struct zel_json_obj {
    json_t *object;  // null once the object has been removed from the tree
    int depth;       // the root has 0
};

namespace zel {

// A removed object's handle stays allocated (and empty) until the end, so that a late use of it is refused instead of reading
// freed memory.
class object_handles {
public:
    // The handle of an object, always the same one. May throw std::bad_alloc when it is new.
    zel_json_obj *handle_of(json_t *object, int depth);
    // Empties the handles of `value` and of all objects inside it, which is about to leave the tree.
    void retire(json_t *value) noexcept;

private:
    std::list<zel_json_obj> all_;  // each stays where it is
    std::unordered_map<const json_t *, zel_json_obj *> live_;
};

}  // namespace zel
