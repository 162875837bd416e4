#include "ember_provider.h"

#include "common/unique_fd.h"
#include "common/unit_root.h"
#include "zel_debug.h"

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace zel {
namespace {

constexpr int read_only = 1;
constexpr size_t serial_digits = 12;

std::string stored_serial(const std::string &path)
{
    const unique_fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    char text[serial_digits + 1] = "";
    const ssize_t got = file ? read(file.get(), text, serial_digits) : -1;
    if (got != static_cast<ssize_t>(serial_digits)) return "";
    return std::strspn(text, "0123456789abcdef") == serial_digits ? text : "";
}

// The unit's claim keeps a second writer away; the rename keeps a power cut from leaving half a number.
std::string fresh_serial(const std::string &path)
{
    unsigned char bytes[serial_digits / 2];
    if (getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes) || !make_folder_of(path)) return "";
    std::string text;
    for (const unsigned char byte : bytes) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", byte);
        text += digits;
    }
    const std::string line = text + "\n", temporary = path + ".new";
    const unique_fd file(open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    const bool written = file && write(file.get(), line.data(), line.size()) == static_cast<ssize_t>(line.size()) &&
                         fsync(file.get()) == 0 && rename(temporary.c_str(), path.c_str()) == 0;
    return written ? text : "";
}

}  // namespace

std::string unit_serial()
{
    const std::string path = below_unit_root("/etc/zel/serial");
    std::string serial = stored_serial(path);
    if (serial.empty()) serial = fresh_serial(path);
    if (serial.empty()) log_message(1, "%s: %s cannot be written: %s\n", __func__, path.c_str(), std::strerror(errno));
    return serial;
}

bool ember_provider::open(const unit_settings &settings, const std::string &serial)
{
    zel_ember_session_config_t config{};
    config.bind_addr = settings.ember.address.c_str();
    config.listen_port = static_cast<uint16_t>(settings.ember.port);
    session_.reset(zel_ember_session_init(&config));
    if (session_ && add_identity(settings, serial)) return true;
    log_message(0, "%s: No Ember+ provider on %s port %d; the unit runs without its tree\n", __func__,
                settings.ember.address.c_str(), settings.ember.port);
    close();
    return false;
}

bool ember_provider::add_identity(const unit_settings &settings, const std::string &serial)
{
    zel_ember_element_t *const unit = zel_ember_add_node(session_.get(), "unit", "Audio unit", 1, nullptr);
    zel_ember_element_t *const identity = zel_ember_add_node(session_.get(), "identity", "Identity", 1, unit);
    if (unit == nullptr || identity == nullptr) return false;
    const struct { const char *name, *description, *value; } rows[] = {
        {"product", "Product id", settings.product_id.c_str()},
        {"serial", "Serial number", serial.c_str()},
        {"name", "Friendly name", settings.friendly_name.c_str()},
        {"version", "Software version", ZEL_VERSION},
    };
    int32_t number = 0;
    for (const auto &row : rows) {
        if (zel_ember_add_string_param(session_.get(), row.name, row.description, ++number, read_only, row.value, nullptr,
                                       nullptr, identity) == nullptr) {
            return false;
        }
    }
    parent_ = unit;
    return true;
}

void ember_provider::close()
{
    parent_ = nullptr;
    session_.reset();
}

}  // namespace zel
