// The configuration file: a tree in memory whose texts and objects are released as strictly as the platform may.
#include <algorithm>
#include <cstdlib>

#include "fake_state.h"

namespace fake {

namespace {

void release_text(zel_json_obj *value)
{
    if (value->borrowed == nullptr)
        return;
    std::memset(value->borrowed, 0xDD, std::strlen(value->borrowed));   // a stale reader sees it without a sanitizer, too
    delete[] value->borrowed;
    value->borrowed = nullptr;
}

zel_json_obj *member(const zel_json_obj *object, const std::string &key)
{
    for (const auto &[name, value] : object->members)
        if (name == key)
            return value;
    return nullptr;
}

void give_path(zel_json_obj *value, const std::string &path)
{
    value->path = path;
    for (auto &[key, child] : value->members)
        give_path(child, path.empty() ? key : path + "/" + key);
}

void set_member(zel_json_obj *object, const std::string &key, zel_json_obj *value)
{
    give_path(value, object->path.empty() ? key : object->path + "/" + key);
    for (auto &[name, old] : object->members) {
        if (name != key)
            continue;
        release_json(old);
        old = value;
        return;
    }
    object->members.emplace_back(key, value);
}

zel_json_obj *child_object(zel_json_obj *object, const std::string &key)
{
    zel_json_obj *child = member(object, key);
    if (child == nullptr) {
        child = new_json(zel_json_obj::object);
        set_member(object, key, child);
    }
    return child;
}

std::string quoted(const std::string &text)
{
    std::string result = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            result += '\\';
        if (c == '\n')
            result += "\\n";
        else
            result += c;
    }
    return result + "\"";
}

/// Reads just enough JSON for the tests' configurations.
class reader {
public:
    explicit reader(const std::string &text) : at(text.c_str()), begin(at) {}

    zel_json_obj *whole()
    {
        zel_json_obj *value = any();
        blank();
        if (*at != 0)
            fail();
        return value;
    }

private:
    const char *at, *begin;

    [[noreturn]] void fail()
    {
        misuse("the test's configuration is no JSON at character %d: %.40s", static_cast<int>(at - begin), at);
    }

    void blank()
    {
        while (*at == ' ' || *at == '\n' || *at == '\t' || *at == '\r')
            ++at;
    }

    bool take(char c)
    {
        blank();
        return *at == c ? (++at, true) : false;
    }

    void need(char c)
    {
        if (!take(c))
            fail();
    }

    std::string string()
    {
        need('"');
        std::string text;
        for (; *at != '"'; ++at) {
            if (*at == 0)
                fail();
            const bool escaped = *at == '\\';
            if (escaped)
                ++at;
            text += escaped && *at == 'n' ? '\n' : *at;
        }
        ++at;
        return text;
    }

    zel_json_obj *object()
    {
        zel_json_obj *result = new_json(zel_json_obj::object);
        if (take('}'))
            return result;
        do {
            const std::string key = string();
            need(':');
            set_member(result, key, any());
        } while (take(','));
        need('}');
        return result;
    }

    zel_json_obj *array()
    {
        const char *first = at;
        if (!take(']')) {
            do
                release_json(any());
            while (take(','));
            need(']');
        }
        zel_json_obj *result = new_json(zel_json_obj::other);
        result->raw = "[" + std::string(first, at);
        return result;
    }

    zel_json_obj *word(const char *text, zel_json_obj::kind_t kind, int number)
    {
        const size_t length = std::strlen(text);
        if (std::strncmp(at, text, length) != 0)
            fail();
        at += length;
        zel_json_obj *result = new_json(kind);
        result->number = number;
        result->raw = text;
        return result;
    }

    zel_json_obj *number()
    {
        char *end = nullptr;
        zel_json_obj *result = new_json(zel_json_obj::integer);
        result->number = std::strtoll(at, &end, 10);
        if (end == at)
            fail();
        if (*end == '.' || *end == 'e') {   // a fraction is no integer
            result->kind = zel_json_obj::other;
            std::strtod(at, &end);
            result->raw = std::string(at, static_cast<size_t>(end - at));
        }
        at = end;
        return result;
    }

