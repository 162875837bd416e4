// GPIO lines with their value files as the kernel has them, on a workstation without any: one chip, 8 lines, which tests
// move from outside and let fail.
#pragma once

#include "fuse_mount.h"
#include "temp_folder.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

class fake_gpio_lines : fuse_tree {
public:
    static constexpr int base = 504, count = 8, taken = 3;  // a driver uses one line
    static constexpr const char *label = "fake-chip";

    fake_gpio_lines();
    ~fake_gpio_lines() override;

    const std::string &folder() const { return folder_.path(); }
    // Drive line `base + offset` from outside (an input) or see what it has (an output).
    void set_line(int offset, int level);
    int line(int offset);
    // The next `times` uses of "export", "unexport" or a line's attribute ("value read", "direction write" ...) fail.
    void fail(const std::string &what, int error, int times = 1 << 30);
    // Once the next line is exported, so many uses of its files are refused.
    void refuse_after_export(int times, int error);
    // What was written so far: "export 504", "gpio504/direction in" ...; and each level that an output had in turn.
    std::vector<std::string> writes();
    std::vector<int> output_levels(int offset);
    void export_by_hand(int offset);
    void unexport_by_hand(int offset);
    bool exported(int offset);
    void remove_attribute(const std::string &name);
    void add_chip_with_the_same_label();

private:
    struct gpio_line {
        bool exported = false, output = false, active_low = false;
        std::string edge = "none";
        int level = 0;
        int events = 0;       // signalled so far
        int generation = 0;   // counts exports: files opened before the last are dead
        std::vector<int> driven;
    };
    struct open_file {
        uint64_t node = 0;
        int seen = -1;        // events when last read; a file just opened has something to tell
        int generation = 0;
    };

    uint64_t find(uint64_t folder, const std::string &name) override;
    bool exists(uint64_t node) override;
    bool is_folder(uint64_t node) override;
    std::vector<std::string> names(uint64_t folder) override;
    int open(uint64_t node, uint64_t &handle) override;
    int read(uint64_t handle, std::string &text) override;
    int write(uint64_t handle, const std::string &text) override;
    uint32_t poll(uint64_t handle) override;
    void close(uint64_t handle) override;

    int fault(const std::string &what);
    bool gone(const open_file &file);
    int export_line(const std::string &text, bool wanted);
    int write_attribute(gpio_line &line, const std::string &name, const std::string &text);
    int write_direction(gpio_line &line, const std::string &text);
    std::string attribute_text(const gpio_line &line, const std::string &name);
    void drive(gpio_line &line, int level);
    std::string name_of(uint64_t node);

    std::mutex lock_;
    std::map<int, gpio_line> lines_;
    std::map<uint64_t, open_file> files_;
    uint64_t last_file_ = 0;
    std::map<std::string, std::pair<int, int>> faults_;  // error, times
    std::set<std::string> removed_;
    std::vector<std::string> writes_;
    std::pair<int, int> refused_opens_;                  // error, times
    bool two_chips_ = false;
    temp_folder folder_;
    fuse_mount mount_;
};
