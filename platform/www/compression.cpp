#include "compression.h"

#include <zlib.h>

#include <strings.h>

#include <climits>

namespace zel::web {
namespace {

constexpr size_t shortest = 1400;
constexpr int gzip_window = 15 + 16;   // the largest window, with gzip's frame
constexpr int memory_level = 8;

std::string_view trimmed(std::string_view text)
{
    const size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

// "q=0" with any number of zeros behind the point.
bool is_refused(std::string_view parameters)
{
    const std::string_view quality = trimmed(parameters);
    return quality.starts_with("q=0") && quality.find_first_not_of("0.", 2) == std::string_view::npos;
}

}  // namespace

bool takes_gzip(std::string_view accept_encoding)
{
    while (!accept_encoding.empty()) {
        const size_t comma = accept_encoding.find(',');
        const std::string_view item = accept_encoding.substr(0, comma);
        accept_encoding = comma == std::string_view::npos ? std::string_view{} : accept_encoding.substr(comma + 1);
        const size_t mark = item.find(';');
        const std::string_view coding = trimmed(item.substr(0, mark));
        const bool named = coding.size() == 4 && strncasecmp(coding.data(), "gzip", 4) == 0;
        if (named || coding == "*") return mark == std::string_view::npos || !is_refused(item.substr(mark + 1));
    }
    return false;
}

bool is_worth_compressing(std::string_view content_type, size_t length)
{
    const bool text = content_type.starts_with("text/") || content_type.starts_with("application/json") ||
                      content_type.starts_with("application/manifest") || content_type.starts_with("image/svg");
    return text && length >= shortest;
}

std::optional<std::string> gzip(std::string_view text, int level)
{
    z_stream stream{};
    if (text.size() > UINT_MAX) return std::nullopt;
    if (deflateInit2(&stream, level, Z_DEFLATED, gzip_window, memory_level, Z_DEFAULT_STRATEGY) != Z_OK) return std::nullopt;
    std::string packed(text.size(), '\0');   // a longer one is not wanted
    stream.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(text.data()));
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = reinterpret_cast<Bytef *>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    const bool whole = deflate(&stream, Z_FINISH) == Z_STREAM_END;
    packed.resize(stream.total_out);
    (void)deflateEnd(&stream);
    if (!whole) return std::nullopt;
    return packed;
}

}  // namespace zel::web
