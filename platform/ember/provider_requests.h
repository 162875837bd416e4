// What a consumer asks of a provider: directories, subscriptions, values.
#pragma once

#include "provider.h"

namespace zel::ember {

class request_reader final : private glow::sink {
public:
    request_reader(provider &session, provider_client &from) : session_(session), from_(from) {}

    void read(std::span<const uint8_t> message) { (void)glow::read_message(message, *this); }

private:
    void on_command(const glow::path &where, int64_t number) override;
    void element_end(const glow::element &e, bool commanded) override;

    bool is_over() const { return session_.ending() || from_.is_dropped(); }
    void look_at(element &e);
    void look_away(element &e);
    void answer_directory(element &e);
    bool store(element &parameter, const glow::value &value, std::string &text, int64_t &number);
    void set(element &parameter, const glow::value &value);

    provider &session_;
    provider_client &from_;
};

}  // namespace zel::ember
