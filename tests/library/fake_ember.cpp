// The provider's tree and the consumer sessions.
#include <algorithm>

#include "fake_state.h"

namespace fake {

namespace {

zel_ember_element *find_element(const state &s, const std::string &path)
{
    zel_ember_element *element = s.ember_parent;
    for (size_t from = 0; element != nullptr && from < path.size();) {
        const size_t to = std::min(path.find('/', from), path.size());
        const std::string name = path.substr(from, to - from);
        const auto &list = element->children;
        const auto found = std::find_if(list.begin(), list.end(), [&](const auto *child) { return child->name == name; });
        element = found == list.end() ? nullptr : *found;
        from = to + 1;
    }
    return element;
}

std::string value_text(const zel_ember_element *element)
{
    return element->kind == "string" ? element->text : std::to_string(element->number);
}

std::string described(const zel_ember_element *element)
{
    if (element->kind == "node")
        return "node " + element_path(element);
    std::string line = element->kind + " " + element_path(element) + " = " + value_text(element);
    if (element->kind == "enum") {
        std::string entries = element->entries;
        std::replace(entries.begin(), entries.end(), '\n', '|');
        line += " [" + entries + "]";
    }
    return line + (element->access == 3 ? " rw" : element->access == 1 ? " r" : " access " + std::to_string(element->access));
}

void list_tree(const zel_ember_element *element, lines &result)
{
    for (const zel_ember_element *child : element->children) {
        result.push_back(described(child));
        list_tree(child, result);
    }
}

zel_ember_element *added(zel_ember_session *provider, zel_ember_element *element)
{
    state &s = now();
    zel_ember_element *parent = element->parent == nullptr ? s.ember_root : element->parent;
    if (provider != nullptr && provider != s.provider.get())
        misuse("ember add on a session that is no provider");
    if (provider != nullptr && s.elements.count(parent) == 0)
        misuse("ember add below an element that was removed");
    element->parent = parent;
    if (provider == nullptr || must_fail("ember add " + element_path(element), true)) {
        delete element;
        return nullptr;
    }
    parent->children.push_back(element);
    s.elements.insert(element);
    write_line("ember add " + described(element));
    return element;
}

zel_ember_element *parameter_element(const char *kind, const char *name, int access, void *user_data, zel_ember_set_cb_t callback,
                                     zel_ember_element *parent)
{
    auto *element = new zel_ember_element;
    element->kind = kind;
    element->name = name;
    element->access = access;
    element->user_data = user_data;
    element->callback = callback;
    element->parent = parent;
    return element;
}

int64_t native_integer(const void *value, size_t length)
{
    switch (length) {
    case 1: return *static_cast<const uint8_t *>(value);
    case 2: { int16_t n; return std::memcpy(&n, value, sizeof n), n; }
    case 4: { int32_t n; return std::memcpy(&n, value, sizeof n), n; }
    case 8: { int64_t n; return std::memcpy(&n, value, sizeof n), n; }
    default: misuse("ember set with an integer of %zu bytes", length);
    }
}

/// False for a null session; one that has ended stops the process.
bool usable(const zel_ember_session *session, const char *call)
{
    if (session == nullptr) {
        write_line(format("consumer null %s", call));
        return false;
    }
    const auto &list = now().sessions;
    if (std::find(list.begin(), list.end(), session) == list.end())
        misuse("ember %s on a session that is no consumer or has ended", call);
    return true;
}

zel_ember_session *consumer(const state &s, int number)
{
    if (number < 1 || number > static_cast<int>(s.sessions.size()) || s.sessions[static_cast<size_t>(number) - 1] == nullptr)
        misuse("there is no consumer session %d", number);
    return s.sessions[static_cast<size_t>(number) - 1];
}

/// With or without the leading "/".
bool same_path(const std::string &a, const std::string &b)
{
    return a.substr(a.find_first_not_of('/')) == b.substr(b.find_first_not_of('/'));
}

auto request_at(zel_ember_session *session, const std::string &path)
{
    return std::find_if(session->requests.begin(), session->requests.end(),
                        [&](const auto &r) { return same_path(r.path, path); });
}

void call_back(consumer_request request, const int64_t *value)
{
    const std::unique_ptr<int64_t> copy(value == nullptr ? nullptr : new int64_t(*value));
    request.callback(request.user_data, request.path.c_str(), 0, copy.get());
}

void deliver_value(zel_ember_session *session, const std::string &path, const int64_t *value)
{
    const auto found = request_at(session, path);
    if (found == session->requests.end())
        misuse("consumer session %d does not follow %s", session->number, path.c_str());
    call_back(*found, value);
}

int write_element(zel_ember_element *element, const void *value)
{
    if (element == nullptr || element->access != 3)
        return -2;
    if (element->callback == nullptr)
        return 0;
    return element->callback(element->user_data, "10.0.0.9", 40001, element, value);
}

}  // namespace

zel_ember_element *new_element(const char *kind, const char *name, zel_ember_element *parent)
{
    auto *element = new zel_ember_element;
    element->kind = kind;
    element->name = name;
    element->parent = parent;
    if (parent != nullptr)
        parent->children.push_back(element);
    now().elements.insert(element);
    return element;
}

void release_elements(zel_ember_element *element)
{
    if (element == nullptr)
        return;
    for (zel_ember_element *child : element->children)
        release_elements(child);
    now().elements.erase(element);
    delete element;
}

/// From the host's node for the library downwards; elements beside it have their whole path.
std::string element_path(const zel_ember_element *element)
{
    std::string path = element->name;
    for (const zel_ember_element *up = element->parent; up != nullptr && up != now().ember_parent; up = up->parent)
        path = up->name + "/" + path;
    return path;
}

zel_ember_session_t *unit::provider() const { return my->provider.get(); }
zel_ember_element_t *unit::parent() const { return my->ember_parent; }

parameter unit::parameter_of(const std::string &path) const
{
    const zel_ember_element *e = find_element(*my, path);
    if (e == nullptr)
        return {};
    return {true, e->kind, e->access, e->number, e->text, e->entries, e->user_data, e->callback != nullptr};
}

std::string unit::value_of(const std::string &path) const
{
    const zel_ember_element *element = find_element(*my, path);
    return element == nullptr ? "absent" : value_text(element);
}

lines unit::tree() const
{
    lines result;
    if (my->ember_parent != nullptr)
        list_tree(my->ember_parent, result);
    return result;
}

int unit::write(const std::string &path, int64_t value)
{
    zel_ember_element *element = find_element(*my, path);
    if (element != nullptr && element->access == 3)
        element->number = value;
    const std::unique_ptr<int64_t> copy(new int64_t(value));
    return write_element(element, copy.get());
}

int unit::write(const std::string &path, const char *value)
{
    zel_ember_element *element = find_element(*my, path);
    if (element != nullptr && element->access == 3)
        element->text = value;
    const std::unique_ptr<char[]> copy(strcpy(new char[std::strlen(value) + 1], value));
    return write_element(element, copy.get());
}

std::vector<int> unit::consumers() const
{
    std::vector<int> result;
    for (const zel_ember_session *session : my->sessions)
        if (session != nullptr)
            result.push_back(session->number);
    return result;
}

std::string unit::consumer_address(int session) const { return consumer(*my, session)->address; }
void *unit::consumer_user_data(int session) const { return consumer(*my, session)->user_data; }
std::vector<consumer_request> unit::requests(int session) const { return consumer(*my, session)->requests; }
size_t unit::requests_ever(int session) const { return consumer(*my, session)->ever.size(); }

bool unit::follows(int session, const std::string &path) const
{
    zel_ember_session *s = consumer(*my, session);
    return request_at(s, path) != s->requests.end();
}

void unit::connected(int session, bool made, const char *address, uint16_t port)
{
    zel_ember_session *s = consumer(*my, session);
    s->connect_cb(s->user_data, made, address, port);
}

void unit::value(int session, const std::string &path, int64_t value) { deliver_value(consumer(*my, session), path, &value); }
void unit::no_value(int session, const std::string &path) { deliver_value(consumer(*my, session), path, nullptr); }

void unit::late_value(int session, size_t nth_request, const int64_t *value)
{
    call_back(consumer(*my, session)->ever.at(nth_request), value);
}

}  // namespace fake

