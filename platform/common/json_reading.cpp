#include "common/json_reading.h"

#include "common/unique_fd.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace zel {
namespace {

struct text_release {
    void operator()(char *text) const noexcept { std::free(text); }
};
using text_buffer = std::unique_ptr<char, text_release>;

__attribute__((format(printf, 2, 3)))
json_reading failed(json_state state, const char *format, ...)
{
    json_reading result;
    result.state = state;
    va_list args;
    va_start(args, format);
    std::vsnprintf(result.problem, sizeof result.problem, format, args);
    va_end(args);
    return result;
}

json_reading failed_by_errno(int error)
{
    const bool missing = error == ENOENT || error == ENOTDIR;
    const bool exhausted = error == EMFILE || error == ENFILE || error == ENOMEM;
    return failed(missing ? json_state::missing : exhausted ? json_state::no_resources : json_state::unreadable, "%s",
                  std::strerror(error));
}

// Bytes read, fewer than asked for only at the end of the file; -1 with errno.
ssize_t read_fully(int fd, char *text, size_t size)
{
    size_t length = 0;
    while (length < size) {
        const ssize_t got = read(fd, text + length, size - length);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return -1;
        if (got == 0) break;
        length += static_cast<size_t>(got);
    }
    return static_cast<ssize_t>(length);
}

json_reading parse(const char *text, size_t length)
{
    json_error_t error;
    json_handle root(json_loadb(text, length, 0, &error));
    if (!root) {
        const bool exhausted = json_error_code(&error) == json_error_out_of_memory;
        return failed(exhausted ? json_state::no_resources : json_state::unreadable, "line %d column %d: %s", error.line,
                      error.column, error.text);
    }
    if (!json_is_object(root.get())) return failed(json_state::unreadable, "the outermost value is not an object");
    json_reading result;
    result.state = json_state::good;
    result.root = std::move(root);
    return result;
}

}  // namespace

json_reading read_json_file(const char *path) noexcept
{
    // Not blocking, because opening a pipe in the file's place would wait for a writer.
    const unique_fd file(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status;
    if (!file || fstat(file.get(), &status) != 0) return failed_by_errno(errno);
    if (!S_ISREG(status.st_mode)) return failed(json_state::unreadable, "not a regular file");
    if (status.st_size > static_cast<off_t>(json_file_max)) {
        return failed(json_state::unreadable, "%lld bytes are more than the %zu allowed",
                      static_cast<long long>(status.st_size), json_file_max);
    }
    const size_t size = static_cast<size_t>(status.st_size);
    const text_buffer text(static_cast<char *>(std::malloc(size + 1)));
    if (!text) return failed(json_state::no_resources, "no memory for %zu bytes", size);
    const ssize_t length = read_fully(file.get(), text.get(), size);
    return length < 0 ? failed_by_errno(errno) : parse(text.get(), static_cast<size_t>(length));
}

}  // namespace zel
