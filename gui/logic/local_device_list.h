#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <vector>

#include "zelmor_scanner.h"

/// The sightings behind the "Local Devices" list, one per row in row order,
/// each with its cells (localDeviceCells) and the time it was last received.
/// A device is known by its serial: a new sighting of it replaces its row in
/// place. The list control draws the rows from here and is told only which
/// rows a batch of sightings added or changed, so that a thousand devices
/// announcing every second redraw no more than what changed on screen.
class LocalDeviceList {
public:
    /// A sighting that arrived more than this long ago (ms) is aged out.
    static constexpr int64_t kMaxAgeMs = 9999;

    struct Entry {
        ZelmorScanner::Advertisement advertisement;
        std::vector<std::string> cells;
        int64_t receivedMs = 0;
    };

    /// What a batch of sightings did to the rows: how many it appended at the
    /// end, and which of the rows there before it now show other cells, in
    /// ascending order. A row whose cells stay the same is not listed.
    struct Changes {
        size_t added = 0;
        std::vector<size_t> rewritten;
    };
    /// Takes sightings received at `nowMs`, in order.
    Changes take(std::span<ZelmorScanner::Advertisement const> sightings, int64_t nowMs);

    /// Removes every entry received more than kMaxAgeMs before `nowMs`; gives
    /// the rows removed, highest first, so that deleting them in that order
    /// from a list control keeps the indices valid. The rest keep their order.
    std::vector<size_t> age(int64_t nowMs);

    std::vector<Entry> const& entries() const { return entries_; }
    /// The row of the device with this serial, if it is listed.
    std::optional<size_t> rowOf(uint64_t serial) const;

private:
    std::vector<Entry> entries_;
    std::unordered_map<uint64_t, size_t> rows_;  // serial -> row
};
