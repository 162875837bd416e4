#include "static_files.h"

#include "compression.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <optional>

namespace zel::web {
namespace {

constexpr size_t largest_packed = size_t{1} << 20, all_packed = size_t{8} << 20;
constexpr int thoroughly = 6;

struct type_row {
    std::string_view ending;
    const char *type;
};
constexpr type_row types[] = {
    {".html", "text/html; charset=utf-8"}, {".css", "text/css; charset=utf-8"}, {".js", "text/javascript; charset=utf-8"},
    {".mjs", "text/javascript; charset=utf-8"}, {".json", "application/json"}, {".svg", "image/svg+xml"},
    {".png", "image/png"}, {".jpg", "image/jpeg"}, {".ico", "image/x-icon"}, {".woff2", "font/woff2"},
    {".txt", "text/plain; charset=utf-8"}, {".webmanifest", "application/manifest+json"},
};

const char *type_of(std::string_view path)
{
    for (const type_row &row : types) {
        if (path.ends_with(row.ending)) return row.type;
    }
    return "application/octet-stream";
}

std::string tag_of(const struct stat &info)
{
    char text[64];
    std::snprintf(text, sizeof text, "\"%llx-%llx%09lx-%llx\"", static_cast<unsigned long long>(info.st_ino),
                  static_cast<unsigned long long>(info.st_mtim.tv_sec), static_cast<unsigned long>(info.st_mtim.tv_nsec),
                  static_cast<unsigned long long>(info.st_size));
    return text;
}

std::string date_of(time_t when)
{
    tm parts{};
    gmtime_r(&when, &parts);
    constexpr const char *days[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    constexpr const char *months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    char text[64];
    std::snprintf(text, sizeof text, "%s, %02d %s %04d %02d:%02d:%02d GMT", days[parts.tm_wday], parts.tm_mday,
                  months[parts.tm_mon], parts.tm_year + 1900, parts.tm_hour, parts.tm_min, parts.tm_sec);
    return text;
}

std::optional<time_t> time_of(std::string_view date)
{
    tm parts{};
    const std::string text(date);
    const char *const end = strptime(text.c_str(), "%a, %d %b %Y %H:%M:%S GMT", &parts);
    if (end == nullptr || *end != '\0') return std::nullopt;
    return timegm(&parts);
}

// Whether one of the listed tags is this one; weak ones compare alike.
bool lists_tag(std::string_view list, std::string_view tag)
{
    return list.find(tag) != std::string_view::npos || list == "*";
}

bool is_known(const request_headers &headers, const std::string &tag, time_t changed)
{
    if (headers.if_none_match.data() != nullptr) return lists_tag(headers.if_none_match, tag);
    const auto since = headers.if_modified_since.empty() ? std::nullopt : time_of(headers.if_modified_since);
    return since && changed <= *since;
}

bool is_given_name(std::string_view name)
{
    return !name.empty() && name[0] != '.';
}

bool read_whole(int fd, std::string &text)
{
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t got = pread(fd, text.data() + done, text.size() - done, static_cast<off_t>(done));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        done += static_cast<size_t>(got);
    }
    return true;
}

}  // namespace

bool static_files::open(const std::string &folder)
{
    folder_.reset(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return static_cast<bool>(folder_);
}

// Step by step, so that no step can be a link or lead upwards.
unique_fd static_files::open_below(std::string_view path, struct stat &info) const
{
    constexpr int flags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    unique_fd at;
    while (!path.empty()) {
        const size_t slash = path.find('/');
        const std::string name(path.substr(0, slash));
        const bool last = slash == std::string_view::npos;
        path = last ? std::string_view{} : path.substr(slash + 1);
        if (!is_given_name(name)) return {};
        unique_fd next(openat(at ? at.get() : folder_.get(), name.c_str(), last ? flags : flags | O_DIRECTORY));
        if (!next) return {};
        at = std::move(next);
    }
    if (!at || fstat(at.get(), &info) != 0 || !S_ISREG(info.st_mode)) return {};
    return at;
}

MHD_Result static_files::give(MHD_Connection *mhd, request &each)
{
    std::string path = each.path.substr(1);
    if (path.empty() || path.ends_with('/')) path += "index.html";
    struct stat info {};
    unique_fd file = folder_ ? open_below(path, info) : unique_fd();
    if (!file) return send_error(mhd, each, {404, "there is no such page", nullptr, ""});
    return send_file(mhd, each, std::move(file), info, path);
}

// Packed once per version of a file.
const std::string *static_files::packed(const std::string &path, const std::string &tag, int fd, size_t size)
{
    const auto known = packed_.find(path);
    if (known != packed_.end() && known->second.tag == tag) return &known->second.bytes;
    std::string text(size, '\0');
    if (!read_whole(fd, text)) return nullptr;
    std::string bytes = gzip(text, thoroughly).value_or("");
    if (known != packed_.end()) {
        packed_bytes_ -= known->second.bytes.size();
        packed_.erase(known);
    }
    if (packed_bytes_ + bytes.size() > all_packed) {
        packed_.clear();
        packed_bytes_ = 0;
    }
    packed_bytes_ += bytes.size();
    return &packed_.insert_or_assign(path, packed_file{tag, std::move(bytes)}).first->second.bytes;
}

MHD_Result static_files::send_file(MHD_Connection *mhd, request &each, unique_fd file, const struct stat &info,
                                   const std::string &path)
{
    const char *const type = type_of(path);
    const size_t size = static_cast<size_t>(info.st_size);
    const bool pays = is_worth_compressing(type, size) && size <= largest_packed;
    const std::string plain_tag = tag_of(info);
    const std::string *const bytes =
        pays && takes_gzip(each.headers.accept_encoding) ? packed(path, plain_tag, file.get(), size) : nullptr;
    const bool is_packed = bytes != nullptr && !bytes->empty();
    const std::string tag = is_packed ? plain_tag.substr(0, plain_tag.size() - 1) + "-gz\"" : plain_tag;
    const bool known = is_known(each.headers, tag, info.st_mtim.tv_sec);
    each.size = known ? 0 : is_packed ? bytes->size() : size;

    response_ptr response;
    if (known) response = copied_response("");
    else if (is_packed) response = copied_response(*bytes);
    else response.reset(MHD_create_response_from_fd(size, file.get()));
    if (!response) return MHD_NO;
    const bool given_away = !known && !is_packed;
    if (given_away) file.release();
    if (is_packed && !known) add_header(response.get(), "Content-Encoding", "gzip");
    if (pays) add_header(response.get(), "Vary", "Accept-Encoding");
    add_header(response.get(), "ETag", tag.c_str());
    add_header(response.get(), "Last-Modified", date_of(info.st_mtim.tv_sec).c_str());
    add_header(response.get(), "Cache-Control", "no-cache");   // kept, but asked for again each time
    return send(mhd, each, known ? 304 : 200, known ? nullptr : type, std::move(response));
}

}  // namespace zel::web
