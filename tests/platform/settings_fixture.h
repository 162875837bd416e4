// A unit of its own with one settings file, "/config/config.json", and its log.
#pragma once

#include "captured_stderr.h"
#include "file_calls.h"
#include "temp_folder.h"
#include "zel_debug.h"
#include "zel_json.h"

#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <string>

struct file_release {
    void operator()(zel_json_file_t *file) const { zel_json_file_term(file); }
};
using file_handle = std::unique_ptr<zel_json_file_t, file_release>;

class settings : public testing::Test {
protected:
    void SetUp() override
    {
        setenv("ZEL_ROOT", unit_.path().c_str(), 1);
        zel_debug_set_repeat_interval(0);  // every line counts here
        zel_json_init();
    }
    void TearDown() override { file_calls::watch(""); }

    file_handle open() { return file_handle(zel_json_file_init("/config/config.json")); }
    void write(const std::string &name, const std::string &text) { write_text(folder_ + "/" + name, text); }
    std::string text(const std::string &name) const { return text_of(folder_ + "/" + name); }
    bool is_there(const std::string &name) const { return std::filesystem::exists(folder_ + "/" + name); }

    // Reads one number of the file as the next start would; -1 when the file does not open or lacks it.
    int32_t number_at_next_start(const char *key = "number")
    {
        const file_handle file = open();
        return zel_json_file_load_integer(file.get(), gpio(file), key, -1);
    }
    static zel_json_obj_t *gpio(const file_handle &file) { return zel_json_file_load_object(file.get(), nullptr, "gpio"); }

    // Log lines that contain `part`.
    size_t logged(const std::string &part)
    {
        for (std::string &line : log_.all()) lines_.push_back(std::move(line));
        size_t count = 0;
        for (const std::string &line : lines_) count += line.find(part) != std::string::npos;
        return count;
    }
    std::string whole_log()
    {
        (void)logged("");
        std::string all;
        for (const std::string &line : lines_) all += line;
        return all;
    }

    // Runs `deed` in a forked child; its exit status.
    static int in_child(const std::function<void()> &deed)
    {
        const pid_t child = fork();
        if (child == 0) {
            deed();
            _exit(0);
        }
        int status = -1;
        return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    temp_folder unit_;
    const std::string folder_ = unit_.file("config");
    captured_stderr log_;

private:
    std::vector<std::string> lines_;
};

// The calls that end one replacement of the file.
inline constexpr char in_place[] = "rename config.json.tmp -> config.json";
inline constexpr char on_disk[] = "fsync .";
