// What a consumer has learned of a provider's tree on one connection. Numbers and what hangs on them are worth nothing on the
// next one.
#pragma once

#include <memory>
#include <string>

#include "glow.h"

namespace zel::ember {

enum class asking : uint8_t { not_asked, asked, answered, unanswered };

struct remote_element {
    uint32_t number = 0;
    remote_element *parent = nullptr;
    std::string identifier;
    bool is_parameter = false;
    bool online = true;
    bool followed = false;             // the application follows or sets this parameter

    asking directory = asking::not_asked;
    int64_t since = 0;                 // when `directory` became what it is

    glow::value_kind kind = glow::value_kind::absent;
    int64_t integer = 0;
    std::string text;
    int64_t type = glow::type_null;    // as the provider declared it
    bool is_enumeration = false;
    int64_t access = glow::access_read;

    std::vector<std::unique_ptr<remote_element>> children;   // by number

    // The type as controllers know it.
    int64_t effective_type() const;
    bool has_value() const;            // one that can be handed to the application
    bool is_writable() const { return is_parameter && (access & glow::access_write); }
    // The kind of value that can be sent to it: integer, boolean or text; absent if it takes none of them.
    glow::value_kind taken_kind() const;
};

class remote_tree {
public:
    // A foreign tree is walked along the followed paths only; what is larger than this is no control tree.
    static constexpr size_t max_elements = 65536;
    static constexpr size_t max_text = 64 * 1024;

    remote_element &root() { return root_; }
    // Grows whenever an element comes, goes, or changes its name or state: until then, what was found stays where it is.
    uint64_t generation() const { return generation_; }
    void clear();

    remote_element *find(const glow::path &where);
    // An element that is online comes before one that is not.
    static remote_element *child_named(remote_element &e, std::string_view identifier);
    static glow::path path_of(const remote_element &e);

    // Take over what a message says. The element, or null if it says nothing of one that is known or can be. May throw
    // std::bad_alloc. `changed` tells whether there is anything new.
    remote_element *merge(const glow::element &said, bool &changed);

private:
    remote_element *known_or_new(const glow::element &said, bool &changed);
    bool merge_contents(remote_element &e, const glow::element &said);
    static bool merge_value(remote_element &e, const glow::contents &said);
    void set_online(remote_element &e, bool online);

    remote_element root_;
    size_t count_ = 0;
    uint64_t generation_ = 1;
};

}  // namespace zel::ember
