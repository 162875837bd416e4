#include "agent.h"

#include "net_snmp.h"

#include <signal.h>
#include <sys/signalfd.h>
#include <zel_debug.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <new>

namespace zel::snmpd {
namespace {

constexpr int64_t longest_wait_ms = 60000;

int64_t clock_ms()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

}  // namespace

agent::agent(agent_settings settings)
    : settings_(std::move(settings)), objects_(model_, link_, sets_, figures_, settings_.udp_drives_gpis)
{
}

bool agent::start()
{
    if (!open_signals() || !library_.prepare(settings_.library)) return false;
    if (!objects_.register_all() || !link_.open(settings_.server)) return false;
    model_.observe(this);
    link_.on_reply([this](int32_t tag, int32_t result) { sets_.take_reply(tag, result); });
    link_.on_lost([this] { sets_.link_lost(); });
    return library_.start();
}

bool agent::open_signals()
{
    sigset_t wanted;
    sigemptyset(&wanted);
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&wanted, number);
    sigprocmask(SIG_BLOCK, &wanted, nullptr);
    (void)signal(SIGPIPE, SIG_IGN);
    signals_.reset(signalfd(-1, &wanted, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!signals_) log_message(0, "%s: signalfd: %s\n", __func__, std::strerror(errno));
    return static_cast<bool>(signals_);
}

void agent::row_appeared(table_id table, uint32_t index)
{
    objects_.add_row(table, index);
    notifications_.row_touched(table, index);
}

// A row that could not be added for want of memory is added now.
void agent::row_changed(table_id table, uint32_t index)
{
    objects_.add_row(table, index);
    notifications_.row_touched(table, index);
}

void agent::row_gone(table_id table, uint32_t index)
{
    objects_.remove_row(table, index);
    notifications_.row_touched(table, index);
}

void agent::link_changed(link_state state)
{
    figures_.link_since = static_cast<uint32_t>(netsnmp_get_agent_uptime());
    notifications_.link_changed(state);
}

void agent::run()
{
    while (!ending_) {
        try {
            turn();
        } catch (const std::bad_alloc &) {
            log_message(0, "%s: Out of memory; what was being done is given up\n", __func__);
        }
    }
}

timeval agent::time_to_wait(int64_t now_ms, bool library_waits, const timeval &library_wait) const
{
    int64_t wait = longest_wait_ms;
    if (library_waits) wait = std::min<int64_t>(wait, library_wait.tv_sec * 1000 + (library_wait.tv_usec + 999) / 1000);
    for (const auto due : {link_.next_due(), sets_.next_due(), notifications_.next_due(now_ms)}) {
        if (due) wait = std::clamp<int64_t>(*due - now_ms, 0, wait);
    }
    return {wait / 1000, wait % 1000 * 1000};
}

void agent::turn()
{
    fd_set readable;
    FD_ZERO(&readable);
    int end = 0, for_ever = 1;
    timeval library_wait{};
    (void)snmp_select_info(&end, &readable, &library_wait, &for_ever);
    int highest = std::max(end - 1, signals_.get());
    FD_SET(signals_.get(), &readable);
    link_.set_fds(&readable, &highest);

    timeval wait = time_to_wait(clock_ms(), for_ever == 0, library_wait);
    const int ready = select(highest + 1, &readable, nullptr, nullptr, &wait);
    if (ready < 0 && errno != EINTR) log_message(0, "%s: select: %s\n", __func__, std::strerror(errno));
    if (ready < 0) FD_ZERO(&readable);
    serve(&readable, ready > 0);
}

void agent::serve(fd_set *readable, bool something_ready)
{
    const int64_t now_ms = clock_ms();
    if (FD_ISSET(signals_.get(), readable)) take_signals();
    sets_.set_clock(now_ms);
    link_.process(readable, now_ms);
    sets_.expire(now_ms);
    if (something_ready) snmp_read(readable);
    else snmp_timeout();
    run_alarms();
    netsnmp_check_outstanding_agent_requests();
    notifications_.send_due(now_ms);
    figures_.notifications = notifications_.sent();
    figures_.merged = notifications_.merged();
}

void agent::take_signals()
{
    signalfd_siginfo each;
    while (read(signals_.get(), &each, sizeof each) == static_cast<ssize_t>(sizeof each)) {
        const int number = static_cast<int>(each.ssi_signo);
        if (number == SIGHUP) {
            zel_debug_reopen();
            log_message(2, "%s: The log was opened anew\n", __func__);
        } else {
            log_message(2, "%s: Ending on signal %d\n", __func__, number);
            ending_ = true;
        }
    }
}

}  // namespace zel::snmpd
