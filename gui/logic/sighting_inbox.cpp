#include "sighting_inbox.h"

#include <utility>

bool SightingInbox::put(ZelmorScanner::Advertisement const& advertisement) {
    std::lock_guard lock(mutex_);
    bool const wasEmpty = sightings_.empty();
    auto const [place, added] = places_.try_emplace(advertisement.serial, sightings_.size());
    if (added)
        sightings_.push_back(advertisement);
    else
        sightings_[place->second] = advertisement;
    return wasEmpty;
}

std::vector<ZelmorScanner::Advertisement> SightingInbox::take() {
    std::lock_guard lock(mutex_);
    places_.clear();
    return std::exchange(sightings_, {});
}
