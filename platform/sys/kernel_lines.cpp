#include "kernel_lines.h"

#include "sys_config.h"
#include "zel_debug.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace zel {
namespace {

constexpr int most_waits = 50;

std::string sysfs_folder()
{
    const char *const other = std::getenv("ZEL_SYSFS_GPIO");
    return other != nullptr ? other : "/sys/class/gpio";
}

// The text of a small file without its line feed; empty if it cannot be read.
std::string read_text(const std::string &path)
{
    const unique_fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    char text[256];
    const ssize_t got = file ? ::read(file.get(), text, sizeof(text)) : 0;
    std::string result(text, got > 0 ? static_cast<size_t>(got) : 0);
    if (result.ends_with('\n')) result.pop_back();
    return result;
}

int32_t read_number(const std::string &path)
{
    const std::string text = read_text(path);
    int32_t number = -1;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

struct found_chip {
    std::string folder;
    int count = 0;  // chips that bear the label
};

found_chip find_chip(const std::string &label)
{
    found_chip found;
    const std::string top = sysfs_folder();
    const std::unique_ptr<DIR, int (*)(DIR *)> folder(opendir(top.c_str()), closedir);
    while (const dirent *const entry = folder ? readdir(folder.get()) : nullptr) {
        const std::string chip = top + "/" + entry->d_name;
        if (std::strncmp(entry->d_name, "gpiochip", 8) != 0 || read_text(chip + "/label") != label) continue;
        found.folder = chip;
        ++found.count;
    }
    return found;
}

bool find_line_of_chip(int32_t pin, const chip_line &wanted, int32_t &line)
{
    const found_chip chip = find_chip(wanted.chip);
    if (chip.count != 1) {
        log_message(0, "%s: Pin %d: %s with the label \"%s\"\n", __func__, pin,
                    chip.count == 0 ? "there is no chip" : "there are several chips", wanted.chip.c_str());
        return false;
    }
    const int32_t base = read_number(chip.folder + "/base");
    const int32_t count = read_number(chip.folder + "/ngpio");
    if (base < 0 || wanted.offset >= count) {
        log_message(0, "%s: Pin %d: chip \"%s\" has no line %d, it has %d\n", __func__, pin, wanted.chip.c_str(), wanted.offset,
                    count);
        return false;
    }
    line = base + wanted.offset;
    return true;
}

int write_text(int file, const char *text)
{
    const auto length = static_cast<ssize_t>(std::strlen(text));
    const ssize_t written = ::write(file, text, static_cast<size_t>(length));
    if (written == length) return 0;
    return written < 0 ? errno : EIO;
}

int write_number(const std::string &path, int32_t number)
{
    const unique_fd file(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    return file ? write_text(file.get(), std::to_string(number).c_str()) : errno;
}

}  // namespace

bool find_kernel_line(int32_t pin, int32_t &line)
{
    const auto &lines = config_of_unit().kernel_lines;
    const auto found = lines.find(pin);
    if (found == lines.end()) {
        line = pin;
        return true;
    }
    if (found->second.chip.empty() || found->second.offset < 0) {
        log_message(0, "%s: Pin %d: its entry in kernel_lines needs a chip label and an offset\n", __func__, pin);
        return false;
    }
    return find_line_of_chip(pin, found->second, line);
}

kernel_line::kernel_line(int32_t number) : number_(number), folder_(sysfs_folder() + "/gpio" + std::to_string(number)) {}

int kernel_line::export_files()
{
    if (access(folder_.c_str(), F_OK) == 0) return 0;
    const int error = write_number(sysfs_folder() + "/export", number_);
    exported_here_ = error == 0;
    waits_left_ = exported_here_ ? most_waits : 0;
    return error;
}

void kernel_line::unexport_files()
{
    if (!exported_here_) return;
    exported_here_ = false;
    const int error = write_number(sysfs_folder() + "/unexport", number_);
    if (error != 0) log_message(1, "%s: Line %d stays exported: %s\n", __func__, number_, cause_of(error));
}

// A line just exported belongs to root until udev has given its files to the group that may use them.
int kernel_line::open_attribute(const char *attribute, int flags, unique_fd &file)
{
    constexpr int interval_ms = 10;
    const std::string path = folder_ + "/" + attribute;
    for (;;) {
        file.reset(open(path.c_str(), flags | O_CLOEXEC));
        if (file) return 0;
        if (errno != EACCES || waits_left_ == 0) return errno;
        --waits_left_;
        (void)poll(nullptr, 0, interval_ms);
    }
}

int kernel_line::write(const char *attribute, const char *text)
{
    unique_fd file;
    const int error = open_attribute(attribute, O_WRONLY, file);
    return error == 0 ? write_text(file.get(), text) : error;
}

int kernel_line::open_value(bool writable, unique_fd &value)
{
    return open_attribute("value", writable ? O_RDWR : O_RDONLY, value);
}

const char *cause_of(int error)
{
    struct cause {
        int error;
        const char *text;
    };
    static constexpr cause causes[] = {
        {EBUSY, "busy, a driver or another program uses the line"},
        {EINVAL, "there is no such line, or it cannot do this"},
        {EACCES, "no permission"},
        {EPERM, "no permission"},
        {ENOENT, "the file is missing"},
        {ENODEV, "the line has gone"},
    };
    for (const cause &known : causes) {
        if (known.error == error) return known.text;
    }
    return std::strerror(error);
}

}  // namespace zel
