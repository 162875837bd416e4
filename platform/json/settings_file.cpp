#include "settings_file.h"

#include "file_steps.h"
#include "zel_debug.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace zel {
namespace {

constexpr int bad_copies_max = 16;

std::string behind_links(const std::string &path)
{
    char real[PATH_MAX];
    return realpath(path.c_str(), real) != nullptr ? real : path;
}

bool is_there(const char *path)
{
    return access(path, F_OK) == 0;
}

// The name under which the unreadable file at `path` is kept: "config.json.bad", or the first free one of ".bad.1", ".bad.2" ...
// The last of them is given again.
void choose_bad_name(char (&name)[PATH_MAX], const char *path, const char *bad)
{
    std::snprintf(name, sizeof name, "%s", bad);
    for (int number = 1; number < bad_copies_max && is_there(name) && !is_same_file(path, name); ++number) {
        std::snprintf(name, sizeof name, "%s.%d", bad, number);
    }
}

}  // namespace

settings_file::settings_file(const std::string &path)
    : path_(behind_links(path)), folder_(path_, 0, path_.rfind('/') + 1), temporary_(path_ + ".tmp"), good_(path_ + ".good"),
      second_name_(path_ + ".link"), bad_(path_ + ".bad")
{
}

json_handle settings_file::read()
{
    (void)unlink(temporary_.c_str());  // a power cut may have left one, half written
    json_reading file = read_json_file(path());
    if (file.state == json_state::good) return std::move(file.root);
    if (file.state == json_state::missing) {
        if (is_there(good_.c_str())) {
            log_message(1, "%s: %s is missing and begins anew; its last good copy is %s\n", __func__, path(), good_.c_str());
        }
        return json_handle(json_object());
    }
    log_message(0, "%s: %s cannot be read: %s\n", __func__, path(), file.problem);
    return file.state == json_state::unreadable ? read_good_copy() : nullptr;
}

json_handle settings_file::read_good_copy()
{
    json_reading copy = read_json_file(good_.c_str());
    if (copy.state != json_state::good) {
        log_message(0, "%s: %s has no good copy: %s: %s\n", __func__, path(), good_.c_str(), copy.problem);
        return nullptr;
    }
    log_message(1, "%s: the last good copy %s takes its place\n", __func__, good_.c_str());
    unreadable_ = true;
    (void)keep_unreadable(false);
    return std::move(copy.root);
}

// A second name keeps the text when the first one is given to another file. Where there are no second names, the file is
// renamed; that is left to the moment of its replacement, because with nothing in its place it would count as a new, empty one.
file_failure settings_file::keep_unreadable(bool may_rename) noexcept
{
    char name[PATH_MAX];
    choose_bad_name(name, path(), bad_.c_str());
    if (is_same_file(path(), name)) return {};
    const bool used = is_there(name);
    int error = link_over(path(), name, second_name_.c_str());
    if (error == ENOENT) return {};
    if (error != 0 && may_rename) error = rename(path(), name) == 0 ? 0 : errno;
    if (error != 0) return {"keeping the unreadable file", error};
    log_message(1, "%s: the unreadable %s is kept as %s%s\n", __func__, path(), name, used ? ", in place of an earlier one" : "");
    return {};
}

// The file works without a copy of its former text, so that failing to keep one holds up nothing.
void settings_file::keep_good_copy() noexcept
{
    const int error = link_over(path(), good_.c_str(), second_name_.c_str());
    if (error == 0 || error == ENOENT || told_no_good_copy_) return;
    told_no_good_copy_ = true;
    log_message(1, "%s: no copy of the last good %s can be kept: %s\n", __func__, path(), std::strerror(error));
}

// Those of the file that is replaced; of the good copy when that file could not be read, perhaps because of its mode.
void settings_file::take_over_owner_and_mode(int fd) const noexcept
{
    struct stat before;
    if (stat(unreadable_ ? good_.c_str() : path(), &before) != 0) return;
    if (fchown(fd, before.st_uid, before.st_gid) != 0) return;  // not ours to give: then its mode is not for our file either
    (void)fchmod(fd, before.st_mode & 07777);
}

file_failure settings_file::write_temporary(const char *text, size_t length) const noexcept
{
    int fd = create_file(temporary_.c_str());
    if (fd < 0 && errno == ENOENT) {
        if (const int error = make_durable_folder_of(path_); error != 0) return {"making its folder", error};
        fd = create_file(temporary_.c_str());
    }
    if (fd < 0) return {"making the temporary file", errno};
    take_over_owner_and_mode(fd);
    file_failure failure{"writing the new text", write_all(fd, text, length)};
    if (failure.error == 0) failure = {"bringing the new text to the disk", fsync(fd) == 0 ? 0 : errno};
    if (close(fd) != 0 && failure.error == 0) failure = {"closing the new text", errno};
    return failure.error != 0 ? failure : file_failure{};
}

file_failure settings_file::replace(const char *text, size_t length) noexcept
{
    file_failure failure = write_temporary(text, length);
    if (!failure && unreadable_) failure = keep_unreadable(true);
    if (!failure && !unreadable_) keep_good_copy();
    if (!failure && rename(temporary_.c_str(), path()) != 0) failure = {"putting the new text in place", errno};
    if (failure) {
        (void)unlink(temporary_.c_str());
        return failure;
    }
    unreadable_ = false;
    const int error = sync_folder(folder_.c_str());
    return error != 0 ? file_failure{"bringing the folder to the disk", error} : file_failure{};
}

}  // namespace zel
