// A unit of the test's own: a folder in the system's temporary folder, the program running on it, and clients of it.
#pragma once

#include "child_process.h"
#include "common/json_reading.h"

#include <memory>
#include <string>
#include <string_view>

namespace zel::test {

// A folder that goes with the object.
class temp_folder {
public:
    temp_folder();
    ~temp_folder();
    temp_folder(const temp_folder &) = delete;
    temp_folder &operator=(const temp_folder &) = delete;

    const std::string &path() const { return path_; }

private:
    std::string path_;
};

void write_file(const std::string &path, std::string_view text);  // makes the folders
std::string read_file(const std::string &path);                   // "" if there is none

// An address of the loopback network that no other test process uses.
std::string own_address();

// The root of a unit: made with settings, kept over restarts.
class unit_root {
public:
    // `more`: members of unit.json besides those for the servers, each with a comma in front of it.
    explicit unit_root(const std::string &more = "", const std::string &subfolder = "");

    std::string path() const { return path_; }
    std::string settings() const { return path_ + "/etc/zel/unit.json"; }
    std::string config() const { return path_ + "/mnt/data/config/config.json"; }
    std::string socket() const { return path_ + "/run/zel/unit"; }
    void write_settings(const std::string &more) const;

private:
    temp_folder folder_;
    std::string path_;
};

// The studio example with its wiring.
std::string studio_settings();
std::string studio_config();

// Starts a program that says when it is ready; waits for that. False if it ended before.
bool start_service(child_process &child, const std::vector<std::string> &words, const std::string &notify_path,
                   environment variables);

class unit_process {
public:
    // Starts the unit and waits until it is ready; ready() is false if it ended before.
    explicit unit_process(const unit_root &root, environment variables = {}, const std::vector<std::string> &options = {},
                          const std::string &program = ZEL_UNIT);

    bool ready() const { return ready_; }
    child_process &process() { return child_; }
    // SIGTERM and the exit status.
    int stop();

private:
    child_process child_;
    bool ready_ = false;
};

// A client of the control socket.
class control_link {
public:
    explicit control_link(const unit_root &root);

    bool connected() const { return connected_; }
    void send(std::string_view text) const;
    // Sends a request line and returns its answer; null if none comes.
    json_handle ask(const std::string &request);
    // The next line; "" at the end.
    std::string line();
    json_handle next();
    int fd() const { return sending_.get(); }

private:
    unique_fd sending_;
    line_reader reader_;
    bool connected_ = false;
};

bool is_ok(const json_handle &answer);
std::string text_of(const json_handle &object, const char *key);
int number_of(const json_handle &object, const char *key);

// Runs zelctl on that root.
run_result zelctl(const unit_root &root, std::vector<std::string> words);

}  // namespace zel::test