using namespace fake;

extern "C" {

zel_ember_session_t *zel_ember_session_init(const zel_ember_session_config_t *config)
{
    if (config->provider_addr == nullptr)
        misuse("the library makes no provider");
    state &s = now();
    const int number = static_cast<int>(s.sessions.size()) + 1;
    const std::string timeout = config->timeout_s == nullptr ? "default" : std::to_string(*config->timeout_s);
    if (must_fail(format("consumer %d connect %s (timeout %s)", number, config->provider_addr, timeout.c_str())))
        return nullptr;
    auto *session = new zel_ember_session;
    session->number = number;
    session->address = config->provider_addr;
    session->user_data = config->user_data;
    session->connect_cb = config->connect_cb;
    s.sessions.push_back(session);
    return session;
}

void zel_ember_session_term(zel_ember_session_t *session)
{
    if (session == nullptr || !usable(session, "end"))
        return;
    write_line(format("consumer %d end", session->number));
    now().sessions[static_cast<size_t>(session->number) - 1] = nullptr;
    delete session;
}

void zel_ember_set_fds(zel_ember_session_t *session, fd_set *, int *)
{
    if (usable(session, "set_fds"))
        write_line(format("consumer %d set_fds", session->number));
}

void zel_ember_process_fds(zel_ember_session_t *session, fd_set *)
{
    if (usable(session, "process_fds"))
        write_line(format("consumer %d process_fds", session->number));
}

zel_ember_element_t *zel_ember_add_node(zel_ember_session_t *provider, const char *name, const char *, int32_t,
                                        zel_ember_element_t *parent)
{
    return added(provider, parameter_element("node", name, 0, nullptr, nullptr, parent));
}

zel_ember_element_t *zel_ember_add_string_param(zel_ember_session_t *provider, const char *name, const char *, int32_t,
                                                int access, const char *value, void *user_data, zel_ember_set_cb_t callback,
                                                zel_ember_element_t *parent)
{
    zel_ember_element *element = parameter_element("string", name, access, user_data, callback, parent);
    element->text = value == nullptr ? "" : value;
    return added(provider, element);
}

zel_ember_element_t *zel_ember_add_enum_param(zel_ember_session_t *provider, const char *name, const char *, int32_t, int access,
                                              int64_t value, const char *entries, void *user_data, zel_ember_set_cb_t callback,
                                              zel_ember_element_t *parent)
{
    zel_ember_element *element = parameter_element("enum", name, access, user_data, callback, parent);
    element->number = value;
    element->entries = entries;
    return added(provider, element);
}

zel_ember_element_t *zel_ember_add_boolean_param(zel_ember_session_t *provider, const char *name, const char *, int32_t,
                                                 int access, int value, void *user_data, zel_ember_set_cb_t callback,
                                                 zel_ember_element_t *parent)
{
    zel_ember_element *element = parameter_element("boolean", name, access, user_data, callback, parent);
    element->number = value;
    return added(provider, element);
}

int zel_ember_set_param(zel_ember_session_t *session, const char *, uint32_t, uint32_t, zel_ember_element_t *param,
                        const void *value, size_t length, void *, zel_ember_value_cb_t)
{
    if (session == nullptr || param == nullptr) {
        write_line("ember set null");
        return -1;
    }
    if (now().elements.count(param) == 0)
        misuse("ember set of an element that was removed");
    const bool is_text = param->kind == "string";
    if (is_text && std::memchr(value, 0, length) != static_cast<const char *>(value) + length - 1)
        misuse("ember set of %s with %zu bytes that are no text with its zero", element_path(param).c_str(), length);
    const std::string text = is_text ? static_cast<const char *>(value) : "";
    const int64_t number = is_text ? 0 : native_integer(value, length);
    const std::string shown = is_text ? "\"" + text + "\"" : std::to_string(number);
    if (must_fail(format("ember set %s %s (%zu bytes)", element_path(param).c_str(), shown.c_str(), length)))
        return -1;
    param->text = text;
    param->number = number;
    return 0;
}

int zel_ember_get_param(zel_ember_session_t *session, const char *path, void *user_data, zel_ember_value_cb_t callback)
{
    if (!usable(session, "get") || must_fail(format("consumer %d get %s", session->number, path)))
        return -1;
    const consumer_request request{path, user_data, callback};
    const auto found = request_at(session, path);
    if (found != session->requests.end())
        *found = request;
    else
        session->requests.push_back(request);
    session->ever.push_back(request);
    return 0;
}

int zel_ember_clear_param_cb(zel_ember_session_t *session, const char *path)
{
    if (!usable(session, "clear") || must_fail(format("consumer %d clear %s", session->number, path)))
        return -1;
    const auto found = request_at(session, path);
    if (found == session->requests.end())
        return -1;
    session->requests.erase(found);
    return 0;
}

int zel_ember_remove_element(zel_ember_session_t *provider, zel_ember_element_t *element)
{
    if (provider == nullptr || element == nullptr) {
        write_line("ember remove null");
        return -1;
    }
    if (now().elements.count(element) == 0)
        misuse("ember remove of an element that was removed");
    if (must_fail("ember remove " + element_path(element)))
        return -1;
    std::erase(element->parent->children, element);
    release_elements(element);
    return 0;
}

int zel_ember_get_path(zel_ember_session_t *provider, const zel_ember_element_t *element, char *buf, size_t size)
{
    if (provider == nullptr || element == nullptr || now().elements.count(element) == 0)
        misuse("ember path of an element that does not exist");
    std::string path;
    for (const zel_ember_element *up = element; up->parent != nullptr; up = up->parent)
        path = "/" + up->name + path;
    if (must_fail("ember path " + path, true) || path.size() + 1 > size)
        return -1;
    std::memcpy(buf, path.c_str(), path.size() + 1);
    return 0;
}

}  // extern "C"