    zel_json_obj *any()
    {
        if (take('{'))
            return object();
        if (take('['))
            return array();
        switch (*at) {
        case '"': {
            zel_json_obj *result = new_json(zel_json_obj::text);
            set_json_text(result, string());
            return result;
        }
        case 't': return word("true", zel_json_obj::boolean, 1);
        case 'f': return word("false", zel_json_obj::boolean, 0);
        case 'n': return word("null", zel_json_obj::other, 0);
        default: return number();
        }
    }
};

/// The object meant by a handle; null stands for the root.
zel_json_obj *object_of(zel_json_file *file, zel_json_obj *handle, const char *call)
{
    if (file == nullptr || file != now().file)
        misuse("json %s on a file that is not open", call);
    if (handle == nullptr)
        return file->root;
    if (now().json_objects.count(handle) == 0)
        misuse("json %s on an object that was removed", call);
    return handle;
}

std::string path_of(const zel_json_obj *object, const char *key) { return object->path.empty() ? key : object->path + "/" + key; }

bool is_utf8(const char *text)
{
    for (const auto *p = reinterpret_cast<const unsigned char *>(text); *p != 0;) {
        const int more = *p < 0x80 ? 0 : *p >= 0xC2 && *p < 0xE0 ? 1 : (*p & 0xF0) == 0xE0 ? 2 : *p >= 0xF0 && *p < 0xF5 ? 3 : -1;
        if (more < 0)
            return false;
        ++p;
        for (int i = 0; i < more; ++i, ++p)
            if ((*p & 0xC0) != 0x80)
                return false;
    }
    return true;
}

int set_value(zel_json_file *file, zel_json_obj *handle, const char *key, zel_json_obj *value)
{
    zel_json_obj *object = object_of(file, handle, "set");
    if (must_fail("json set " + path_of(object, key) + " " + json_text(value))) {
        release_json(value);
        return -1;
    }
    set_member(object, key, value);
    return 0;
}

const zel_json_obj *load(zel_json_file *file, zel_json_obj *handle, const char *key, zel_json_obj::kind_t kind)
{
    const zel_json_obj *value = member(object_of(file, handle, "load"), key);
    return value != nullptr && value->kind == kind ? value : nullptr;
}

}  // namespace

zel_json_obj *new_json(zel_json_obj::kind_t kind)
{
    auto *value = new zel_json_obj;
    value->kind = kind;
    if (kind == zel_json_obj::object)
        now().json_objects.insert(value);
    return value;
}

void set_json_text(zel_json_obj *value, const std::string &text)
{
    release_text(value);
    value->borrowed = new char[text.size() + 1];
    std::memcpy(value->borrowed, text.c_str(), text.size() + 1);
}

zel_json_obj *parse_json(const std::string &text) { return reader(text).whole(); }

std::string json_text(const zel_json_obj *value)
{
    switch (value->kind) {
    case zel_json_obj::text: return quoted(value->borrowed);
    case zel_json_obj::integer: return std::to_string(value->number);
    case zel_json_obj::boolean: return value->number != 0 ? "true" : "false";
    case zel_json_obj::other: return value->raw;
    case zel_json_obj::object: break;
    }
    std::string result;
    for (const auto &[key, child] : value->members)
        result += (result.empty() ? "" : ", ") + quoted(key) + ": " + json_text(child);
    return "{" + result + "}";
}

void release_json(zel_json_obj *value)
{
    if (value == nullptr)
        return;
    for (const auto &[key, child] : value->members)
        release_json(child);
    release_text(value);
    now().json_objects.erase(value);
    delete value;
}

zel_json_obj *find_json(zel_json_obj *root, const std::string &path)
{
    size_t from = 0;
    while (root != nullptr && from < path.size()) {
        const size_t to = std::min(path.find('/', from), path.size());
        root = member(root, path.substr(from, to - from));
        from = to + 1;
    }
    return root;
}

