#include "provider_requests.h"

#include <zel_debug.h>

#include <cmath>
#include <string>

#include "common/utf8.h"
#include "provider_messages.h"

namespace zel::ember {

namespace {

std::optional<int64_t> to_number(const glow::value &value)
{
    switch (value.kind) {
    case glow::value_kind::integer:
    case glow::value_kind::boolean:
        return value.integer;
    case glow::value_kind::real:
        if (std::fabs(value.real) < 9e15 && value.real == std::trunc(value.real))
            return static_cast<int64_t>(value.real);
        return std::nullopt;
    default:
        return std::nullopt;
    }
}

// The application gets the text zero-terminated, and hands it on to peers as UTF-8.
bool is_usable_text(const std::string &text)
{
    if (text.find('\0') != text.npos)
        return false;
    for (auto at = reinterpret_cast<const unsigned char *>(text.c_str()); *at != 0;) {
        const utf8_piece piece = utf8_piece_at(at);
        if (!piece.well_formed)
            return false;
        at += piece.length;
    }
    return true;
}

}  // namespace

// Peers name an element by its path only: whether they call it a node or a parameter does not matter.
void request_reader::on_command(const glow::path &where, int64_t number)
{
    element *e = is_over() ? nullptr : session_.tree_.find(where);
    if (e == nullptr)
        return;
    switch (number) {
    case glow::command_get_directory:
        look_at(*e);
        answer_directory(*e);
        break;
    case glow::command_subscribe:
        if (e->is_parameter())
            look_at(*e);
        break;
    case glow::command_unsubscribe:
        look_away(*e);
        break;
    default:
        break;
    }
}

// A look at a node takes in all its children, also those that come later.
void request_reader::look_at(element &e)
{
    from_.add_look(e.index, looks);
    from_.remove_look(e.index, looks_away);
    for (const auto &child : e.children) {
        from_.add_look(child->index, 0);
        from_.remove_look(child->index, looks_away);
    }
}

void request_reader::look_away(element &e)
{
    from_.add_look(e.index, e.is_parameter() ? looks_away : 0);
    from_.remove_look(e.index, looks);
    for (const auto &child : e.children)
        from_.remove_look(child->index, looks);
}

void request_reader::answer_directory(element &e)
{
    from_.send(session_.encode([&](ber::writer &w) { write_directory(w, e); }));
}

// A value beside a command is only what the consumer believes the parameter to be.
void request_reader::element_end(const glow::element &e, bool commanded)
{
    if (is_over() || commanded || !e.is_parameter || e.contents.current.kind == glow::value_kind::absent)
        return;
    element *parameter = session_.tree_.find(e.where);
    if (parameter != nullptr && parameter->is_parameter())
        set(*parameter, e.contents.current);
}

bool request_reader::store(element &parameter, const glow::value &value, std::string &text, int64_t &number)
{
    if (!parameter.is_writable())
        return false;
    if (parameter.is_text()) {
        if (value.kind != glow::value_kind::text)
            return false;
        text = value.text;
        if (!is_usable_text(text))
            return false;
        parameter.text = text;
        parameter.notice = {};
        return true;
    }
    const auto found = to_number(value);
    if (!found)
        return false;
    number = parameter.kind == element_kind::boolean ? *found != 0 : *found;
    parameter.integer = number;
    parameter.notice = {};
    return true;
}

// Store, call, tell: the callback may set this parameter again, or any other, or take it out of the tree, and who looks is
// told once, of the value that stands then. The writer is always told, or it would wait for its answer.
void request_reader::set(element &parameter, const glow::value &value)
{
    std::string text;
    int64_t number = 0;
    const uint32_t index = parameter.index;
    const uint64_t serial = parameter.serial;
    from_.add_look(index, 0);
    const bool accepted = store(parameter, value, text, number);
    if (accepted && parameter.callback != nullptr) {
        const void *given = parameter.is_text() ? static_cast<const void *>(text.c_str()) : &number;
        session_.being_set_ = serial;
        (void)parameter.callback(parameter.user_data, from_.address(), from_.port(), &parameter, given);
        session_.being_set_ = 0;
    }
    element *still = session_.tree_.at_index(index);
    if (session_.ending() || still == nullptr || still->serial != serial)
        return;
    if (accepted)
        session_.tell_all(*still, &from_);
    else
        session_.tell_value(from_, *still);
}

void provider::on_message(provider_client &from, std::span<const uint8_t> message)
{
    if (ending())
        return;
    // Nothing of a broken message is carried out, not even what stands before the break.
    switch (ber::check(message)) {
    case ber::verdict::sound:
        request_reader(*this, from).read(message);
        break;
    case ber::verdict::broken:
        log_message(4, "%s: Ignoring a broken message of %s:%u\n", __func__, from.address(), from.port());
        break;
    case ber::verdict::too_deep:
        from.drop("its message is nested too deeply");
        break;
    }
}

}  // namespace zel::ember
