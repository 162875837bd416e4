#include "remote_tree.h"

#include <algorithm>

namespace zel::ember {

namespace {

size_t count_below(const remote_element &e)
{
    size_t count = e.children.size();
    for (const auto &child : e.children)
        count += count_below(*child);
    return count;
}

auto place_of(remote_element &e, uint32_t number)
{
    return std::ranges::lower_bound(e.children, number, {}, [](const auto &child) { return child->number; });
}

}  // namespace

int64_t remote_element::effective_type() const
{
    if (type == glow::type_trigger)
        return type;
    if (type == glow::type_enum || is_enumeration)
        return glow::type_enum;
    switch (kind) {
    case glow::value_kind::integer: return type == glow::type_boolean ? type : int64_t{glow::type_integer};
    case glow::value_kind::boolean: return glow::type_boolean;
    case glow::value_kind::text: return glow::type_string;
    default: return glow::type_null;
    }
}

// The application takes the value for what its type says: a text that is to be an index is none.
bool remote_element::has_value() const
{
    if (kind == glow::value_kind::text)
        return effective_type() == glow::type_string;
    return kind == glow::value_kind::integer || kind == glow::value_kind::boolean;
}

// Some providers are put out by a value of another kind than they sent themselves, whatever the type says.
glow::value_kind remote_element::taken_kind() const
{
    using glow::value_kind;
    if (kind != value_kind::absent && kind != value_kind::null)
        return has_value() ? kind : value_kind::absent;
    switch (is_enumeration ? int64_t{glow::type_enum} : type) {
    case glow::type_integer:
    case glow::type_trigger:
    case glow::type_enum: return value_kind::integer;
    case glow::type_boolean: return value_kind::boolean;
    case glow::type_string: return value_kind::text;
    default: return value_kind::absent;
    }
}

void remote_tree::clear()
{
    root_ = {};
    count_ = 0;
    ++generation_;
}

remote_element *remote_tree::find(const glow::path &where)
{
    remote_element *e = &root_;
    for (const uint32_t number : where.view()) {
        const auto place = place_of(*e, number);
        if (place == e->children.end() || (*place)->number != number)
            return nullptr;
        e = place->get();
    }
    return e;
}

remote_element *remote_tree::child_named(remote_element &e, std::string_view identifier)
{
    remote_element *found = nullptr;
    for (const auto &child : e.children)
        if (child->identifier == identifier && (found == nullptr || (!found->online && child->online)))
            found = child.get();
    return found;
}

glow::path remote_tree::path_of(const remote_element &e)
{
    if (e.parent == nullptr)
        return {};
    glow::path where = path_of(*e.parent);
    (void)where.push(e.number);   // every element was found by such a path
    return where;
}

// An element is entered when its parent is known and it is named: an update of something never asked for names nothing.
remote_element *remote_tree::known_or_new(const glow::element &said, bool &changed)
{
    remote_element *parent = find(said.where.parent());
    if (parent == nullptr || said.where.count == 0)
        return nullptr;
    const uint32_t number = said.where.numbers[said.where.count - 1];
    const auto place = place_of(*parent, number);
    const bool is_known = place != parent->children.end() && (*place)->number == number;
    const auto &name = said.contents.identifier;
    if (is_known && (!name || *name == (*place)->identifier))
        return place->get();
    if (!name || name->size() > max_text || (!is_known && count_ == max_elements))
        return nullptr;
    auto fresh = std::make_unique<remote_element>();
    fresh->number = number;
    fresh->parent = parent;
    fresh->identifier = *name;
    changed = true;
    ++generation_;
    if (is_known) {                 // against the rules, yet no reason to show one element's value as another's
        count_ -= count_below(**place);
        *place = std::move(fresh);
        return place->get();
    }
    ++count_;
    return parent->children.insert(place, std::move(fresh))->get();
}

remote_element *remote_tree::merge(const glow::element &said, bool &changed)
{
    changed = false;
    remote_element *e = known_or_new(said, changed);
    if (e != nullptr && said.has_contents)
        changed |= merge_contents(*e, said);
    return e;
}

// What went offline may have been forgotten by the provider along with our interest in it, and may come back with other
// values: everything below is learned anew then.
void remote_tree::set_online(remote_element &e, bool online)
{
    if (e.online == online)
        return;
    e.online = online;
    ++generation_;
    e.directory = asking::not_asked;
    count_ -= count_below(e);
    e.children.clear();
}

bool remote_tree::merge_contents(remote_element &e, const glow::element &said)
{
    const bool was_online = e.online;
    const auto &contents = said.contents;
    e.is_parameter = said.is_parameter;
    if (contents.online)
        set_online(e, *contents.online);
    else if (contents.current.kind != glow::value_kind::absent || contents.identifier)
        set_online(e, true);        // a value implies it, and so does a full description without the field
    if (contents.type)
        e.type = *contents.type;
    if (contents.access)
        e.access = *contents.access;
    if (contents.enumeration)
        e.is_enumeration = !contents.enumeration->empty();
    if (contents.has_enum_map)
        e.is_enumeration = true;
    return merge_value(e, contents) || e.online != was_online;
}

bool remote_tree::merge_value(remote_element &e, const glow::contents &said)
{
    const auto &value = said.current;
    if (value.kind == glow::value_kind::absent)
        return false;
    const bool is_text = value.kind == glow::value_kind::text;
    const std::string_view text = is_text ? value.text.substr(0, max_text) : std::string_view();
    if (e.kind == value.kind && e.integer == value.integer && e.text == text)
        return false;
    e.text = text;
    e.kind = value.kind;
    e.integer = value.integer;
    return true;
}

}  // namespace zel::ember
