#include "unit.h"

#include "common/service_notify.h"
#include "common/unit_root.h"
#include "zel_debug.h"
#include "zel_gpio.h"
#include "zel_sys.h"

#include <net/if.h>
#include <signal.h>
#include <sys/signalfd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <optional>

namespace zel {
namespace {

constexpr std::chrono::milliseconds command_patience{2000};
constexpr std::chrono::milliseconds companion_patience{3000};  // a daemon says good-bye to the network

std::vector<gpio_phys_cfg_t> pin_table(const unit_settings &settings)
{
    std::vector<gpio_phys_cfg_t> table;
    for (const pin_settings &pin : settings.pins) {
        table.push_back({pin.in_pin, pin.in_active_low, pin.out_pin, pin.out_active_low, pin.cough});
    }
    return table;
}

std::string in_socket_folder(const char *name)
{
    return below_unit_root(std::string(socket_folder) + "/" + name);
}

}  // namespace

unit::unit(unit_settings settings, bool with_daemons) : settings_(std::move(settings)), with_daemons_(with_daemons) {}

unit::~unit()
{
    notify_service("STOPPING=1");
    udp_.close();
    link_.close();
    zel_sys_set_pin_observer(nullptr, nullptr);
    web_.close();
    if (library_started_) zel_gpio_term();
    companions_.stop(companion_patience);
    zel_sys_control_close();
    ember_.close();
    commands_.stop(command_patience);
    control_.close();
}

bool unit::start()
{
    if (!open_loop() || !claim_root() || !open_control()) return false;
    net_.reset(zel_net_config_load());
    if (!net_) return false;
    const std::string serial = unit_serial();
    parts_.ember_open = ember_.open(settings_, serial);
    zel_sys_set_pin_observer(change_feed::observe_pin, &feed_);
    if (with_daemons_) companions_.start({"zel_sdiscd", "zel_snmpd"});
    if (zel_sys_control_open() != 0) log_message(1, "%s: The pins have no control socket\n", __func__);
    if (!start_library()) return false;
    functions_.register_all();
    start_inputs();
    parts_.web_open = web_.open(serial);
    log_message(2, "%s: Unit '%s' (%s) is ready\n", __func__, settings_.friendly_name.c_str(), settings_.product_id.c_str());
    notify_service("READY=1");
    return true;
}

bool unit::claim_root()
{
    std::string problem;
    if (claim_.take(in_socket_folder("unit.lock"), problem)) return true;
    log_message(0, "%s: The unit cannot start: %s\n", __func__, problem.c_str());
    return false;
}

// Blocked before the first thread of a platform library is made, so that no other thread takes the signals.
bool unit::open_loop()
{
    sigset_t wanted;
    sigemptyset(&wanted);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGCHLD}) sigaddset(&wanted, number);
    sigprocmask(SIG_BLOCK, &wanted, nullptr);
    (void)signal(SIGPIPE, SIG_IGN);
    signals_.reset(signalfd(-1, &wanted, SFD_CLOEXEC | SFD_NONBLOCK));
    const bool ready = signals_ && reactor_.open() &&
                       reactor_.add(signals_.get(), EPOLLIN, [this](uint32_t) { take_signals(); });
    if (!ready) log_message(0, "%s: The unit cannot start: %s\n", __func__, std::strerror(errno));
    return ready;
}

bool unit::open_control()
{
    const auto tell = [this](const std::string &line, bool is_call) {
        control_.broadcast(line, is_call);
        if (!is_call) web_.tell_line(line);
    };
    feed_.set_sink(tell, [this] { return control_.anybody_watches() || web_.anybody_listens(); });
    const std::string path = in_socket_folder("unit");
    const auto answer = [this](std::string_view line, control_client &client) { return requests_.answer(line, client); };
    if (control_.open(reactor_, path, answer)) return true;
    log_message(0, "%s: The unit cannot start: %s: %s\n", __func__, path.c_str(), std::strerror(errno));
    return false;
}

// The library's tree takes a unit that has ports to have virtual ports among them.
bool unit::has_tree() const
{
    const bool ports_without_virtual_ones = settings_.virtual_count == 0 && ports_.port_count() > 0;
    if (ember_.session() != nullptr && ports_without_virtual_ones) {
        log_message(1, "%s: A unit without virtual ports has no ports in its Ember+ tree\n", __func__);
    }
    return ember_.session() != nullptr && !ports_without_virtual_ones;
}

