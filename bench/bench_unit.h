// A unit on simulated pins in a folder of its own, for the benchmarks that go through the library.
#pragma once

#include <string>

namespace bench {

// Makes the folder with these settings of the library ("gpio" section, JSON text), points ZEL_ROOT at it, and removes it at the end.
class unit_folder {
public:
    explicit unit_folder(const std::string &gpio_section);
    ~unit_folder();
    unit_folder(const unit_folder &) = delete;
    unit_folder &operator=(const unit_folder &) = delete;

private:
    std::string root_;
};

// Ends the program with a message when a step of a benchmark fails: a figure of something that did not work is worse than none.
void require(bool good, const char *what);

}  // namespace bench
