#include "zel_json.h"

#include "common/unit_root.h"
#include "object_handles.h"
#include "open_files.h"
#include "settings_file.h"
#include "settings_writer.h"
#include "zel_debug.h"

#include <unistd.h>

#include <new>
#include <utility>

struct zel_json_file : zel::open_file {
    explicit zel_json_file(const std::string &full_path) : file(full_path), root(file.read()), writer(file, root.get()) {}

    void finish() noexcept override { writer.finish(); }
    const char *path() const noexcept override { return file.path(); }

    zel::settings_file file;
    zel::json_handle root;  // the tree is changed with the writer's mutex held, by the thread that owns the file
    zel::object_handles handles;
    zel::settings_writer writer;
};

namespace {

// Far less deep than what jansson reads, so that a file written here can always be read.
constexpr int depth_max = 256;

json_t *member(const zel_json_file_t *file, const zel_json_obj_t *obj, const char *key)
{
    return file != nullptr && obj != nullptr && key != nullptr ? json_object_get(obj->object, key) : nullptr;
}

// A parent of null is the root; a null object is what was removed from the tree.
zel_json_obj parent_object(const zel_json_file_t *file, const zel_json_obj_t *parent)
{
    return parent != nullptr ? *parent : zel_json_obj{file->root.get(), 0};
}

json_t *make_object(zel_json_file_t *file, json_t *parent, const char *key)
{
    const std::unique_lock lock(file->writer.mutex());
    json_t *const object = json_object();
    return json_object_set_new(parent, key, object) == 0 ? object : nullptr;
}

// Takes `fresh`, a number, text or boolean, over into the tree; a value that stands there already changes nothing.
int set_member(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, zel::json_handle fresh)
{
    if (file == nullptr || obj == nullptr || obj->object == nullptr || key == nullptr || fresh == nullptr) return -1;
    const zel::json_handle before(json_incref(member(file, obj, key)));
    if (json_equal(before.get(), fresh.get())) return 0;
    std::unique_lock lock(file->writer.mutex());
    if (json_object_set_new(obj->object, key, fresh.release()) != 0) return -1;
    file->handles.retire(before.get());
    file->writer.changed(lock);
    return 0;
}

bool is_int32(const json_t *value)
{
    return json_is_integer(value) && std::in_range<int32_t>(json_integer_value(value));
}

}  // namespace

void zel_json_init(void)
{
    json_object_seed(0);  // jansson does it by itself otherwise, at the first object, perhaps in two threads at once
}

zel_json_file_t *zel_json_file_init(const char *path)
{
    if (path == nullptr || path[0] != '/') {
        log_message(0, "%s: %s is no absolute path\n", __func__, path != nullptr ? path : "null");
        return nullptr;
    }
    try {
        auto file = std::make_unique<zel_json_file>(zel::below_unit_root(path));
        if (file->root == nullptr) return nullptr;
        if (zel::add_open_file(*file)) return file.release();
        log_message(0, "%s: %s is open already\n", __func__, file->path());
        return nullptr;
    } catch (const std::bad_alloc &) {
        log_message(0, "%s: no memory for %s\n", __func__, path);
        return nullptr;
    }
}

void zel_json_file_term(zel_json_file_t *file)
{
    // In the child of a fork neither the writing thread nor the state of its mutex is known; the file is the parent's to write.
    if (file == nullptr || file->process != getpid()) return;
    zel::remove_open_file(*file);
    file->finish();
    delete file;
}

zel_json_obj_t *zel_json_file_load_object(zel_json_file_t *file, zel_json_obj_t *parent, const char *key)
{
    if (file == nullptr || key == nullptr) return nullptr;
    const auto [inside, depth] = parent_object(file, parent);
    json_t *object = json_object_get(inside, key);
    if (object == nullptr && inside != nullptr && depth < depth_max) object = make_object(file, inside, key);
    if (!json_is_object(object)) return nullptr;
    try {
        return file->handles.handle_of(object, depth + 1);
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

const char *zel_json_file_load_string(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, const char *default_value)
{
    const json_t *const value = member(file, obj, key);
    return json_is_string(value) ? json_string_value(value) : default_value;
}

int32_t zel_json_file_load_integer(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, int32_t default_value)
{
    const json_t *const value = member(file, obj, key);
    return is_int32(value) ? static_cast<int32_t>(json_integer_value(value)) : default_value;
}

int zel_json_file_load_boolean(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, int default_value)
{
    const json_t *const value = member(file, obj, key);
    return json_is_boolean(value) ? json_is_true(value) : default_value;
}

int32_t zel_json_file_integer_validate(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, int32_t default_value,
                                       int32_t min, int32_t max)
{
    const int32_t value = zel_json_file_load_integer(file, obj, key, default_value);
    return value >= min && value <= max ? value : default_value;
}

int zel_json_file_set_string(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, const char *value)
{
    return set_member(file, obj, key, zel::json_handle(json_string(value)));
}

int zel_json_file_set_integer(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, int32_t value)
{
    return set_member(file, obj, key, zel::json_handle(json_integer(value)));
}

int zel_json_file_set_boolean(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, int value)
{
    return set_member(file, obj, key, zel::json_handle(json_boolean(value)));
}

int zel_json_remove_object(zel_json_file_t *file, zel_json_obj_t *parent, const char *key)
{
    if (file == nullptr || key == nullptr) return -1;
    json_t *const inside = parent_object(file, parent).object;
    const zel::json_handle removed(json_incref(json_object_get(inside, key)));
    if (removed == nullptr) return -1;
    std::unique_lock lock(file->writer.mutex());
    if (json_object_del(inside, key) != 0) return -1;
    file->handles.retire(removed.get());
    file->writer.changed(lock);
    return 0;
}
