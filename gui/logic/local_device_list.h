#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "zelmor_scanner.h"

/// The sightings behind the "Local Devices" list, one per row in row order,
/// each with the time it was last received. A device is known by its serial:
/// a new sighting of it replaces its row in place.
class LocalDeviceList {
public:
    /// A sighting that arrived more than this long ago (ms) is aged out.
    static constexpr int64_t kMaxAgeMs = 9999;

    struct Entry {
        ZelmorScanner::Advertisement advertisement;
        int64_t receivedMs = 0;
    };

    /// Takes a sighting received at `nowMs`; gives its row and whether the
    /// row is new (appended at the end) rather than rewritten.
    struct Placement {
        size_t row;
        bool added;
    };
    Placement take(ZelmorScanner::Advertisement const& advertisement, int64_t nowMs);

    /// Removes every entry received more than kMaxAgeMs before `nowMs`; gives
    /// the rows removed, highest first, so that deleting them in that order
    /// from a list control keeps the indices valid. The rest keep their order.
    std::vector<size_t> age(int64_t nowMs);

    std::vector<Entry> const& entries() const { return entries_; }

private:
    std::vector<Entry> entries_;
};
