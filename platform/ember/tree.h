// The tree that a provider offers. Elements are known to the application by their address, to peers by numbers, and to the
// provider's own tables by a small index that is used again after the element is gone.
#pragma once

#include <zel_ember.h>

#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "glow.h"
#include "shared_message.h"

namespace zel::ember {

enum class element_kind : uint8_t { node, string, enumeration, boolean };

// Which numbers were ever given under one parent, and to which identifiers. It outlives the elements: a number that a
// controller has once seen for one identifier never means another.
class number_book {
public:
    struct answer { int32_t number; bool was_given_before; };
    // A number for the identifier: the one asked for, or if that is 0 the one it had as the same kind of element, or the next
    // free one. 0 if the one asked for belongs to another identifier or there is none left. May throw std::bad_alloc, then
    // nothing is noted.
    answer number_for(const std::string &identifier, bool is_parameter, int32_t wanted);
    number_book &below(const std::string &identifier) { return *entries_.at(identifier).below; }

private:
    struct entry { int32_t number; bool is_parameter; std::unique_ptr<number_book> below; };

    int32_t next_free();

    std::map<std::string, entry, std::less<>> entries_;
    std::map<int32_t, std::string> owners_;
    int32_t last_ = 0;
};

}  // namespace zel::ember

struct zel_ember_element {
    zel::ember::element_kind kind = zel::ember::element_kind::node;
    int access = 0;
    int32_t number = 0;
    uint32_t index = 0;                    // in the provider's and its clients' tables
    uint64_t serial = 0;                   // never used twice
    bool has_come_back = false;            // controllers may know it as one that went
    zel_ember_element *parent = nullptr;   // null for the root, which has no number and is never named
    const void *owner = nullptr;           // the session
    zel::ember::number_book *numbers = nullptr;   // for what is below; null for a parameter
    std::string identifier, description;
    std::vector<std::unique_ptr<zel_ember_element>> children;   // by number

    int64_t integer = 0;
    std::string text, entries;
    void *user_data = nullptr;
    zel_ember_set_cb_t callback = nullptr;
    zel::ember::message_ref notice;        // the present value as a message, once somebody needed it

    bool is_parameter() const { return kind != zel::ember::element_kind::node; }
    bool is_text() const { return kind == zel::ember::element_kind::string; }
    bool is_writable() const { return is_parameter() && (access & zel::ember::glow::access_write); }
};

namespace zel::ember {

using element = zel_ember_element;

class tree {
public:
    explicit tree(const void *owner);

    element &root() { return *root_; }
    // Give the draft its place and number (0: any). Null, with a line in the log, if that is impossible. May throw
    // std::bad_alloc.
    element *add(std::unique_ptr<element> draft, element *parent, int32_t number);
    // Take an element out, with all below it; the caller releases it.
    std::unique_ptr<element> take(element &e);

    element *find(const glow::path &where);
    element *at_index(uint32_t index) { return index < elements_.size() ? elements_[index] : nullptr; }
    size_t index_count() const { return elements_.size(); }
    bool owns(const element *e) const { return e != nullptr && e->owner == owner_; }

    static glow::path path_of(const element &e);
    static size_t depth_of(const element &e);

private:
    void make_room(element &above);      // for one more element, here and in the index
    void release_indexes(element &e);

    const void *owner_;
    uint64_t last_serial_ = 0;
    number_book numbers_;
    std::vector<element *> elements_;      // by index; null where free
    std::vector<uint32_t> free_;
    std::unique_ptr<element> root_;
};

// Every identifier from the root down, each after a "/". May throw std::bad_alloc.
std::string identifier_path(const element &e);
bool is_usable_identifier(std::string_view identifier);

}  // namespace zel::ember
