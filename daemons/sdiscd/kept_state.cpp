#include "kept_state.h"

#include "common/json_reading.h"
#include "common/unique_fd.h"
#include "common/unit_root.h"
#include "zel_debug.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace zel::sdiscd {
namespace {

struct text_release {
    void operator()(char *text) const { std::free(text); }
};

std::string text_in(const json_t *object, const char *key)
{
    const json_t *const value = json_object_get(object, key);
    return json_is_string(value) ? std::string(json_string_value(value), json_string_length(value)) : "";
}

int64_t number_in(const json_t *object, const char *key)
{
    return json_integer_value(json_object_get(object, key));
}

bool is_reference(const std::string &interface)
{
    return !interface.empty() && interface.size() < 32 && interface.find('\0') == std::string::npos;
}

bool read_service(const json_t *object, service_place &out)
{
    out = {text_in(object, "interface"), {text_in(object, "type"), text_in(object, "name")}};
    return is_reference(out.interface) && is_service_type(out.service.type) && is_service_name(out.service.name);
}

bool read_announcement(const json_t *object, announcement &out)
{
    const int64_t port = number_in(object, "port");
    if (!read_service(object, out.place) || port < 1 || port > UINT16_MAX) return false;
    out.port = static_cast<uint16_t>(port);
    std::string problem;
    auto strings = read_txt(text_in(object, "txt"), problem);
    if (!strings) return false;
    out.txt = std::move(*strings);
    return true;
}

bool read_client(const json_t *object, kept_client &out, bool &whole)
{
    out.name = text_in(object, "name");
    out.process = {static_cast<int32_t>(number_in(object, "pid")), static_cast<uint64_t>(number_in(object, "started"))};
    if (out.name.empty() || out.name.size() > 63) return false;
    size_t at;
    json_t *each;
    json_array_foreach(json_object_get(object, "looks_for"), at, each) {
        question asked{text_in(each, "interface"), text_in(each, "type")};
        const bool sound = is_reference(asked.interface) && is_service_type(asked.type);
        if (sound) out.questions.push_back(std::move(asked));
        whole = whole && sound;
    }
    json_array_foreach(json_object_get(object, "publishes"), at, each) {
        announcement what;
        const bool sound = read_announcement(each, what);
        if (sound) out.announcements.push_back(std::move(what));
        whole = whole && sound;
    }
    json_array_foreach(json_object_get(object, "was_told"), at, each) {
        service_place place;
        const bool sound = read_service(each, place);
        if (sound) {
            service_report &report = out.told[place.service];
            report.interface = place.interface;
            report.details_sum = std::strtoull(text_in(each, "details").c_str(), nullptr, 16);
        }
        whole = whole && sound;
    }
    return true;
}

json_t *pack_announcement(const announcement &what)
{
    return json_pack("{s:s, s:s, s:s, s:i, s:s}", "interface", what.place.interface.c_str(), "type",
                     what.place.service.type.c_str(), "name", what.place.service.name.c_str(), "port", int{what.port}, "txt",
                     write_txt(what.txt, txt_size * 4).c_str());
}

json_t *pack_report(const service_id &service, const service_report &report)
{
    char sum[20];
    (void)std::snprintf(sum, sizeof sum, "%" PRIx64, report.details_sum);
    return json_pack("{s:s, s:s, s:s, s:s}", "interface", report.interface.c_str(), "type", service.type.c_str(), "name",
                     service.name.c_str(), "details", sum);
}

json_t *pack_client(const kept_client &one)
{
    json_t *const questions = json_array(), *const announcements = json_array(), *const told = json_array();
    for (const question &each : one.questions) {
        (void)json_array_append_new(questions, json_pack("{s:s, s:s}", "interface", each.interface.c_str(), "type", each.type.c_str()));
    }
    for (const announcement &each : one.announcements) (void)json_array_append_new(announcements, pack_announcement(each));
    for (const auto &[service, report] : one.told) (void)json_array_append_new(told, pack_report(service, report));
    return json_pack("{s:s, s:i, s:I, s:o, s:o, s:o}", "name", one.name.c_str(), "pid", one.process.pid, "started",
                     static_cast<json_int_t>(one.process.started), "looks_for", questions, "publishes", announcements, "was_told",
                     told);
}

// Changes with each start of the machine; "" if it is not known.
std::string machine_start()
{
    char text[64] = "";
    const unique_fd file(open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC));
    const ssize_t got = file ? read(file.get(), text, sizeof text - 1) : -1;
    return got > 0 ? std::string(text, strcspn(text, "\n")) : "";
}

