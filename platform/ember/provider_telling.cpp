// How those who look are told: a change is encoded once, however many are told, and a client whose socket takes no more
// hears the newest value only, later.

#include <zel_debug.h>

#include <algorithm>
#include <cstring>
#include <exception>

#include "provider.h"
#include "provider_messages.h"

namespace zel::ember {

element *provider::add(std::unique_ptr<element> draft, element *parent, int32_t number)
{
    element *added = tree_.add(std::move(draft), parent, number);
    if (added == nullptr)
        return nullptr;
    message_ref shared;
    for (const auto &client : clients_) {
        if (client->is_dropped() || !hears_of(*client, *added))
            continue;
        try {
            client->add_look(added->index, 0);
            tell_everything(*client, *added, shared);
        } catch (const std::exception &) {
            client->drop("out of memory");   // it learns of the element when it comes back
        }
    }
    soon();
    return added;
}

void provider::remove(element &e)
{
    for (const auto &client : clients_) {
        try {
            tell_gone(*client, e);
        } catch (const std::exception &) {
            client->drop("out of memory");
        }
    }
    forget(e);
    (void)tree_.take(e);
    soon();
}

void provider::set_integer(element &parameter, int64_t value)
{
    if (parameter.integer == value)
        return;
    parameter.integer = value;
    changed(parameter);
}

void provider::set_text(element &parameter, std::string_view value)
{
    if (parameter.text == value)
        return;
    parameter.text = value;
    changed(parameter);
}

void provider::changed(element &parameter)
{
    parameter.notice = {};
    if (parameter.serial != being_set_)
        tell_all(parameter, nullptr);
}

bool provider::hears_of(const provider_client &client, const element &e)
{
    const uint8_t own = client.looks_at(e.index);
    return (own & looks) || (!(own & looks_away) && (client.looks_at(e.parent->index) & looks));
}

void provider::tell_all(element &parameter, provider_client *in_any_case)
{
    bool told = false;
    for (const auto &client : clients_) {
        if (client->is_dropped() || (client.get() != in_any_case && !hears_of(*client, parameter)))
            continue;
        tell_value(*client, parameter);
        told = true;
    }
    if (told)
        soon();
}

void provider::tell_value(provider_client &client, element &parameter) noexcept
{
    if (client.is_blocked() || client.has_to_hear()) {
        client.must_hear(parameter.index, must_hear_value);
        return;
    }
    try {
        if (!parameter.notice)
            parameter.notice = encode([&](ber::writer &w) { write_notice(w, parameter); });
        client.send(parameter.notice);
    } catch (const std::exception &) {
        log_message(0, "%s: Out of memory, '%s' is told later\n", __func__, parameter.identifier.c_str());
        client.must_hear(parameter.index, must_hear_value);
    }
}

void provider::tell_everything(provider_client &client, const element &e, message_ref &shared) noexcept
{
    if (client.is_blocked() || client.has_to_hear()) {
        client.must_hear(e.index, must_hear_everything);
        return;
    }
    try {
        if (!shared)
            shared = encode([&](ber::writer &w) { write_announcement(w, e); });
        client.send(shared);
    } catch (const std::exception &) {
        log_message(0, "%s: Out of memory, '%s' is told later\n", __func__, e.identifier.c_str());
        client.must_hear(e.index, must_hear_everything);
    }
}

// The highest element that the client hears of stands for all below it.
void provider::tell_gone(provider_client &client, element &e)
{
    if (client.is_dropped())
        return;
    if (!hears_of(client, e)) {
        for (const auto &child : e.children)
            tell_gone(client, *child);
        return;
    }
    client.send(encode([&](ber::writer &w) { write_farewell(w, e); }));
}

void provider::forget(const element &e)
{
    for (const auto &child : e.children)
        forget(*child);
    for (const auto &client : clients_)
        client->forget(e.index);
}

// What a slow client has still to hear, now that its socket takes something again.
void provider::catch_up(provider_client &client)
{
    if (client.is_dropped() || client.is_blocked() || !client.has_to_hear())
        return;
    try {
        client.hear([&](uint32_t index, uint8_t bits) {
            element *e = tree_.at_index(index);
            if (e == nullptr)
                return;
            if (bits & must_hear_everything) {
                client.send(encode([&](ber::writer &w) { write_announcement(w, *e); }));
                return;
            }
            if (!e->notice)
                e->notice = encode([&](ber::writer &w) { write_notice(w, *e); });
            client.send(e->notice);
        });
    } catch (const std::exception &) {
        due_at(now() + 100);
    }
}

// Messages are written at the end of the round; outside a round, the next one is asked for, so that several changes made
// in a row leave in one write.
void provider::soon()
{
    if (!in_round() && !clients_.empty())
        due_at(now());
}

}  // namespace zel::ember
