#include "tree.h"

#include <zel_debug.h>

#include <algorithm>
#include <limits>

namespace zel::ember {

int32_t number_book::next_free()
{
    while (last_ < std::numeric_limits<int32_t>::max() && owners_.contains(last_ + 1))
        ++last_;
    return last_ == std::numeric_limits<int32_t>::max() ? 0 : last_ + 1;
}

number_book::answer number_book::number_for(const std::string &identifier, bool is_parameter, int32_t wanted)
{
    const auto known = entries_.find(identifier);
    // Some controllers cannot bear that a number they know comes back as another kind of element.
    if (wanted == 0)
        wanted = known != entries_.end() && known->second.is_parameter == is_parameter ? known->second.number : next_free();
    if (wanted <= 0)
        return {0, false};
    const auto owner = owners_.find(wanted);
    if (owner != owners_.end() && owner->second != identifier)
        return {0, false};
    // Whatever throws, throws before anything stands half noted.
    const bool given_before = owner != owners_.end();
    auto below = std::make_unique<number_book>();
    const auto added = owners_.emplace(wanted, identifier).first;
    try {
        entry &noted = entries_.try_emplace(identifier, entry{wanted, is_parameter, std::move(below)}).first->second;
        noted.number = wanted;
        noted.is_parameter = is_parameter;
    } catch (...) {
        if (!given_before)
            owners_.erase(added);
        throw;
    }
    return {wanted, given_before};
}

tree::tree(const void *owner) : owner_(owner), root_(std::make_unique<element>())
{
    root_->owner = owner;
    root_->numbers = &numbers_;
    elements_.push_back(root_.get());
}

element *tree::add(std::unique_ptr<element> draft, element *parent, int32_t number)
{
    element &above = parent != nullptr ? *parent : *root_;
    const char *name = draft->identifier.c_str();
    if (above.is_parameter() || depth_of(above) + 1 > glow::max_path) {
        log_message(0, "%s: '%s' cannot be put below '%s'\n", __func__, name, above.identifier.c_str());
        return nullptr;
    }
    if (!is_usable_identifier(draft->identifier)) {
        log_message(0, "%s: '%s' is no identifier: it must begin with a letter or '_' and must not contain '/'\n", __func__,
                    name);
        return nullptr;
    }
    if (std::ranges::any_of(above.children, [&](const auto &child) { return child->identifier == draft->identifier; })) {
        log_message(0, "%s: '%s' is there already\n", __func__, name);
        return nullptr;
    }
    make_room(above);
    const auto given = above.numbers->number_for(draft->identifier, draft->is_parameter(), number);
    draft->number = given.number;
    draft->has_come_back = given.was_given_before;
    if (draft->number == 0) {
        log_message(0, "%s: Number %d for '%s' is not free\n", __func__, number, name);
        return nullptr;
    }
    // From here on nothing fails.
    if (!draft->is_parameter())
        draft->numbers = &above.numbers->below(draft->identifier);
    draft->parent = &above;
    draft->owner = owner_;
    draft->serial = ++last_serial_;
    draft->index = free_.back();
    free_.pop_back();
    element *added = elements_[draft->index] = draft.get();
    const auto number_of = [](const auto &child) { return child->number; };
    const auto place = std::ranges::lower_bound(above.children, added->number, {}, number_of);
    above.children.insert(place, std::move(draft));
    return added;
}

void tree::make_room(element &above)
{
    if (free_.empty()) {
        elements_.push_back(nullptr);
        free_.reserve(elements_.capacity());
        free_.push_back(static_cast<uint32_t>(elements_.size() - 1));
    }
    if (above.children.size() == above.children.capacity())
        above.children.reserve(2 * above.children.size() + 4);
}

std::unique_ptr<element> tree::take(element &e)
{
    auto &siblings = e.parent->children;
    const auto place = std::ranges::find(siblings, &e, &std::unique_ptr<element>::get);
    auto taken = std::move(*place);
    siblings.erase(place);
    release_indexes(*taken);
    return taken;
}

void tree::release_indexes(element &e)
{
    for (const auto &child : e.children)
        release_indexes(*child);
    elements_[e.index] = nullptr;
    free_.push_back(e.index);     // add() reserved the room
    e.owner = nullptr;
}

element *tree::find(const glow::path &where)
{
    element *e = root_.get();
    for (const uint32_t number : where.view()) {
        const auto place = std::ranges::lower_bound(e->children, static_cast<int64_t>(number), {},
                                                    [](const auto &child) { return int64_t{child->number}; });
        if (place == e->children.end() || (*place)->number != static_cast<int64_t>(number))
            return nullptr;
        e = place->get();
    }
    return e;
}

size_t tree::depth_of(const element &e)
{
    size_t depth = 0;
    for (const element *at = &e; at->parent != nullptr; at = at->parent)
        ++depth;
    return depth;
}

glow::path tree::path_of(const element &e)
{
    glow::path where;
    where.count = static_cast<uint32_t>(depth_of(e));
    size_t i = where.count;
    for (const element *at = &e; at->parent != nullptr; at = at->parent)
        where.numbers[--i] = static_cast<uint32_t>(at->number);
    return where;
}

std::string identifier_path(const element &e)
{
    return e.parent == nullptr ? std::string() : identifier_path(*e.parent) + "/" + e.identifier;
}

bool is_usable_identifier(std::string_view identifier)
{
    if (identifier.empty() || identifier.find('/') != identifier.npos)
        return false;
    const auto first = static_cast<unsigned char>(identifier[0]);
    return first == '_' || first >= 0x80 || (first >= 'A' && first <= 'Z') || (first >= 'a' && first <= 'z');
}

}  // namespace zel::ember
