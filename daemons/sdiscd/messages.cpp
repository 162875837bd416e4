#include "messages.h"

#include <algorithm>
#include <cstring>

namespace zel::sdiscd {
namespace {

template <class record>
bool copy_record(std::string_view payload, size_t shortest, record &out, std::string &problem)
{
    if (payload.size() < shortest || payload.size() > longest_request) {
        problem = (payload.size() < shortest ? "too short (" : "too long (") + std::to_string(payload.size()) + " bytes)";
        return false;
    }
    std::memcpy(static_cast<void *>(&out), payload.data(), std::min(payload.size(), sizeof out));
    return true;
}

template <size_t size>
std::string text_of(const char (&field)[size])
{
    return {field, strnlen(field, size)};
}

template <size_t size>
void put_text(char (&field)[size], const std::string &text)
{
    std::memcpy(field, text.data(), std::min(text.size(), size));
}

bool check(bool good, const char *complaint, std::string &problem)
{
    if (!good) problem = complaint;
    return good;
}

bool check_service(const service_id &service, const std::string &domain, std::string &problem)
{
    return check(is_service_name(service.name), "its name is not 1 to 63 bytes of UTF-8", problem) &&
           check(is_service_type(service.type), "its type is not like \"_name._tcp\"", problem) &&
           check(is_local_domain(domain), "its domain is not the local one", problem);
}

}  // namespace

bool read_lookup(std::string_view payload, lookup_order &out, std::string &problem)
{
    lookup_record record{};
    if (!copy_record(payload, offsetof(lookup_record, domain) + 1, record, problem)) return false;
    out = {record.interface, text_of(record.type)};
    return check(is_service_type(out.type), "its type is not like \"_name._tcp\"", problem) &&
           check(is_local_domain(text_of(record.domain)), "its domain is not the local one", problem);
}

bool read_resolve(std::string_view payload, resolve_order &out, std::string &problem)
{
    browse_record record{};
    if (!copy_record(payload, offsetof(browse_record, domain) + 1, record, problem)) return false;
    out = {record.interface, {text_of(record.type), text_of(record.name)}};
    return check_service(out.service, text_of(record.domain), problem);
}

bool read_publish(std::string_view payload, publish_order &out, std::string &problem)
{
    publish_record record{};
    if (!copy_record(payload, offsetof(publish_record, padding), record, problem)) return false;
    out.interface = record.interface;
    out.service = {text_of(record.type), without_cut_character(text_of(record.name))};
    out.port = record.port;
    if (!check_service(out.service, text_of(record.domain), problem)) return false;
    if (!check(out.port != 0, "its port is 0", problem)) return false;
    const std::string text = text_of(record.txt);
    if (!check(is_printable(text), "its TXT text is no UTF-8 or has control characters", problem)) return false;
    auto strings = read_txt(text, problem);
    if (!strings) return false;
    out.txt = std::move(*strings);
    return true;
}

bool read_unpublish(std::string_view payload, std::string &name, std::string &problem)
{
    if (payload.size() > longest_request) {
        problem = "too long (" + std::to_string(payload.size()) + " bytes)";
        return false;
    }
    name = without_cut_character(std::string(payload.substr(0, payload.find('\0'))));
    return check(is_service_name(name), "its name is not 1 to 63 bytes of UTF-8", problem);
}

browse_record make_browse_record(int32_t interface, const service_id &service)
{
    browse_record record{};
    record.interface = interface;
    put_text(record.name, service.name);
    put_text(record.type, service.type);
    put_text(record.domain, "local");
    return record;
}

resolve_record make_resolve_record(int32_t interface, const service_id &service, const service_details &details)
{
    resolve_record record{};
    record.interface = interface;
    put_text(record.name, service.name);
    put_text(record.host, details.host.substr(0, sizeof record.host - 1));
    put_text(record.type, service.type);
    put_text(record.address, details.address);
    record.port = details.port;
    put_text(record.txt, write_txt(details.txt, sizeof record.txt - 1));
    return record;
}

}  // namespace zel::sdiscd
