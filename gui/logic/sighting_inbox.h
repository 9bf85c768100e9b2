#pragma once

#include <cstdint>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "zelmor_scanner.h"

/// Where the scanner's threads leave sightings for the main window, which
/// takes them all at once a few times a second instead of one event per
/// datagram: a network with a thousand devices announces a thousand times a
/// second. Only the latest sighting of each serial is kept; the rest show
/// readings that are already out of date. Thread-safe.
class SightingInbox {
public:
    /// Keeps the sighting, in place of an earlier one of its serial. True when
    /// the inbox was empty: the caller then wakes whoever takes them.
    bool put(ZelmorScanner::Advertisement const& advertisement);

    /// Every sighting kept since the last take, in the order their serials
    /// first arrived; the inbox is empty afterwards.
    std::vector<ZelmorScanner::Advertisement> take();

private:
    std::mutex mutex_;
    std::vector<ZelmorScanner::Advertisement> sightings_;
    std::unordered_map<uint64_t, size_t> places_;  // serial -> index in sightings_
};
