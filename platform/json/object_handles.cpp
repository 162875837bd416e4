#include "object_handles.h"

#include <algorithm>

namespace zel {

zel_json_obj *object_handles::handle_of(json_t *object, int depth)
{
    const auto found = std::ranges::find(live_, object, &zel_json_obj::object);
    return found != live_.end() ? &*found : &live_.emplace_front(zel_json_obj{object, depth});
}

void object_handles::retire(json_t *value) noexcept
{
    if (json_is_array(value)) {
        for (size_t i = 0; i < json_array_size(value); ++i) retire(json_array_get(value, i));
    }
    if (!json_is_object(value)) return;
    const char *key;
    json_t *member;
    json_object_foreach(value, key, member) retire(member);
    const auto found = std::ranges::find(live_, value, &zel_json_obj::object);
    if (found == live_.end()) return;
    found->object = nullptr;
    retired_.splice(retired_.begin(), live_, found);
}

}  // namespace zel
