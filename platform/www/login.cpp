#include "login.h"

#include "basic_credentials.h"
#include "zel_debug.h"

#include <algorithm>
#include <cerrno>

namespace zel::web {
namespace {

constexpr size_t most_accepted = 64, most_peers = 256;
constexpr std::chrono::seconds first_wait{1}, longest_wait{60};

bool same_file(const struct stat &a, const struct stat &b)
{
    return a.st_ino == b.st_ino && a.st_dev == b.st_dev && a.st_size == b.st_size && a.st_mtim.tv_sec == b.st_mtim.tv_sec &&
           a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

}  // namespace

login::login(std::string file) : file_(std::move(file)), digests_(keyed_digest::with_random_key()) {}

bool login::open()
{
    if (file_.empty()) return true;
    decoy_ = hash_password("nobody");
    return checks_.open();
}

// Users may be added and changed while the unit runs.
void login::read_again()
{
    struct stat now {};
    if (stat(file_.c_str(), &now) != 0) now = {};
    if (same_file(now, seen_) && state_ != users_state::broken) return;
    std::string problem;
    const users_state before = state_;
    state_ = read_users(file_, users_, problem);
    seen_ = now;
    accepted_.clear();
    ++version_;
    if (state_ == users_state::broken && before != users_state::broken) {
        log_message(0, "%s: Nobody can log in: %s\n", __func__, problem.c_str());
    }
}

bool login::needed()
{
    if (file_.empty()) return false;
    read_again();
    return state_ == users_state::broken || !users_.empty();
}

void login::check(login_wait &each, MHD_Connection *mhd, std::string_view authorization, const std::string &peer)
{
    each.state = login_state::refused;
    if (state_ == users_state::broken) {
        each.state = login_state::impossible;
        return;
    }
    if (authorization.empty()) return;
    const digest sign = digests_.of(authorization);
    bool known = false;
    for (const digest &good : accepted_) known |= same_digest(good, sign);
    if (known) each.state = login_state::passed;
    else if (wait_of(peer) > 0) each.state = login_state::must_wait;
    else if (!begin(each, mhd, authorization, sign, peer)) each.state = login_state::refused;
}

// Requests that come in one breath with the same password wait for one check.
bool login::begin(login_wait &each, MHD_Connection *mhd, std::string_view authorization, const digest &sign,
                  const std::string &peer)
{
    each.mhd = mhd;
    for (job &running : jobs_) {
        if (!same_digest(running.sign, sign) || running.peer != peer || running.version != version_) continue;
        running.waiting.push_back(&each);
        each.state = login_state::pending;
        return true;
    }
    const auto given = parse_basic(authorization);
    if (!given) return false;
    const auto user = users_.find(given->user);
    const bool known = user != users_.end();
    jobs_.push_back({next_job_++, sign, peer, version_, {&each}});
    if (checks_.begin(jobs_.back().number, given->password, known ? user->second : decoy_, known)) {
        each.state = login_state::pending;
        return true;
    }
    jobs_.pop_back();
    each.state = login_state::must_wait;
    return true;
}

int login::wait_of(const std::string &peer) const
{
    const auto found = failures_.find(peer);
    if (found == failures_.end()) return 0;
    const auto left = std::chrono::ceil<std::chrono::seconds>(found->second.until - clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

void login::remember(const digest &sign)
{
    if (accepted_.size() == most_accepted) accepted_.pop_front();
    accepted_.push_back(sign);
}

void login::note_failure(const std::string &peer)
{
    const clock::time_point now = clock::now();
    std::erase_if(failures_, [now](const auto &each) { return each.second.until + 10 * longest_wait < now; });
    if (failures_.size() >= most_peers && failures_.find(peer) == failures_.end()) {
        failures_.erase(std::ranges::min_element(failures_, {}, [](const auto &each) { return each.second.until; }));
    }
    failures &each = failures_[peer];
    const auto wait = std::min(longest_wait, first_wait * (1 << std::min(each.count, 6)));
    ++each.count;
    each.until = now + wait;
    log_message(1, "%s: A log-in from %s failed (%d in a row); the next one is heard in %d s\n", __func__, peer.c_str(),
                each.count, static_cast<int>(wait.count()));
}

void login::resume(login_wait &each, login_state state)
{
    each.state = state;
    MHD_resume_connection(each.mhd);
}

void login::process()
{
    for (const password_check::answer &answer : checks_.take_answers()) {
        const auto found = std::ranges::find(jobs_, answer.job, &job::number);
        if (found == jobs_.end()) continue;
        const job done = std::move(*found);
        jobs_.erase(found);
        const bool good = answer.good && done.version == version_;
        if (good) {
            remember(done.sign);
            failures_.erase(done.peer);
        } else {
            note_failure(done.peer);
        }
        for (login_wait *each : done.waiting) resume(*each, good ? login_state::passed : login_state::refused);
    }
}

void login::give_up()
{
    for (job &each : jobs_) {
        for (login_wait *waiting : each.waiting) resume(*waiting, login_state::impossible);
    }
    jobs_.clear();
}

}  // namespace zel::web
