// What the fake platform's functions share. Tests use fake_platform.h.
#pragma once

#include <set>

#include "fake_platform.h"
#include "zel_debug.h"
#include "zel_sys.h"

struct zel_sys_gpio {
    int32_t number;
    int32_t direction;
    int fd;
};

struct zel_ipc_client {
    std::string name;   // "snmp", "sdisc"
    zel_ipc_client_cb_t callback;
    void *user_data;
};

struct zel_ember_element {
    std::string kind, name, text, entries;
    int access = 0;
    int64_t number = 0;
    void *user_data = nullptr;
    zel_ember_set_cb_t callback = nullptr;
    zel_ember_element *parent = nullptr;
    std::vector<zel_ember_element *> children;
};

struct zel_ember_session {
    int number = 0;   // 0: the host's provider
    std::string address;
    void *user_data = nullptr;
    zel_ember_connect_cb_t connect_cb = nullptr;
    std::vector<fake::consumer_request> requests, ever;
};

struct zel_net_config {
    bool udp_enabled = false;
    std::string friendly_name = "Studio 1";
    int interface_index = 7;
};

/// A JSON value of any kind; objects are what the library holds handles of.
struct zel_json_obj {
    enum kind_t { object, text, integer, boolean, other } kind = object;
    std::vector<std::pair<std::string, zel_json_obj *>> members;
    char *borrowed = nullptr;   // text
    int64_t number = 0;         // integer, boolean
    std::string raw;            // other
    std::string path;
};

struct zel_json_file {
    zel_json_obj *root;
};

namespace fake {

struct handler_call {
    std::string name;
    std::function<void(int32_t, uint8_t, uintptr_t)> hook;
};

struct fault {
    std::string call;
    int left;   // -1: without end
};

struct state {
    // description
    std::vector<gpio_phys_cfg_t> phys_cfg;
    bool phys_cfg_is_null = false;
    int32_t phys_count = -1, relay_count = 0, relay_base_pin = 201, virtual_count = 0, button_count = 0;
    zel_net_config udp_config, publish_config;
    bool has_udp_config = true, has_publish_config = true, has_parent = true;
    std::string product = "ZEL-TEST";
    uint16_t ember_port = 0;
    bool running = false;

    // journal and faults
    lines journal;
    std::vector<fault> faults;
    int nth_to_fail = -1, calls = 0;
    bool fired = false;

    // things held
    std::map<int32_t, int> levels;
    std::set<zel_sys_gpio *> pins;
    std::set<zel_ipc_client *> clients;
    std::vector<message> sent;
    std::unique_ptr<zel_ember_session> provider;
    zel_ember_element *ember_root = nullptr, *ember_parent = nullptr;
    std::set<const zel_ember_element *> elements;
    std::vector<zel_ember_session *> sessions;   // consumers; null when ended
    zel_json_obj *json_root = nullptr;
    std::set<const zel_json_obj *> json_objects;
    zel_json_file *file = nullptr;
    std::vector<const zel_web_url_handler_t *> web_handlers;
    std::vector<std::unique_ptr<handler_call>> handlers;
    int udp_queries = 0;
};

/// The state of the one unit there is; stops the process when there is none.
state &now();
[[noreturn]] void misuse(const char *format, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char *format, ...) __attribute__((format(printf, 1, 2)));
void write_line(const std::string &line);
/// A call that can fail: journals it, and tells whether it must. `quiet`: no line unless it fails.
bool must_fail(const std::string &line, bool quiet = false);

zel_json_obj *parse_json(const std::string &text);   // stops the process on bad text
std::string json_text(const zel_json_obj *value);
void release_json(zel_json_obj *value);
zel_json_obj *find_json(zel_json_obj *root, const std::string &path);
void put_json(zel_json_obj *root, const std::string &path, zel_json_obj *value);
zel_json_obj *new_json(zel_json_obj::kind_t kind);
void set_json_text(zel_json_obj *value, const std::string &text);

void release_elements(zel_ember_element *element);
std::string element_path(const zel_ember_element *element);
zel_ember_element *new_element(const char *kind, const char *name, zel_ember_element *parent);

}  // namespace fake
