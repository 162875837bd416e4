#include "object_handles.h"

namespace zel {

zel_json_obj *object_handles::handle_of(json_t *object, int depth)
{
    if (const auto found = live_.find(object); found != live_.end()) return found->second;
    zel_json_obj &handle = all_.emplace_front(zel_json_obj{object, depth});
    live_.emplace(object, &handle);
    return &handle;
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
    const auto found = live_.find(value);
    if (found == live_.end()) return;
    found->second->object = nullptr;
    live_.erase(found);
}

}  // namespace zel
