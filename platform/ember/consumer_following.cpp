// How a consumer gets from a path of identifiers to a value: directory by directory, one request at a time.

#include <zel_debug.h>

#include <algorithm>

#include "consumer.h"

namespace zel::ember {

std::vector<std::string> split_path(std::string_view path)
{
    std::vector<std::string> steps;
    if (path.starts_with('/'))
        path.remove_prefix(1);
    for (;;) {
        const size_t end = path.find('/');
        if (end == 0 || path.empty() || steps.size() == glow::max_path)
            return {};
        steps.emplace_back(path.substr(0, end));
        if (end == path.npos)
            return steps;
        path.remove_prefix(end + 1);
    }
}

bool consumer::follow(const char *path, void *user_data, zel_ember_value_cb_t callback)
{
    auto fresh = std::make_shared<follower>();
    fresh->path = path;
    fresh->steps = split_path(path);
    if (fresh->steps.empty())
        return false;
    fresh->user_data = user_data;
    fresh->callback = callback;
    const auto same = std::ranges::find(followers_, fresh->steps, [](const auto &f) { return f->steps; });
    if (same == followers_.end()) {
        followers_.push_back(std::move(fresh));
    } else {
        (*same)->active = false;
        *same = std::move(fresh);
        look_again(stand(**same));
    }
    due_at(now());
    return true;
}

// Asked again for what was not there.
void consumer::look_again(const standing &at)
{
    if (at.what == standing::is::no_value && at.at->directory != asking::asked)
        at.at->directory = asking::not_asked;
}

bool consumer::stop_following(const char *path)
{
    const auto steps = split_path(path);
    const auto found = std::ranges::find(followers_, steps, [](const auto &f) { return f->steps; });
    if (steps.empty() || found == followers_.end())
        return false;
    (*found)->active = false;
    followers_.erase(found);
    return true;
}

void consumer::element_begin(const glow::element &said)
{
    saw_element_ = true;
    note_answer(said);
    bool changed = false;
    const remote_element *e = ending() ? nullptr : tree_.merge(said, changed);
    // At once, so that of two changes in one message both are told.
    const bool reported = e != nullptr && note_report(said);
    if (reported || (e != nullptr && changed && e->followed))
        settle();
}

// An answer is known by its path. Directories come nested below the element that was asked, or flat, child by child; named
// children tell a directory from a mere update. An element with neither contents nor children has no children.
void consumer::note_answer(const glow::element &said)
{
    if (!request_ || answered_)
        return;
    if (said.where == *request_)
        answered_ = said.is_parameter || said.has_children || !said.has_contents || said.contents.identifier.has_value();
    else
        answered_ = said.where.count == request_->count + 1 && said.where.parent() == *request_ &&
                    said.contents.identifier.has_value();
}

void consumer::finish_request(asking outcome)
{
    remote_element *e = tree_.find(*request_);
    request_.reset();
    if (e == nullptr)
        return;
    e->directory = outcome;
    e->since = round_time();
}

void consumer::check_request()
{
    if (!request_)
        return;
    const remote_element *e = tree_.find(*request_);
    if (e == nullptr || e->directory != asking::asked)
        request_.reset();        // the element changed its identity meanwhile
    else if (round_time() - e->since >= answer_timeout_ms)
        finish_request(asking::unanswered);
    else
        due_at(e->since + answer_timeout_ms);
}

void consumer::send_request()
{
    remote_element *e = request_ || !is_linked() ? nullptr : next_to_ask();
    if (e == nullptr)
        return;
    request_ = remote_tree::path_of(*e);
    e->directory = asking::asked;
    e->since = round_time();
    writer_.clear();
    glow::write_command(writer_, request_->view(), e->is_parameter, glow::command_get_directory);
    link_->send_message(writer_.message());
    due_at(e->since + answer_timeout_ms);
}

// For a value to be set first: somebody waits for that.
remote_element *consumer::next_to_ask()
{
    for (const auto &s : sets_)
        if (const standing at = stand(*s); at.what == standing::is::to_ask)
            return at.at;
    for (const auto &f : followers_)
        if (const standing at = stand(*f); at.what == standing::is::to_ask)
            return at.at;
    return nullptr;
}

// For what the element's own answer does not show: a child, or a value.
consumer::standing consumer::stand_at(remote_element &e)
{
    using is = standing::is;
    const int64_t age = round_time() - e.since;
    switch (e.directory) {
    case asking::not_asked:
        return {is::to_ask, &e};
    case asking::asked:
        return {is::under_way, &e};
    case asking::answered:
        if (age >= grace_ms)
            return {is::no_value, &e};
        due_at(e.since + grace_ms);
        return {is::under_way, &e};
    case asking::unanswered:
        if (age >= retry_ms)
            return {is::to_ask, &e};
        due_at(e.since + retry_ms);
        return {is::no_value, &e};
    }
    return {is::under_way, &e};
}

// The node is asked even when an announcement has shown the child already, because only who asked is told of changes.
consumer::standing consumer::walk(target &t)
{
    remote_element *e = &tree_.root();
    for (const auto &step : t.steps) {
        remote_element *child = remote_tree::child_named(*e, step);
        if (child == nullptr || e->directory == asking::not_asked)
            return stand_at(*e);
        if (!child->online || (child->is_parameter && &step != &t.steps.back()))
            return {standing::is::no_value, child};
        e = child;
    }
    if (!e->is_parameter)
        return {standing::is::no_value, e};
    e->followed = true;
    t.found = e;
    t.found_in = tree_.generation();
    return {standing::is::under_way, e};
}

// Where the way ends, if it does before the parameter. Changes of a value are frequent, changes of the tree are not: the path
// is walked again only after the latter.
std::optional<consumer::standing> consumer::locate(target &t)
{
    if (t.found_in == tree_.generation())
        return std::nullopt;
    const standing so_far = walk(t);
    return t.found_in == tree_.generation() ? std::nullopt : std::optional(so_far);
}

consumer::standing consumer::stand(follower &f)
{
    using is = standing::is;
    if (const auto so_far = locate(f))
        return *so_far;
    remote_element *e = f.found;
    const bool has_value = e->has_value();
    if (e->directory == asking::not_asked || (e->directory == asking::unanswered && !has_value))
        return stand_at(*e);
    if (e->directory == asking::asked && (!has_value || f.last == follower::told::nothing))
        return {is::under_way, e};
    return {has_value ? is::value : is::no_value, e};
}

// Tell everybody what is due to him. The application may do anything with the session meanwhile.
void consumer::settle()
{
    settle_followers();
    if (!ending())
        settle_sets();
}

void consumer::settle_followers()
{
    settling_ = followers_;
    for (const auto &f : settling_) {
        if (ending())
            break;
        if (f->active)
            settle_one(*f);
    }
    settling_.clear();
}

void consumer::settle_one(follower &f)
{
    const standing at = stand(f);
    if (at.what == standing::is::value)
        tell(f, at.at);
    else if (at.what == standing::is::no_value)
        tell(f, nullptr);
}

void consumer::tell(follower &f, const remote_element *e)
{
    using told = follower::told;
    if (e == nullptr) {
        if (f.last == told::no_value)
            return;
        f.last = told::no_value;
        f.callback(f.user_data, f.path.c_str(), glow::type_null, nullptr);
        return;
    }
    const std::string &text = f.shown.text;
    const std::string_view before = std::string_view(text).substr(0, text.size() - std::min(text.size(), text_zeros));
    if (f.last == told::value && f.shown.integer.value == e->integer && before == e->text)
        return;
    f.shown.take(*e);
    f.last = told::value;
    f.callback(f.user_data, f.path.c_str(), static_cast<uint32_t>(e->effective_type()), f.shown.of(*e));
}

void consumer::told_value::take(const remote_element &e)
{
    text = e.text;
    text.append(text_zeros, '\0');
    integer.value = e.integer;
}

const void *consumer::told_value::of(const remote_element &e) const
{
    return e.kind == glow::value_kind::text ? static_cast<const void *>(text.c_str()) : &integer.value;
}

}  // namespace zel::ember
