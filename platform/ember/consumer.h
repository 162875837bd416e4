// A consumer session: it keeps a connection to one provider, finds parameters by their identifiers, tells the application of
// their values and sets them.
#pragma once

#include <optional>

#include "consumer_link.h"
#include "remote_tree.h"

namespace zel::ember {

// Steps of a path with or without a leading "/"; empty if it is no path. May throw std::bad_alloc.
std::vector<std::string> split_path(std::string_view path);

constexpr int64_t consumer_silence_ms = 10000;
constexpr int64_t connect_timeout_ms = 1000;
constexpr int64_t first_pause_ms = 250, longest_pause_ms = 500;   // between attempts to connect
constexpr int64_t answer_timeout_ms = 3000;
constexpr int64_t retry_ms = 3000;       // an unanswered request is asked again after this
constexpr int64_t grace_ms = 300;        // some providers spread a directory over several messages
constexpr int64_t set_timeout_ms = 3000;
constexpr size_t max_sets = 64;          // under way at once
constexpr size_t max_set_size = 16384;   // of a text with its terminating zero

class consumer final : public zel_ember_session, private link_owner, private glow::sink {
public:
    // Null on failure, which is logged. May throw std::bad_alloc.
    static std::unique_ptr<consumer> create(const zel_ember_session_config_t &config, clock_function clock = monotonic_ms);
    ~consumer() override;

    // False if the path is none. May throw std::bad_alloc.
    bool follow(const char *path, void *user_data, zel_ember_value_cb_t callback);
    bool stop_following(const char *path);

    struct set_listener {
        void *user_data;
        zel_ember_value_cb_t done;           // null: nobody wants to know
    };
    // False if the path or the value is none, or too many are under way. May throw std::bad_alloc.
    bool set(const char *path, uint32_t timeout_ms, const void *value, size_t length, set_listener listener);

private:
    static constexpr size_t text_zeros = sizeof(int64_t);
    // What the application may ask for a parameter with: where it is.
    struct target {
        std::string path;                    // as the application wrote it
        std::vector<std::string> steps;
        remote_element *found = nullptr;     // the parameter, as long as the tree is of this generation
        uint64_t found_in = 0;
    };
    // A value as it is handed over. An application that takes a text for a number or the reverse, because a foreign provider
    // has another type there than expected, reads zeros behind the value and nothing else.
    struct told_value {
        void take(const remote_element &e);
        const void *of(const remote_element &e) const;
        struct { int64_t value; uint64_t zeros; } integer{0, 0};
        std::string text;                    // with text_zeros of them at the end
    };
    struct follower : target {
        void *user_data = nullptr;
        zel_ember_value_cb_t callback = nullptr;
        bool active = true;                  // false: replaced or cleared
        enum class told : uint8_t { nothing, no_value, value } last = told::nothing;
        told_value shown;                    // last told
    };
    // A value on its way to the provider. The parameter's kind decides what its bytes mean.
    struct setting : target {
        std::string value;
        int64_t deadline = 0;
        set_listener listener{};
        std::optional<glow::path> sent_to;
        bool reported = false;               // the provider said the parameter's value after that
        told_value shown;
    };

    // Where a follower or a setting stands: to be asked for, under way, or with a result.
    struct standing {
        enum class is : uint8_t { to_ask, under_way, no_value, value } what;
        remote_element *at;                  // to be asked; or holds the value; or is to blame
    };

    consumer(const zel_ember_session_config_t &config, int64_t silence_ms, clock_function clock);

    // The link
    void on_link_up(consumer_link &link) override;
    void on_link_message(consumer_link &link, std::span<const uint8_t> message) override;
    void run_due() override;
    void open_link(std::unique_ptr<consumer_link> &link);
    void retire(std::unique_ptr<consumer_link> &link);
    void keep_link();
    void keep_connected();
    void keep_probing();
    void adopt_probe();
    void lose_link();
    void pause_before_connecting();
    void tell_connected(bool connected);
    bool is_linked() const { return link_ && link_->is_up(); }

    // The tree
    void element_begin(const glow::element &said) override;
    void note_answer(const glow::element &said);
    void check_request();
    void send_request();
    void finish_request(asking outcome);

    // The application
    standing stand(follower &f);
    std::optional<standing> locate(target &t);
    standing walk(target &t);
    standing stand_at(remote_element &e);
    static void look_again(const standing &at);
    remote_element *next_to_ask();
    void settle();
    void settle_followers();
    void settle_one(follower &f);
    void tell(follower &f, const remote_element *e);

    // Setting
    standing stand(setting &s);
    bool note_report(const glow::element &said);
    void settle_sets();
    bool settle_set(size_t at);
    bool send_set(setting &s);
    void finish_set(size_t at, const remote_element *e);
    void fail_sets();

    socket_address provider_;
    std::string address_;
    uint16_t port_ = 0;
    void *const user_data_;
    const zel_ember_connect_cb_t connect_cb_;
    const int64_t silence_ms_;

    std::unique_ptr<consumer_link> link_, probe_;
    std::vector<std::unique_ptr<consumer_link>> retired_;   // until the round is over
    bool told_connected_ = false;
    bool outage_logged_ = false;
    int64_t next_attempt_ = 0;
    int64_t pause_ms_ = first_pause_ms;

    remote_tree tree_;
    std::optional<glow::path> request_;      // the one under way
    bool answered_ = false;                  // by the message being read
    bool saw_element_ = false;
    std::vector<std::shared_ptr<follower>> followers_;
    std::vector<std::shared_ptr<follower>> settling_;
    std::vector<std::unique_ptr<setting>> sets_;            // in the order in which they were asked for
    ber::writer writer_;
};

}  // namespace zel::ember
