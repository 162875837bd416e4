#include "fuse_mount.h"

#include <fcntl.h>
#include <linux/fuse.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace {

constexpr size_t request_max = FUSE_MIN_READ_BUFFER + 65536;

template <typename Record>
std::string bytes_of(const Record &record)
{
    return {reinterpret_cast<const char *>(&record), sizeof(record)};
}

template <typename Record>
Record record_at(const char *bytes)
{
    Record record;
    std::memcpy(&record, bytes, sizeof(record));
    return record;
}

bool write_file(const char *path, const std::string &text)
{
    const zel::unique_fd file(open(path, O_WRONLY | O_CLOEXEC));
    return file && write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

// Mounts of this process stay its own; one without privileges takes them from a user namespace of its own.
bool enter_mount_namespace()
{
    const uid_t user = geteuid();
    const gid_t group = getegid();
    if (unshare(CLONE_NEWNS | (user != 0 ? CLONE_NEWUSER : 0)) != 0) return false;
    if (user != 0) {
        (void)write_file("/proc/self/setgroups", "deny");
        if (!write_file("/proc/self/uid_map", std::to_string(user) + " " + std::to_string(user) + " 1")) return false;
        if (!write_file("/proc/self/gid_map", std::to_string(group) + " " + std::to_string(group) + " 1")) return false;
    }
    return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

zel::unique_fd mount_at(const std::string &folder)
{
    zel::unique_fd device(open("/dev/fuse", O_RDWR | O_CLOEXEC));
    const std::string options = "fd=" + std::to_string(device.get()) + ",rootmode=40000,user_id=" + std::to_string(geteuid()) +
                                ",group_id=" + std::to_string(getegid());
    if (!device || mount("fake", folder.c_str(), "fuse", MS_NOSUID | MS_NODEV, options.c_str()) != 0) device.reset();
    return device;
}

fuse_attr attributes(uint64_t node, bool folder)
{
    fuse_attr attr = {};
    attr.ino = node;
    attr.mode = folder ? S_IFDIR | 0755 : S_IFREG | 0644;
    attr.nlink = 1;
    attr.uid = geteuid();
    attr.gid = getegid();
    attr.size = folder ? 0 : 4096;
    return attr;
}

}  // namespace

bool fuse_mount::possible()
{
    const pid_t child = fork();
    if (child == 0) {
        char folder[] = "/tmp/zel-test-XXXXXX";
        const bool made = mkdtemp(folder) != nullptr;
        const bool mounted = made && enter_mount_namespace() && mount_at(folder);
        if (mounted) (void)umount2(folder, MNT_DETACH);
        if (made) (void)rmdir(folder);
        _exit(mounted ? 0 : 1);
    }
    int status = 1;
    return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

fuse_mount::fuse_mount(fuse_tree &tree, const std::string &folder) : tree_(tree), folder_(folder)
{
    static const bool entered = enter_mount_namespace();
    if (entered) device_ = mount_at(folder);
    if (!device_) throw std::runtime_error("cannot mount at " + folder);
    server_ = std::thread([this] { serve(); });
}

fuse_mount::~fuse_mount()
{
    (void)umount2(folder_.c_str(), MNT_DETACH | MNT_FORCE);
    server_.join();
}

void fuse_mount::serve()
{
    std::string request(request_max, '\0');
    for (;;) {
        const ssize_t got = read(device_.get(), request.data(), request.size());
        if (got > 0) answer(request.data());
        else if (got == 0 || (errno != EINTR && errno != ENOENT && errno != EAGAIN)) return;  // unmounted
    }
}

void fuse_mount::answer(const char *request)
{
    const auto in = record_at<fuse_in_header>(request);
    if (in.opcode == FUSE_FORGET || in.opcode == FUSE_BATCH_FORGET || in.opcode == FUSE_INTERRUPT) return;
    int error = 0;
    const std::string body = body_for(in, request + sizeof(in), error);
    reply(in.unique, error, error == 0 ? body : std::string());
}

std::string fuse_mount::body_for(const fuse_in_header &in, const char *argument, int &error)
{
    switch (in.opcode) {
    case FUSE_INIT: {
        fuse_init_out out = {};
        out.major = FUSE_KERNEL_VERSION;
        out.minor = FUSE_KERNEL_MINOR_VERSION;
        out.max_readahead = record_at<fuse_init_in>(argument).max_readahead;
        out.max_write = 4096;
        return bytes_of(out);
    }
    case FUSE_LOOKUP: return entry_for(in, argument, error);
    case FUSE_GETATTR:
    case FUSE_SETATTR: return attributes_for(in.nodeid, error);
    case FUSE_OPEN: return opened(in, error);
    case FUSE_OPENDIR: return bytes_of(fuse_open_out{});
    case FUSE_READ: return text_of(argument, error);
    case FUSE_WRITE: return written(argument, error);
    case FUSE_READDIR: return listing(in, argument);
    case FUSE_POLL: return polled(argument);
    case FUSE_RELEASE: tree_.close(record_at<fuse_release_in>(argument).fh); return {};
    case FUSE_RELEASEDIR:
    case FUSE_DESTROY: return {};
    default: error = ENOSYS; return {};
    }
}

void fuse_mount::reply(uint64_t unique, int error, const std::string &body)
{
    fuse_out_header out = {static_cast<uint32_t>(sizeof(out) + body.size()), -error, unique};
    iovec parts[] = {{&out, sizeof(out)}, {const_cast<char *>(body.data()), body.size()}};
    (void)writev(device_.get(), parts, 2);  // fails where nobody waits any more
}

std::string fuse_mount::entry_for(const fuse_in_header &in, const char *name, int &error)
{
    fuse_entry_out out = {};
    out.nodeid = tree_.find(in.nodeid, name);
    if (out.nodeid == 0) error = ENOENT;
    out.attr = attributes(out.nodeid, tree_.is_folder(out.nodeid));
    return bytes_of(out);
}

std::string fuse_mount::attributes_for(uint64_t node, int &error)
{
    fuse_attr_out out = {};
    if (!tree_.exists(node)) error = ENOENT;
    out.attr = attributes(node, tree_.is_folder(node));
    return bytes_of(out);
}

std::string fuse_mount::opened(const fuse_in_header &in, int &error)
{
    fuse_open_out out = {};
    error = tree_.open(in.nodeid, out.fh);
    out.open_flags = FOPEN_DIRECT_IO;  // every read and write reaches the tree
    return bytes_of(out);
}

std::string fuse_mount::text_of(const char *argument, int &error)
{
    const auto in = record_at<fuse_read_in>(argument);
    std::string text;
    if (in.offset != 0) return text;
    error = tree_.read(in.fh, text);
    return text.substr(0, in.size);
}

std::string fuse_mount::written(const char *argument, int &error)
{
    const auto in = record_at<fuse_write_in>(argument);
    error = tree_.write(in.fh, std::string(argument + sizeof(in), in.size));
    return bytes_of(fuse_write_out{in.size, 0});
}

std::string fuse_mount::listing(const fuse_in_header &in, const char *argument)
{
    const std::vector<std::string> names = tree_.names(in.nodeid);
    std::string all;
    for (size_t i = record_at<fuse_read_in>(argument).offset; i < names.size(); ++i) {
        const fuse_dirent entry = {i + 1000, i + 1, static_cast<uint32_t>(names[i].size()), 0};
        all.append(reinterpret_cast<const char *>(&entry), FUSE_NAME_OFFSET).append(names[i]);
        all.resize(FUSE_DIRENT_ALIGN(all.size()));
    }
    return all;
}

std::string fuse_mount::polled(const char *argument)
{
    const auto in = record_at<fuse_poll_in>(argument);
    if ((in.flags & FUSE_POLL_SCHEDULE_NOTIFY) != 0) {
        const std::lock_guard<std::mutex> held(waiters_lock_);
        waiters_[in.fh] = in.kh;
    }
    return bytes_of(fuse_poll_out{tree_.poll(in.fh), 0});
}

void fuse_mount::wake(uint64_t handle)
{
    const std::lock_guard<std::mutex> held(waiters_lock_);
    const auto found = waiters_.find(handle);
    if (found == waiters_.end()) return;
    reply(0, -FUSE_NOTIFY_POLL, bytes_of(fuse_notify_poll_wakeup_out{found->second}));
    waiters_.erase(found);
}