void put_json(zel_json_obj *root, const std::string &path, zel_json_obj *value)
{
    size_t from = 0;
    for (size_t to; (to = path.find('/', from)) != std::string::npos; from = to + 1)
        root = child_object(root, path.substr(from, to - from));
    set_member(root, path.substr(from), value);
}

bool unit::file_is_open() const { return my->file != nullptr; }

std::string unit::json(const std::string &path) const
{
    const zel_json_obj *value = find_json(my->json_root, path);
    return value == nullptr ? "absent" : json_text(value);
}

}  // namespace fake

using namespace fake;

extern "C" {

void zel_json_init(void) { write_line("json init"); }

zel_json_file_t *zel_json_file_init(const char *path)
{
    if (must_fail(format("json open %s", path)))
        return nullptr;
    if (now().file != nullptr)
        misuse("the configuration file is opened twice");
    return now().file = new zel_json_file{now().json_root};
}

void zel_json_file_term(zel_json_file_t *file)
{
    if (file == nullptr) {
        write_line("json close null");
        return;
    }
    if (file != now().file)
        misuse("json close of a file that is not open");
    write_line("json close");
    // What was written stays for the test to read; every handle and text that the library still holds is gone.
    zel_json_obj *copy = parse_json(json_text(file->root));
    release_json(file->root);
    now().json_root = copy;
    now().file = nullptr;
    delete file;
}

zel_json_obj_t *zel_json_file_load_object(zel_json_file_t *file, zel_json_obj_t *parent, const char *key)
{
    zel_json_obj *object = object_of(file, parent, "load");
    if (must_fail("json load " + path_of(object, key), true))
        return nullptr;
    zel_json_obj *found = member(object, key);
    if (found == nullptr)
        write_line("json make " + path_of(object, key));
    else if (found->kind != zel_json_obj::object)
        return nullptr;
    return child_object(object, key);
}

const char *zel_json_file_load_string(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, const char *default_value)
{
    const zel_json_obj *value = load(file, obj, key, zel_json_obj::text);
    return value == nullptr ? default_value : value->borrowed;
}

int32_t zel_json_file_load_integer(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, int32_t default_value)
{
    return zel_json_file_integer_validate(file, obj, key, default_value, INT32_MIN, INT32_MAX);
}

int zel_json_file_load_boolean(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, int default_value)
{
    const zel_json_obj *value = load(file, obj, key, zel_json_obj::boolean);
    return value == nullptr ? default_value : value->number != 0;
}

int32_t zel_json_file_integer_validate(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, int32_t default_value,
                                       int32_t min, int32_t max)
{
    const zel_json_obj *value = load(file, obj, key, zel_json_obj::integer);
    return value == nullptr || value->number < min || value->number > max ? default_value : static_cast<int32_t>(value->number);
}

int zel_json_file_set_string(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, const char *value)
{
    if (value == nullptr || !is_utf8(value)) {
        write_line(format("json set %s to no text", key));
        return -1;
    }
    zel_json_obj *text = new_json(zel_json_obj::text);
    set_json_text(text, value);   // copied first: the new text may be the old one
    return set_value(file, obj, key, text);
}

int zel_json_file_set_integer(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, int32_t value)
{
    zel_json_obj *number = new_json(zel_json_obj::integer);
    number->number = value;
    return set_value(file, obj, key, number);
}

int zel_json_file_set_boolean(zel_json_file_t *file, zel_json_obj_t *obj, const char *key, int value)
{
    zel_json_obj *flag = new_json(zel_json_obj::boolean);
    flag->number = value != 0;
    return set_value(file, obj, key, flag);
}

int zel_json_remove_object(zel_json_file_t *file, zel_json_obj_t *parent, const char *key)
{
    zel_json_obj *object = object_of(file, parent, "remove");
    zel_json_obj *value = member(object, key);
    const std::string line = "json remove " + path_of(object, key);
    if (must_fail(value == nullptr ? line + " (absent)" : line) || value == nullptr)
        return -1;
    std::erase_if(object->members, [&](const auto &m) { return m.second == value; });
    release_json(value);
    return 0;
}

}  // extern "C"
