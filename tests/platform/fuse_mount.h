// A folder whose files this process makes up, by the kernel's own FUSE protocol: what plain files cannot do (fail as told,
// become exceptional in select()) these can.
#pragma once

#include "common/unique_fd.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct fuse_in_header;

// What is served. Files are numbered from 1 (the folder itself), open files as the tree likes. Called on the server's thread.
class fuse_tree {
public:
    virtual ~fuse_tree() = default;
    virtual uint64_t find(uint64_t folder, const std::string &name) = 0;  // 0: no such file
    virtual bool exists(uint64_t node) = 0;
    virtual bool is_folder(uint64_t node) = 0;
    virtual std::vector<std::string> names(uint64_t folder) = 0;
    virtual int open(uint64_t node, uint64_t &handle) = 0;                    // 0 or an errno, as the next two
    virtual int read(uint64_t handle, std::string &text) = 0;
    virtual int write(uint64_t handle, const std::string &text) = 0;
    virtual uint32_t poll(uint64_t handle) = 0;                               // POLLIN, POLLPRI ...
    virtual void close(uint64_t handle) = 0;
};

// Mounts in a mount namespace of this process; gone with the object or the process.
class fuse_mount {
public:
    fuse_mount(fuse_tree &tree, const std::string &folder);
    ~fuse_mount();

    // Whoever waits for that open file looks again. From any thread, outside the tree's calls.
    void wake(uint64_t handle);

    // Whether this process may mount; tried in a child process.
    static bool possible();

private:
    void serve();
    void answer(const char *request);
    std::string body_for(const fuse_in_header &in, const char *argument, int &error);
    void reply(uint64_t unique, int error, const std::string &body);
    std::string entry_for(const fuse_in_header &in, const char *name, int &error);
    std::string attributes_for(uint64_t node, int &error);
    std::string opened(const fuse_in_header &in, int &error);
    std::string text_of(const char *argument, int &error);
    std::string written(const char *argument, int &error);
    std::string listing(const fuse_in_header &in, const char *argument);
    std::string polled(const char *argument);

    fuse_tree &tree_;
    std::string folder_;
    zel::unique_fd device_;
    std::mutex waiters_lock_;
    std::map<uint64_t, uint64_t> waiters_;  // by open file: the kernel's name for those who wait for it
    std::thread server_;
};