bool unit::start_library()
{
    const auto table = pin_table(settings_);
    const bool with_tree = has_tree();
    library_started_ = true;
    const int32_t result = zel_gpio_init(table.data(), static_cast<int32_t>(table.size()), settings_.relay_base_pin,
                                         settings_.relay_count, settings_.virtual_count, settings_.user_buttons, net_.get(),
                                         net_.get(), with_tree ? ember_.session() : nullptr,
                                         static_cast<uint16_t>(settings_.ember.port), with_tree ? ember_.parent() : nullptr);
    // Without its configuration file the library builds nothing and calls that a success.
    const bool built = result == 0 && zel_gpio_get_phys_gpio_count() >= 0;
    if (!built) log_message(0, "%s: The unit cannot start: its ports could not be set up\n", __func__);
    return built;
}

void unit::start_inputs()
{
    if (if_nametoindex(settings_.interface.c_str()) == 0) {
        log_message(1, "%s: There is no interface '%s' at present\n", __func__, settings_.interface.c_str());
    }
    (void)link_.open(reactor_, settings_.interface, [this](bool up) {
        zel_gpio_notify_trigger_event(zel_gpio_eth_link_trig(), up ? 0 : 1);
        feed_.settle();
    });
    if (settings_.udp_enabled) (void)udp_.open(reactor_, settings_.udp);
}

void unit::take_signals()
{
    signalfd_siginfo each;
    while (read(signals_.get(), &each, sizeof each) == static_cast<ssize_t>(sizeof each)) {
        const int number = static_cast<int>(each.ssi_signo);
        if (number == SIGCHLD) {
            commands_.reap();
            companions_.reap();
        } else if (number == SIGHUP) {
            zel_debug_reopen();
            log_message(2, "%s: The log was opened anew\n", __func__);
        } else {
            log_message(2, "%s: Ending on signal %d\n", __func__, number);
            ending_ = true;
        }
    }
}

void unit::run()
{
    while (!ending_) {
        try {
            turn();
        } catch (const std::bad_alloc &) {
            log_message(0, "%s: Out of memory; what was being done is given up\n", __func__);
        }
    }
}

void unit::turn()
{
    fd_set readable, exceptional;
    FD_ZERO(&readable);
    FD_ZERO(&exceptional);
    int highest = -1;
    zel_gpio_set_fds(&readable, &exceptional, &highest);
    if (ember_.session() != nullptr) zel_ember_set_fds(ember_.session(), &readable, &highest);
    zel_sys_control_set_fds(&readable, &highest);
    web_.set_fds(&readable, &highest);
    reactor_.set_fds(&readable, &highest);

    const auto wait = next_due();
    timeval limit{};
    limit.tv_sec = wait ? wait->count() / 1000 : 0;
    limit.tv_usec = wait ? wait->count() % 1000 * 1000 : 0;
    const int ready = select(highest + 1, &readable, nullptr, &exceptional, wait ? &limit : nullptr);
    if (ready < 0) {
        if (errno != EINTR) log_message(0, "%s: select: %s\n", __func__, std::strerror(errno));
        FD_ZERO(&readable);
        FD_ZERO(&exceptional);
    }
    process(&readable, &exceptional);
    web_.settle(ready != 0);
}

// How long the loop may wait; nothing: as long as it likes.
std::optional<std::chrono::milliseconds> unit::next_due() const
{
    if (control_.request_waits()) return std::chrono::milliseconds(0);
    std::optional<std::chrono::milliseconds> wait;
    for (const auto &due : {presses_.next_due(), companions_.next_due(), web_.next_due()}) {
        if (due) wait = std::min(wait.value_or(*due), *due);
    }
    return wait;
}

// The library offers the pins of inputs that UDP commands drive, but leaves them unread; an edge there would end every wait.
void unit::discard_gpi_edges(const fd_set *exceptional)
{
    for (const pin_settings &pins : settings_.pins) {
        if (!pins.cough) zel_sys_gpio_discard_edge(pins.in_pin, exceptional);
    }
}

void unit::process(fd_set *readable, fd_set *exceptional)
{
    zel_gpio_process_fds(readable, exceptional);
    if (settings_.udp_enabled) discard_gpi_edges(exceptional);
    feed_.settle();
    if (ember_.session() != nullptr) zel_ember_process_fds(ember_.session(), readable);
    zel_sys_control_process_fds(readable);
    presses_.release_due();
    companions_.restart_due();
    web_.process(readable);
    reactor_.process();
    control_.serve_one();
    feed_.settle();
    control_.flush();
}

}  // namespace zel
