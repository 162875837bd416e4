// How a consumer sets a parameter: found like one that is followed, sent once, over with the value that the provider says next.

#include <zel_debug.h>

#include <algorithm>

#include "consumer.h"
#include "native_value.h"

namespace zel::ember {

namespace {

// The zero ends the bytes: what is padded further is more likely a number.
bool is_text(std::string_view bytes)
{
    return !bytes.empty() && bytes.find('\0') == bytes.size() - 1;
}

// The bytes as a value of this kind; absent if they are none.
glow::value as_value(std::string_view bytes, glow::value_kind kind)
{
    glow::value out;
    const bool fits = kind == glow::value_kind::text ? is_text(bytes)
                                                     : kind != glow::value_kind::absent &&
                                                           load_integer(bytes.data(), bytes.size(), out.integer);
    if (!fits)
        return {};
    out.kind = kind;
    if (kind == glow::value_kind::text)
        out.text = bytes.substr(0, bytes.size() - 1);
    return out;
}

}  // namespace

bool consumer::set(const char *path, uint32_t timeout_ms, const void *value, size_t length, set_listener listener)
{
    int64_t number;
    if (length > max_set_size ||
        (!load_integer(value, length, number) && !is_text({static_cast<const char *>(value), length})))
        return false;
    if (sets_.size() == max_sets) {
        log_message(1, "zel_ember_set_param: %zu values are under way already\n", sets_.size());
        return false;
    }
    auto fresh = std::make_unique<setting>();
    fresh->path = path;
    fresh->steps = split_path(path);
    if (fresh->steps.empty())
        return false;
    fresh->value.assign(static_cast<const char *>(value), length);
    fresh->deadline = now() + (timeout_ms != 0 ? int64_t{timeout_ms} : set_timeout_ms);
    fresh->listener = listener;
    look_again(stand(*fresh));
    sets_.push_back(std::move(fresh));
    due_at(now());
    return true;
}

// With a result when the value can be sent, or has been.
consumer::standing consumer::stand(setting &s)
{
    using is = standing::is;
    const auto so_far = locate(s);
    if (s.sent_to) {
        const bool same = !so_far && remote_tree::path_of(*s.found) == *s.sent_to;
        return {same ? is::value : is::no_value, s.found};
    }
    if (so_far)
        return *so_far;
    if (s.found->directory == asking::not_asked)
        return {is::to_ask, s.found};
    return {s.found->directory == asking::asked ? is::under_way : is::value, s.found};
}

// Whether it is what somebody waits for.
bool consumer::note_report(const glow::element &said)
{
    if (!said.is_parameter || said.contents.current.kind == glow::value_kind::absent)
        return false;
    bool awaited = false;
    for (const auto &s : sets_)
        if (s->sent_to && *s->sent_to == said.where)
            s->reported = awaited = true;
    return awaited;
}

// Those that are added meanwhile wait for the next round.
void consumer::settle_sets()
{
    size_t at = 0;
    for (size_t left = sets_.size(); left > 0 && !ending(); --left)
        if (!settle_set(at))
            ++at;
}

// True if it is over.
bool consumer::settle_set(size_t at)
{
    using is = standing::is;
    setting &s = *sets_[at];
    const standing where = stand(s);
    if (s.reported && where.what == is::value) {
        finish_set(at, s.found->has_value() ? s.found : nullptr);
        return true;
    }
    const bool unheard = !s.sent_to && where.at->directory == asking::unanswered && where.what == is::no_value;
    const bool lost = round_time() >= s.deadline || (where.what == is::no_value && !unheard);
    if (lost || (where.what == is::value && !s.sent_to && !send_set(s))) {
        finish_set(at, nullptr);
        return true;
    }
    due_at(s.deadline);
    return false;
}

// False if the parameter does not take it. Values for the same parameter go out one by one, so that each has its own answer.
bool consumer::send_set(setting &s)
{
    const glow::value value = as_value(s.value, s.found->taken_kind());
    if (!s.found->is_writable() || value.kind == glow::value_kind::absent)
        return false;
    const glow::path where = remote_tree::path_of(*s.found);
    if (std::ranges::any_of(sets_, [&](const auto &other) { return other->sent_to && *other->sent_to == where; }))
        return true;
    writer_.clear();
    glow::write_value(writer_, where.view(), value);
    if (!is_linked() || !link_->has_room_for(writer_.message().size()))
        return true;
    link_->send_message(writer_.message());
    s.sent_to = where;
    return true;
}

// Null: nothing came of it.
void consumer::finish_set(size_t at, const remote_element *e)
{
    if (e != nullptr)
        sets_[at]->shown.take(*e);
    const auto over = std::move(sets_[at]);
    sets_.erase(sets_.begin() + static_cast<std::ptrdiff_t>(at));
    const auto [user_data, done] = over->listener;
    if (done == nullptr)
        return;
    const auto kind = static_cast<uint32_t>(e != nullptr ? e->effective_type() : int64_t{glow::type_null});
    done(user_data, over->path.c_str(), kind, e != nullptr ? over->shown.of(*e) : nullptr);
}

void consumer::fail_sets()
{
    for (size_t left = sets_.size(); left > 0 && !ending(); --left)
        finish_set(0, nullptr);
}

}  // namespace zel::ember
