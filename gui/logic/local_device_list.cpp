#include "local_device_list.h"

#include <algorithm>

LocalDeviceList::Placement LocalDeviceList::take(ZelmorScanner::Advertisement const& advertisement, int64_t nowMs) {
    auto const known = std::find_if(entries_.begin(), entries_.end(), [&](Entry const& entry) {
        return entry.advertisement.serial == advertisement.serial;
    });
    if (known != entries_.end()) {
        *known = Entry{advertisement, nowMs};
        return {static_cast<size_t>(known - entries_.begin()), false};
    }
    entries_.push_back(Entry{advertisement, nowMs});
    return {entries_.size() - 1, true};
}

std::vector<size_t> LocalDeviceList::age(int64_t nowMs) {
    std::vector<size_t> removed;
    for (size_t row = entries_.size(); row-- > 0;) {
        if (nowMs - entries_[row].receivedMs <= kMaxAgeMs) continue;
        entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(row));
        removed.push_back(row);
    }
    return removed;
}
