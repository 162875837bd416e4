#include "peer_table.h"

#include <algorithm>

namespace zel::ipc {

peer *peer_table::add(std::unique_ptr<peer> added)
{
    const auto place = std::find(places_.begin(), places_.end(), nullptr);
    if (place == places_.end()) return nullptr;
    if ((++running_number_ << place_bits) == 0) running_number_ = 1;   // ids without a running number are not given: 0 is none
    added->id = running_number_ << place_bits | static_cast<uint32_t>(place - places_.begin());
    *place = std::move(added);
    return place->get();
}

peer *peer_table::find(uint32_t id) const
{
    const uint32_t place = place_of(id);
    if (place >= places_.size()) return nullptr;
    peer *const found = places_[place].get();
    return found != nullptr && found->id == id ? found : nullptr;
}

}  // namespace zel::ipc
