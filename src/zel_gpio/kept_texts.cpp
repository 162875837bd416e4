#include "zel_gpio/kept_texts.h"

#include <cstdlib>
#include <cstring>

namespace zel {

namespace {

struct kept_text {
    kept_text *next;
    char *text() { return reinterpret_cast<char *>(this + 1); }
};

kept_text *source_names, *provider_addresses;
int32_t holds = 0;

bool is_source_in_use(const char *text)
{
    if (holds > 0 || vgpi_session_ports.next(0, 0) != none) return true;
    for (int32_t index = 0; index < port_end; ++index) {
        if (gpios[index].vgpo_src == text) return true;
    }
    return false;
}

bool is_address_in_use(const char *text)
{
    for (int32_t i = vgpi_session_ports.next(0, 0); i != none; i = vgpi_session_ports.next(0, i + 1)) {
        if (gpios[i].vgpi_provider_addr == text) return true;
    }
    return false;
}

void drop_unused(kept_text **chain, bool (*in_use)(const char *))
{
    while (*chain != nullptr) {
        kept_text *const kept = *chain;
        if (in_use(kept->text())) {
            chain = &kept->next;
        } else {
            *chain = kept->next;
            std::free(kept);
        }
    }
}

const char *find(kept_text *chain, const char *text)
{
    for (; chain != nullptr; chain = chain->next) {
        if (std::strcmp(chain->text(), text) == 0) return chain->text();
    }
    return nullptr;
}

const char *keep(kept_text *&chain, const char *text, bool (*in_use)(const char *))
{
    if (const char *const known = find(chain, text)) return known;
    drop_unused(&chain, in_use);
    const size_t size = std::strlen(text) + 1;
    kept_text *const kept = static_cast<kept_text *>(std::malloc(sizeof(kept_text) + size));
    if (kept == nullptr) return nullptr;
    kept->next = chain;
    std::memcpy(kept->text(), text, size);
    chain = kept;
    return kept->text();
}

}  // namespace

source_names_hold::source_names_hold() { ++holds; }
source_names_hold::~source_names_hold() { --holds; }

const char *keep_source_name(const char *name)
{
    return keep(source_names, name, is_source_in_use);
}

const char *keep_provider_address(const char *address)
{
    return keep(provider_addresses, address, is_address_in_use);
}

void release_kept_texts()
{
    const auto unused = [](const char *) { return false; };
    drop_unused(&source_names, unused);
    drop_unused(&provider_addresses, unused);
}

}  // namespace zel
