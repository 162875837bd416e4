#include "users_file.h"

#include "common/unique_fd.h"

#include <crypt.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace zel::web {
namespace {

constexpr size_t largest_file = 65536;

bool read_text(const std::string &path, std::string &text)
{
    const unique_fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat info {};
    if (!file || fstat(file.get(), &info) != 0) return false;
    if (!S_ISREG(info.st_mode) || static_cast<size_t>(info.st_size) > largest_file) {
        errno = S_ISREG(info.st_mode) ? EFBIG : EINVAL;
        return false;
    }
    text.resize(static_cast<size_t>(info.st_size));
    const ssize_t got = read(file.get(), text.data(), text.size());
    text.resize(got < 0 ? 0 : static_cast<size_t>(got));
    return got >= 0;
}

// Of a hash that this system makes today; the oldest kinds take almost any text for one of theirs.
bool is_hash(const std::string &text)
{
    const int state = crypt_checksalt(text.c_str());
    return text.starts_with('$') && (state == CRYPT_SALT_OK || state == CRYPT_SALT_TOO_CHEAP);
}

bool take_line(std::string_view line, user_table &users)
{
    if (line.empty() || line.starts_with('#')) return true;
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos || !is_user_name(line.substr(0, colon))) return false;
    const std::string hash(line.substr(colon + 1));
    return is_hash(hash) && users.emplace(line.substr(0, colon), hash).second;
}

std::string hashed(const std::string &password, const std::string &setting)
{
    const std::unique_ptr<crypt_data> work(new crypt_data{});
    const char *const hash = crypt_r(password.c_str(), setting.c_str(), work.get());
    const std::string result = hash != nullptr && hash[0] != '*' ? hash : "";
    explicit_bzero(work.get(), sizeof *work);
    return result;
}

bool write_all(int fd, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t done = write(fd, text.data(), text.size());
        if (done < 0 && errno == EINTR) continue;
        if (done <= 0) return false;
        text.remove_prefix(static_cast<size_t>(done));
    }
    return true;
}

}  // namespace

bool is_user_name(std::string_view name)
{
    constexpr size_t longest = 64;
    const auto good = [](char c) { return c > ' ' && c < 0x7f && c != ':'; };
    return !name.empty() && name.size() <= longest && name[0] != '#' && std::ranges::all_of(name, good);
}

users_state read_users(const std::string &path, user_table &users, std::string &problem)
{
    std::string text;
    users.clear();
    if (!read_text(path, text)) {
        if (errno == ENOENT) return users_state::missing;
        problem = path + ": " + std::strerror(errno);
        return users_state::broken;
    }
    int number = 1;
    for (std::string_view rest = text; !rest.empty(); ++number) {
        const size_t end = rest.find('\n');
        if (!take_line(rest.substr(0, end), users)) {
            problem = path + ":" + std::to_string(number) + ": not a user's name and hash, or a name that stands twice";
            return users_state::broken;
        }
        rest = end == std::string_view::npos ? std::string_view{} : rest.substr(end + 1);
    }
    return users_state::good;
}

bool write_users(const std::string &path, const user_table &users)
{
    std::string text;
    for (const auto &[name, hash] : users) text += name + ":" + hash + "\n";
    const std::string temporary = path + ".new";
    (void)unlink(temporary.c_str());
    const unique_fd file(open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    const bool done = file && write_all(file.get(), text) && fsync(file.get()) == 0 &&
                      rename(temporary.c_str(), path.c_str()) == 0;
    if (done || !file) return done;
    const int error = errno;
    (void)unlink(temporary.c_str());
    errno = error;
    return false;
}

std::string hash_password(const std::string &password)
{
    const std::unique_ptr<char, decltype(&std::free)> setting(crypt_gensalt_ra(nullptr, 0, nullptr, 0), std::free);
    return setting ? hashed(password, setting.get()) : "";
}

bool is_password(const std::string &password, const std::string &hash)
{
    const std::string found = hashed(password, hash);
    if (found.empty() || found.size() != hash.size()) return false;
    unsigned char difference = 0;
    for (size_t i = 0; i < hash.size(); ++i) difference |= static_cast<unsigned char>(found[i] ^ hash[i]);
    return difference == 0;
}

}  // namespace zel::web
