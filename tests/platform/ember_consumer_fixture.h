// A consumer and everything its callbacks were told, in one list.
#pragma once

#include "consumer.h"
#include "ember_support.h"

namespace ember_test {

class consumer_fixture : public testing::Test {
protected:
    consumer_fixture() { fake_now = 1000; }
    ~consumer_fixture() override { end(); }

    void start(const std::string &address, int32_t timeout_s = 10, ember::clock_function clock = fake_clock)
    {
        zel_ember_session_config_t config{};
        config.provider_addr = address.c_str();
        config.timeout_s = &timeout_s;
        config.user_data = this;
        config.connect_cb = on_connect;
        session_ = ember::consumer::create(config, clock).release();
        ASSERT_NE(session_, nullptr);
        sessions_.add(session_);
    }
    void end()
    {
        if (session_ == nullptr)
            return;
        sessions_.remove(session_);
        zel_ember_session_term(std::exchange(session_, nullptr));
    }
    int follow(const char *path) { return zel_ember_get_param(session_, path, this, on_value); }
    int clear(const char *path) { return zel_ember_clear_param_cb(session_, path); }

    // Move the clock in small steps and let the session act at each.
    void pass(int64_t milliseconds, int64_t step = 50)
    {
        for (const int64_t end = fake_now + milliseconds; fake_now < end;) {
            fake_now = std::min(end, fake_now + step);
            sessions_.turn(0);
            if (also_)
                also_();
        }
    }
    [[nodiscard]] bool until(const std::function<bool()> &done)
    {
        return sessions_.until([&] {
            if (also_)
                also_();
            return done();
        });
    }
    [[nodiscard]] bool until_told(const lines &expected)
    {
        const bool reached = until([&] { return told_.size() >= expected.size(); });
        EXPECT_EQ(told_, expected);
        return reached && told_ == expected;
    }

    static void on_value(void *user_data, const char *path, uint32_t kind, const void *value)
    {
        auto *self = static_cast<consumer_fixture *>(user_data);
        std::string line = std::string(path) + " = ";
        if (value == nullptr)
            line += "none";
        else if (kind == 3)
            line += "'" + std::string(static_cast<const char *>(value)) + "'";
        else
            line += std::to_string(*static_cast<const int64_t *>(value)) + " (" + std::to_string(kind) + ")";
        self->told_.push_back(line);
        if (self->reaction_)
            self->reaction_(line);
    }
    static void on_connect(void *user_data, uint8_t connected, const char *address, uint16_t port)
    {
        auto *self = static_cast<consumer_fixture *>(user_data);
        self->told_.push_back(connected ? "up" : "down");
        self->peer_ = std::string(address) + ":" + std::to_string(port);
        if (self->reaction_)
            self->reaction_(self->told_.back());
    }

    loop sessions_;
    zel_ember_session_t *session_ = nullptr;
    lines told_;
    std::string peer_;
    std::function<void(const std::string &)> reaction_;
    std::function<void()> also_;
};

}  // namespace ember_test
