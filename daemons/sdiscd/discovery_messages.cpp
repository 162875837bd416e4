// The messages of the clients, both ways.
#include "discovery.h"

#include "zel_debug.h"

namespace zel::sdiscd {

const discovery::request_row discovery::requests[] = {
    {browse_request, "browse request", &discovery::take_browse},
    {resolve_request, "resolve request", &discovery::take_resolve},
    {publish_request, "publish command", &discovery::take_publish},
    {unpublish_request, "unpublish command", &discovery::take_unpublish},
};

void discovery::message(uint32_t link, uint8_t type, std::string_view payload, int64_t now)
{
    now_ = now;
    const auto *const from = by_link(link);
    if (from == nullptr) return;
    const std::string name = from->first;
    std::string problem = "its type is not known";
    const char *what = "message";
    for (const request_row &row : requests) {
        if (row.type != type) continue;
        what = row.what;
        if ((this->*row.take)(name, payload, problem)) return;
    }
    uint32_t left_out = 0;
    if (!refusals_.allows(now, left_out)) return;
    log_message(1, "%s: Ignoring a %s (type %u) of '%s': %s (%u others were ignored, too)\n", __func__, what, type, name.c_str(),
                problem.c_str(), left_out);
}

bool discovery::take_browse(const std::string &client, std::string_view payload, std::string &problem)
{
    lookup_order order;
    if (!read_lookup(payload, order, problem)) return false;
    const question asked{around_.interface_reference(order.interface), order.type};
    problem = "it has asked for too much already";
    if (!lookups_.ask(client, asked)) return false;
    ++request_changes_;
    log_message(2, "%s: '%s' looks for %s on %s\n", __func__, client.c_str(), asked.type.c_str(), asked.interface.c_str());
    return true;
}

bool discovery::take_resolve(const std::string &client, std::string_view payload, std::string &problem)
{
    resolve_order order;
    if (!read_resolve(payload, order, problem)) return false;
    lookups_.want_details(client, order.service);
    return true;
}

bool discovery::take_publish(const std::string &client, std::string_view payload, std::string &problem)
{
    publish_order order;
    if (!read_publish(payload, order, problem)) return false;
    announcement what{{around_.interface_reference(order.interface), order.service}, order.port, std::move(order.txt)};
    log_message(2, "%s: '%s' publishes '%s' on %s, port %u\n", __func__, client.c_str(), order.service.name.c_str(),
                what.place.interface.c_str(), what.port);
    problem = "it has published too much already";
    if (!publications_.request(client, std::move(what), true)) return false;
    ++request_changes_;
    return true;
}

bool discovery::take_unpublish(const std::string &client, std::string_view payload, std::string &problem)
{
    std::string name;
    if (!read_unpublish(payload, name, problem)) return false;
    problem = "it has not published '" + name + "'";
    if (!publications_.take_back(client, name)) return false;
    ++request_changes_;
    log_message(2, "%s: '%s' takes '%s' back\n", __func__, client.c_str(), name.c_str());
    return true;
}

bool discovery::send(const std::string &client, message_type type, std::span<const uint8_t> record)
{
    const auto found = clients_.find(client);
    return found != clients_.end() && found->second.link != 0 && around_.send(found->second.link, type, record);
}

bool discovery::send_found(const std::string &client, const service_place &place)
{
    ++report_changes_;
    log_message(4, "%s: '%s' on %s, to '%s'\n", __func__, place.service.name.c_str(), place.interface.c_str(), client.c_str());
    return send(client, new_service, bytes_of(make_browse_record(around_.interface_index(place.interface), place.service)));
}

bool discovery::send_removed(const std::string &client, const service_place &place)
{
    ++report_changes_;
    log_message(4, "%s: '%s' on %s, to '%s'\n", __func__, place.service.name.c_str(), place.interface.c_str(), client.c_str());
    return send(client, service_removed, bytes_of(make_browse_record(around_.interface_index(place.interface), place.service)));
}

bool discovery::send_resolved(const std::string &client, const service_place &place, const service_details &details)
{
    ++report_changes_;
    log_message(4, "%s: '%s' is at %s:%u, to '%s'\n", __func__, place.service.name.c_str(), details.address.c_str(), details.port,
                client.c_str());
    const int32_t interface = around_.interface_index(place.interface);
    return send(client, service_resolved, bytes_of(make_resolve_record(interface, place.service, details)));
}

bool discovery::send_resolve_failed(const std::string &client)
{
    return send(client, resolve_failed, bytes_of(browse_record{}));
}

std::string discovery::publisher_of(const service_id &service) const
{
    return publications_.owner_of(service);
}

bool discovery::is_own(const std::string &client, const service_id &service) const
{
    return publications_.is_own(client, service);
}

}  // namespace zel::sdiscd
