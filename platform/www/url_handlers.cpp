#include "zel_www.h"

#include "zel_debug.h"

#include <cstddef>
#include <cstring>

namespace {

constexpr size_t handlers_max = 64;
const zel_web_url_handler_t *handlers[handlers_max];
size_t handler_count = 0;

const char *why_refused(const zel_web_url_handler_t *handler)
{
    if (handler == nullptr || handler->func == nullptr) return "nothing would serve it";
    if (handler->path == nullptr || handler->path[0] != '/') return "a path begins with '/'";
    if (zel_web_server_find_handler(handler->path) != nullptr) return "the path has a handler already";
    return handler_count == handlers_max ? "too many handlers" : nullptr;
}

}  // namespace

int zel_web_server_add_handler(const zel_web_url_handler_t *handler)
{
    if (const char *const reason = why_refused(handler); reason != nullptr) {
        const char *const path = handler != nullptr && handler->path != nullptr ? handler->path : "none";
        log_message(0, "%s: URL handler for path %s refused: %s\n", __func__, path, reason);
        return -1;
    }
    handlers[handler_count++] = handler;
    return 0;
}

const zel_web_url_handler_t *zel_web_server_find_handler(const char *path)
{
    if (path == nullptr) return nullptr;
    for (size_t i = 0; i < handler_count; ++i) {
        if (std::strcmp(handlers[i]->path, path) == 0) return handlers[i];
    }
    return nullptr;
}
