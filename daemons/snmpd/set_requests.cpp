#include "set_requests.h"

#include "net_snmp.h"

#include <zel_debug.h>

#include <memory>
#include <new>
#include <utility>

namespace zel::snmpd {
namespace {

constexpr const char *undo_key = "zel_undo";

void release_cell(void *value)
{
    delete static_cast<cell *>(value);
}

void keep_for_undo(netsnmp_request_info *request, cell before)
{
    auto kept = std::make_unique<cell>(std::move(before));
    netsnmp_data_list *const entry = netsnmp_create_data_list(undo_key, kept.get(), release_cell);
    if (entry == nullptr) return;
    (void)kept.release();
    netsnmp_request_add_list_data(request, entry);
}

int32_t number_of(const cell &value)
{
    const auto *const number = std::get_if<int32_t>(&value);
    return number != nullptr ? *number : 0;
}

std::string text_of(const cell &value)
{
    const auto *const text = std::get_if<std::string>(&value);
    return text != nullptr ? *text : "";
}

int32_t index_for_unit(const set_target &target)
{
    return static_cast<int32_t>(target.index) + (target.of->requests_count == numbering::from_1 ? 1 : 0);
}

}  // namespace

set_requests::~set_requests()
{
    for (auto &[tag, entry] : waiting_) {
        if (entry.cache != nullptr) netsnmp_free_delegated_cache(entry.cache);
    }
}

int set_requests::failure_of(bool undoing)
{
    return undoing ? SNMP_ERR_UNDOFAILED : SNMP_ERR_COMMITFAILED;
}

void set_requests::start(const call &from, const set_target &target, const cell &value)
{
    send(from, target, value, false);
}

void set_requests::undo(const call &from, const set_target &target)
{
    const auto *const before = static_cast<const cell *>(netsnmp_request_get_list_data(from.request, undo_key));
    if (before != nullptr) send(from, target, *before, true);
}

void set_requests::send(const call &from, const set_target &target, const cell &value, bool undoing)
{
    const auto tag = link_.request(target.where->request, index_for_unit(target), number_of(value), text_of(value));
    if (!tag) {
        ++counted_.failed;
        netsnmp_set_request_error(from.info, from.request, failure_of(undoing));
        return;
    }
    ++counted_.sent;
    netsnmp_delegated_cache *const cache =
        netsnmp_create_delegated_cache(from.handler, from.registration, from.info, from.request, nullptr);
    if (cache == nullptr) {
        netsnmp_set_request_error(from.info, from.request, SNMP_ERR_GENERR);
        return;
    }
    from.request->delegated = 1;
    waiting_.insert_or_assign(*tag, waiting{cache, target, value, read_cell(model_, *target.of, target.index, target.where->kind),
                                            now_ms_ + patience_ms, undoing});
}

void set_requests::answer(waiting &entry, int error)
{
    if (error != SNMP_ERR_NOERROR) ++counted_.failed;
    netsnmp_delegated_cache *const cache = std::exchange(entry.cache, nullptr);
    if (cache == nullptr) return;
    if (netsnmp_handler_check_cache(cache) != nullptr) {
        cache->requests->delegated = 0;
        if (error != SNMP_ERR_NOERROR) netsnmp_set_request_error(cache->reqinfo, cache->requests, error);
        else if (!entry.undoing) keep_for_undo(cache->requests, entry.before);
    }
    netsnmp_free_delegated_cache(cache);
}

void set_requests::take_reply(int32_t tag, int32_t result)
{
    const auto place = waiting_.find(tag);
    if (place == waiting_.end()) {
        log_message(1, "%s: The unit answers a request that nobody made (tag %d)\n", __func__, tag);
        return;
    }
    waiting entry = std::move(place->second);
    waiting_.erase(place);
    if (entry.cache == nullptr) log_message(1, "%s: The unit's answer came too late (result %d)\n", __func__, result);
    if (result == 0) apply(entry.target, entry.value);
    if (entry.cache != nullptr) answer(entry, result == 0 ? SNMP_ERR_NOERROR : failure_of(entry.undoing));
}

// These settings the unit changes without telling the port anew.
void set_requests::apply(const set_target &target, const cell &value)
{
    const port_row *const row = model_.row(target.of->id, target.index);
    if (row == nullptr || target.of->id == table_id::led) return;
    port_row changed = *row;
    switch (target.where->kind) {
    case column_kind::mode: changed.mode = number_of(value); break;
    case column_kind::state: changed.state = number_of(value); break;
    case column_kind::source:
        changed.source = text_of(value);
        if (changed.source.empty()) changed.state = 0;
        break;
    default: return;
    }
    (void)model_.set_row(target.of->id, target.index, std::move(changed));
}

void set_requests::link_lost()
{
    for (auto &[tag, entry] : waiting_) {
        if (entry.cache != nullptr) answer(entry, SNMP_ERR_GENERR);
    }
    waiting_.clear();
}

void set_requests::expire(int64_t now_ms)
{
    for (auto &[tag, entry] : waiting_) {
        if (entry.cache == nullptr || entry.due_ms > now_ms) continue;
        log_message(1, "%s: The unit does not answer a request of type %u\n", __func__, entry.target.where->request);
        answer(entry, entry.undoing ? SNMP_ERR_UNDOFAILED : SNMP_ERR_GENERR);
    }
}

std::optional<int64_t> set_requests::next_due() const
{
    std::optional<int64_t> due;
    for (const auto &[tag, entry] : waiting_) {
        if (entry.cache != nullptr && (!due || entry.due_ms < *due)) due = entry.due_ms;
    }
    return due;
}

}  // namespace zel::snmpd
