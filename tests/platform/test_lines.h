// GPIO lines of a machine for tests: real ones that somebody moves from outside, or made-up ones.
#pragma once

#include <memory>
#include <string>
#include <vector>

class test_lines {
public:
    virtual ~test_lines() = default;
    // Lines are given by their offset on the chip. A line has moved when this returns.
    virtual void set(int offset, int level) = 0;
    virtual int get(int offset) = 0;

    std::string label;          // of the chip
    std::vector<int> offsets;   // three that tests may drive, then four that the chip may drive
    int taken = -1;             // one that a driver uses
};

// Real lines where ZEL_TEST_LINES ("label of the chip:offset,offset,...") and ZEL_TEST_LINE_CHANNEL (a terminal that answers
// "set OFFSET LEVEL" by "ok" and "get OFFSET" by "ok LEVEL") are set; ZEL_TEST_TAKEN_LINE is the offset of one in use.
// Otherwise made-up ones, which ZEL_SYSFS_GPIO then names. Null where neither is to be had.
std::unique_ptr<test_lines> make_test_lines();
bool real_lines_are_given();
bool test_lines_are_to_be_had();

// Members of "kernel_lines" for unit.json: each pin on the line beside it.
std::string kernel_lines_json(const test_lines &lines, const std::vector<std::pair<int, int>> &pins_and_offsets);

constexpr int patience_ms = 20000;
