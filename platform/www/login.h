// Who may ask: users of the users file, by HTTP Basic. Passwords that were found right are remembered as digests, wrong ones make
// their sender wait ever longer.
#pragma once

#include "connections.h"
#include "keyed_digest.h"
#include "password_check.h"
#include "users_file.h"

#include <microhttpd.h>
#include <sys/stat.h>

#include <chrono>
#include <deque>
#include <list>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace zel::web {

enum class login_state { unknown, pending, passed, refused, must_wait, impossible };

// A request that may have to wait for its password to be checked.
struct login_wait {
    login_state state = login_state::unknown;
    MHD_Connection *mhd = nullptr;
};

class login {
public:
    // `file` "": nobody needs to log in. May throw.
    explicit login(std::string file);

    bool open();
    int fd() const { return checks_.fd(); }
    bool needed();
    // Sets the state. Pending: the request's connection is to be suspended; it is resumed when the state is passed or refused.
    void check(login_wait &each, MHD_Connection *mhd, std::string_view authorization, const std::string &peer);
    // Seconds that this peer still has to wait.
    int wait_of(const std::string &peer) const;
    // Takes up the answers of the checks.
    void process();
    // Before the server ends: whoever waits is resumed.
    void give_up();

private:
    struct job {
        uint64_t number;
        digest sign;                     // of the credentials
        std::string peer;
        uint64_t version;                // of the users that it was begun with
        std::vector<login_wait *> waiting;
    };
    struct failures {
        int count = 0;
        clock::time_point until{};
    };
    void read_again();
    bool begin(login_wait &each, MHD_Connection *mhd, std::string_view authorization, const digest &sign,
               const std::string &peer);
    void remember(const digest &sign);
    void note_failure(const std::string &peer);
    static void resume(login_wait &each, login_state state);

    std::string file_;
    struct stat seen_ {};
    users_state state_ = users_state::missing;
    user_table users_;
    uint64_t version_ = 0;
    std::string decoy_;                 // what unknown users are checked against
    keyed_digest digests_;
    std::deque<digest> accepted_;
    std::map<std::string, failures> failures_;
    std::list<job> jobs_;
    uint64_t next_job_ = 1;
    password_check checks_;
};

}  // namespace zel::web