bool write_all(int fd, const char *text, size_t length)
{
    while (length > 0) {
        const ssize_t written = ::write(fd, text, length);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return false;
        text += written;
        length -= static_cast<size_t>(written);
    }
    return true;
}

}  // namespace

std::vector<kept_client> read_kept(const std::string &path, std::string &complaint)
{
    std::vector<kept_client> clients;
    const json_reading reading = read_json_file(path.c_str());
    if (reading.state == json_state::missing) return clients;
    if (reading.state != json_state::good) {
        complaint = path + ": " + reading.problem;
        return clients;
    }
    // In a folder that a restart does not clear: another process may have come to the number and start time of a client.
    const std::string start = text_in(reading.root.get(), "machine_start");
    if (!start.empty() && start != machine_start()) return clients;
    bool whole = true;
    size_t at;
    json_t *each;
    json_array_foreach(json_object_get(reading.root.get(), "clients"), at, each) {
        kept_client one;
        const bool sound = read_client(each, one, whole);
        if (sound) clients.push_back(std::move(one));
        whole = whole && sound;
    }
    if (!whole) complaint = path + ": some entries make no sense and are left out";
    return clients;
}

// No fsync: a machine that loses its power has lost the clients, too.
bool write_kept(const std::string &path, const std::vector<kept_client> &clients)
{
    json_t *const list = json_array();
    for (const kept_client &each : clients) (void)json_array_append_new(list, pack_client(each));
    const json_handle root(json_pack("{s:s, s:o}", "machine_start", machine_start().c_str(), "clients", list));
    const std::unique_ptr<char, text_release> text(json_dumps(root.get(), JSON_INDENT(1)));
    if (text == nullptr) throw std::bad_alloc();
    const std::string fresh = path + ".new";
    unique_fd file(open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!file && errno == ENOENT && make_folder_of(path)) {
        file.reset(open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600));
    }
    if (file && write_all(file.get(), text.get(), std::strlen(text.get())) && rename(fresh.c_str(), path.c_str()) == 0) return true;
    const int error = errno;
    if (file) (void)unlink(fresh.c_str());
    errno = error;
    return false;
}

std::vector<kept_client> kept_state::read() const
{
    std::string complaint;
    std::vector<kept_client> clients = read_kept(path_, complaint);
    if (!complaint.empty()) log_message(1, "%s: %s\n", __func__, complaint.c_str());
    return clients;
}

void kept_state::update(const discovery &logic, int64_t now)
{
    if (logic.request_changes() != requests_ && !complained_) due_ms_ = now;
    else if (logic.report_changes() != reports_ && !due_ms_) due_ms_ = now + report_delay_ms;
    if (due_ms_ && *due_ms_ <= now) write(logic, now);
}

void kept_state::write(const discovery &logic, int64_t now)
{
    if (write_kept(path_, logic.kept())) {
        requests_ = logic.request_changes();
        reports_ = logic.report_changes();
        due_ms_.reset();
        if (complained_) log_message(2, "%s: %s is written again\n", __func__, path_.c_str());
        complained_ = false;
        return;
    }
    if (!complained_) {
        log_message(1, "%s: %s: %s; what clients asked for would not survive this process; trying again\n", __func__, path_.c_str(),
                    std::strerror(errno));
    }
    complained_ = true;
    due_ms_ = now + retry_ms;
}

}  // namespace zel::sdiscd
