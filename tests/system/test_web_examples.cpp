// The examples of the manual about HTTP, run as they stand there.
#include "running_unit.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

using namespace zel::test;

namespace {

struct example {
    std::string command;
    std::vector<std::string> output;
};

std::vector<std::string> lines_of(const std::string &text)
{
    std::vector<std::string> lines;
    for (size_t begin = 0; begin < text.size();) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        lines.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return lines;
}

// Indented lines: a command behind "$ ", then what it prints.
std::vector<example> examples_in(const std::string &text)
{
    std::vector<example> examples;
    bool open = false;
    for (const std::string &line : lines_of(text)) {
        const bool indented = line.starts_with("    ");
        if (indented && line.starts_with("    $ ")) examples.push_back({line.substr(6), {}});
        else if (indented && open) examples.back().output.push_back(line.substr(4));
        open = indented;
    }
    return examples;
}

std::string with_own_address(std::string text)
{
    const std::string written = "127.0.0.1:8080";
    for (size_t at = 0; (at = text.find(written, at)) != std::string::npos;) text.replace(at, written.size(), own_address() +
        ":8080");
    return text;
}

bool is_as_written(const std::string &line, const std::string &written)
{
    return written.ends_with("...") ? line.starts_with(written.substr(0, written.size() - 3)) : line == written;
}

TEST(web_examples, print_what_the_manual_says)
{
    const unit_root root(studio_settings());
    write_file(root.config(), studio_config());
    unit_process unit(root, {{"ZEL_LOG_LEVEL", "error"}});
    ASSERT_TRUE(unit.ready());
    const auto examples = examples_in(read_file(ZEL_DOCS "/web_programming.md"));
    ASSERT_GT(examples.size(), 12u);
    for (const example &each : examples) {
        const run_result result = run({"/bin/sh", "-c", with_own_address(each.command)});
        const auto printed = lines_of(result.out);
        ASSERT_GE(printed.size(), each.output.size()) << each.command << "\n" << result.out << result.err;
        for (size_t i = 0; i < each.output.size(); ++i) EXPECT_PRED2(is_as_written, printed[i], each.output[i]) << each.command;
    }
    EXPECT_EQ(unit.stop(), 0);
}

}  // namespace
