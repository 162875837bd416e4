#include "fake_gpio_lines.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <iterator>

namespace {

// A node is numbered by its folder and its place in it; the top folder is 1.
constexpr uint64_t top = 1;
constexpr const char *top_names[] = {"", "", "export", "unexport"};
constexpr const char *chip_names[] = {"", "label", "base", "ngpio"};
constexpr const char *line_names[] = {"", "direction", "edge", "active_low", "value"};
constexpr uint64_t places = 16, first_chip = places, first_line = 4 * places;

bool in_chip(uint64_t node) { return node >= first_chip && node < first_line; }
bool in_line(uint64_t node) { return node >= first_line; }
int offset_of(uint64_t node) { return static_cast<int>((node - first_line) / places); }
uint64_t line_folder(int offset) { return first_line + static_cast<uint64_t>(offset) * places; }

template <size_t count>
uint64_t place_of(const char *const (&names)[count], const std::string &name)
{
    const auto found = std::find(std::begin(names) + 1, std::end(names), name);
    return found != std::end(names) && !name.empty() ? static_cast<uint64_t>(found - std::begin(names)) : 0;
}

std::string trimmed(std::string text)
{
    while (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

}  // namespace

fake_gpio_lines::fake_gpio_lines() : mount_(*this, folder_.path())
{
    const std::lock_guard<std::mutex> held(lock_);
    for (int offset = 0; offset < count; ++offset) lines_[offset];
}

fake_gpio_lines::~fake_gpio_lines() = default;

void fake_gpio_lines::set_line(int offset, int level)
{
    std::vector<uint64_t> woken;
    {
        const std::lock_guard<std::mutex> held(lock_);
        gpio_line &line = lines_[offset];
        if (line.output || line.level == level) return;
        line.level = level;
        const bool rises = (level != 0) != line.active_low;  // edges of the kernel are logical ones
        if (line.edge != "both" && line.edge != (rises ? "rising" : "falling")) return;
        ++line.events;
        for (const auto &[handle, file] : files_) woken.push_back(handle);
    }
    for (const uint64_t handle : woken) mount_.wake(handle);
}

int fake_gpio_lines::line(int offset)
{
    const std::lock_guard<std::mutex> held(lock_);
    return lines_[offset].level;
}

void fake_gpio_lines::fail(const std::string &what, int error, int times)
{
    const std::lock_guard<std::mutex> held(lock_);
    faults_[what] = {error, times};
}

void fake_gpio_lines::refuse_after_export(int times, int error)
{
    const std::lock_guard<std::mutex> held(lock_);
    refused_opens_ = {error, times};
}

int fake_gpio_lines::fault(const std::string &what)
{
    const auto found = faults_.find(what);
    if (found == faults_.end() || found->second.second == 0) return 0;
    --found->second.second;
    return found->second.first;
}

std::vector<std::string> fake_gpio_lines::writes()
{
    const std::lock_guard<std::mutex> held(lock_);
    return writes_;
}

std::vector<int> fake_gpio_lines::output_levels(int offset)
{
    const std::lock_guard<std::mutex> held(lock_);
    return lines_[offset].driven;
}

void fake_gpio_lines::export_by_hand(int offset)
{
    const std::lock_guard<std::mutex> held(lock_);
    (void)export_line(std::to_string(base + offset), true);
}

void fake_gpio_lines::unexport_by_hand(int offset)
{
    std::vector<uint64_t> woken;
    {
        const std::lock_guard<std::mutex> held(lock_);
        (void)export_line(std::to_string(base + offset), false);
        for (const auto &[handle, file] : files_) woken.push_back(handle);
    }
    for (const uint64_t handle : woken) mount_.wake(handle);
}

bool fake_gpio_lines::exported(int offset)
{
    const std::lock_guard<std::mutex> held(lock_);
    return lines_[offset].exported;
}

void fake_gpio_lines::remove_attribute(const std::string &name)
{
    const std::lock_guard<std::mutex> held(lock_);
    removed_.insert(name);
}

void fake_gpio_lines::add_chip_with_the_same_label()
{
    const std::lock_guard<std::mutex> held(lock_);
    two_chips_ = true;
}

uint64_t fake_gpio_lines::find(uint64_t folder, const std::string &name)
{
    const std::lock_guard<std::mutex> held(lock_);
    if (removed_.contains(name)) return 0;
    if (folder == top) {
        if (name == "gpiochip" + std::to_string(base)) return first_chip;
        if (two_chips_ && name == "gpiochip600") return first_chip + places;
        for (const auto &[offset, line] : lines_) {
            if (line.exported && name == "gpio" + std::to_string(base + offset)) return line_folder(offset);
        }
        return place_of(top_names, name);
    }
    const uint64_t place = in_chip(folder) ? place_of(chip_names, name) : place_of(line_names, name);
    return place != 0 ? folder + place : 0;
}

bool fake_gpio_lines::exists(uint64_t node)
{
    const std::lock_guard<std::mutex> held(lock_);
    return !in_line(node) || lines_[offset_of(node)].exported;
}

bool fake_gpio_lines::is_folder(uint64_t node)
{
    return node == top || (node >= places && node % places == 0);
}

std::vector<std::string> fake_gpio_lines::names(uint64_t)
{
    const std::lock_guard<std::mutex> held(lock_);
    std::vector<std::string> all = {".", "..", "export", "unexport", "gpiochip" + std::to_string(base)};
    if (two_chips_) all.push_back("gpiochip600");
    return all;
}

int fake_gpio_lines::open(uint64_t node, uint64_t &handle)
{
    const std::lock_guard<std::mutex> held(lock_);
    if (in_line(node) && refused_opens_.second > 0) {
        --refused_opens_.second;
        return refused_opens_.first;
    }
    handle = ++last_file_;
    files_[handle] = {node, -1, in_line(node) ? lines_[offset_of(node)].generation : 0};
    return 0;
}

void fake_gpio_lines::close(uint64_t handle)
{
    const std::lock_guard<std::mutex> held(lock_);
    files_.erase(handle);
}

bool fake_gpio_lines::gone(const open_file &file)
{
    if (!in_line(file.node)) return false;
    const gpio_line &line = lines_[offset_of(file.node)];
    return !line.exported || line.generation != file.generation;
}

std::string fake_gpio_lines::name_of(uint64_t node)
{
    if (node < std::size(top_names)) return top_names[node];
    return in_chip(node) ? chip_names[node % places] : line_names[node % places];
}

int fake_gpio_lines::read(uint64_t handle, std::string &text)
{
    const std::lock_guard<std::mutex> held(lock_);
    open_file &file = files_[handle];
    const std::string name = name_of(file.node);
    if (gone(file)) return ENODEV;
    if (in_chip(file.node)) {
        text = (name == "label" ? label : std::to_string(name == "base" ? base : count)) + std::string("\n");
        return 0;
    }
    const gpio_line &line = lines_[offset_of(file.node)];
    file.seen = line.events;
    text = attribute_text(line, name) + "\n";
    return fault(name + " read");
}

std::string fake_gpio_lines::attribute_text(const gpio_line &line, const std::string &name)
{
    if (name == "direction") return line.output ? "out" : "in";
    if (name == "edge") return line.edge;
    if (name == "active_low") return line.active_low ? "1" : "0";
    return std::to_string(line.active_low ? 1 - line.level : line.level);
}

int fake_gpio_lines::write(uint64_t handle, const std::string &bytes)
{
    const std::lock_guard<std::mutex> held(lock_);
    const open_file file = files_[handle];
    const std::string name = name_of(file.node), text = trimmed(bytes);
    if (gone(file)) return ENODEV;
    if (const int error = fault(in_line(file.node) ? name + " write" : name)) return error;
    if (!in_line(file.node)) {
        writes_.push_back(name + " " + text);
        return export_line(text, name == "export");
    }
    const int offset = offset_of(file.node);
    writes_.push_back("gpio" + std::to_string(base + offset) + "/" + name + " " + text);
    return write_attribute(lines_[offset], name, text);
}

int fake_gpio_lines::export_line(const std::string &text, bool wanted)
{
    const int offset = std::stoi(text) - base;
    if (offset < 0 || offset >= count) return EINVAL;
    gpio_line &line = lines_[offset];
    if (offset == taken) return wanted ? EBUSY : EINVAL;
    if (line.exported == wanted) return wanted ? EBUSY : EINVAL;
    line.exported = wanted;
    ++line.generation;
    if (!wanted) line.edge = "none";
    return 0;
}

int fake_gpio_lines::write_attribute(gpio_line &line, const std::string &name, const std::string &text)
{
    if (name == "direction") return write_direction(line, text);
    if (name == "active_low") {
        line.active_low = text == "1";
        return 0;
    }
    if (name == "edge") {
        if (line.output && text != "none") return EIO;
        line.edge = text;
        ++line.events;  // worse than the kernel: setting an edge up signals one
        return 0;
    }
    if (!line.output) return EPERM;
    drive(line, (text == "1") != line.active_low);
    return 0;
}

int fake_gpio_lines::write_direction(gpio_line &line, const std::string &text)
{
    if (text == "in") {
        line.output = false;
        return 0;
    }
    if (line.edge != "none") return EIO;
    line.output = true;
    drive(line, text == "high");  // the line's own level, whatever its polarity
    return 0;
}

void fake_gpio_lines::drive(gpio_line &line, int level)
{
    line.level = level;
    line.driven.push_back(level);
}

uint32_t fake_gpio_lines::poll(uint64_t handle)
{
    const std::lock_guard<std::mutex> held(lock_);
    const open_file &file = files_[handle];
    const uint32_t always = POLLIN | POLLOUT;
    if (!in_line(file.node)) return always;
    const bool signalled = gone(file) || file.seen != lines_[offset_of(file.node)].events;
    return signalled ? always | POLLPRI | POLLERR : always;
}
