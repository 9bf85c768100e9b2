#include "local_device_list.h"

#include <algorithm>

#include "local_device_cells.h"

LocalDeviceList::Changes LocalDeviceList::take(std::span<ZelmorScanner::Advertisement const> sightings, int64_t nowMs) {
    size_t const before = entries_.size();
    Changes changes;
    for (ZelmorScanner::Advertisement const& advertisement : sightings) {
        std::vector<std::string> cells = localDeviceCells(advertisement);
        auto const [place, added] = rows_.try_emplace(advertisement.serial, entries_.size());
        if (added) {
            entries_.push_back(Entry{advertisement, std::move(cells), nowMs});
            continue;
        }
        Entry& entry = entries_[place->second];
        if (place->second < before && entry.cells != cells) changes.rewritten.push_back(place->second);
        entry = Entry{advertisement, std::move(cells), nowMs};
    }
    changes.added = entries_.size() - before;
    std::sort(changes.rewritten.begin(), changes.rewritten.end());
    changes.rewritten.erase(std::unique(changes.rewritten.begin(), changes.rewritten.end()), changes.rewritten.end());
    return changes;
}

std::vector<size_t> LocalDeviceList::age(int64_t nowMs) {
    std::vector<size_t> removed;
    for (size_t row = entries_.size(); row-- > 0;)
        if (nowMs - entries_[row].receivedMs > kMaxAgeMs) removed.push_back(row);
    if (removed.empty()) return removed;
    std::erase_if(entries_, [nowMs](Entry const& entry) { return nowMs - entry.receivedMs > kMaxAgeMs; });
    rows_.clear();
    for (size_t row = 0; row < entries_.size(); ++row) rows_.emplace(entries_[row].advertisement.serial, row);
    return removed;
}

std::optional<size_t> LocalDeviceList::rowOf(uint64_t serial) const {
    auto const row = rows_.find(serial);
    return row == rows_.end() ? std::nullopt : std::optional<size_t>(row->second);
}
