#include "device_log.h"

#include <algorithm>

namespace sim {

void DeviceLog::append(LogRecord const& record) {
    int64_t const day = record.time / 86400;
    if (files_.empty() || files_.back().day != day) {
        files_.push_back(File{nextId_++, day, {}});
        if (files_.size() > kMaxFiles) files_.pop_front();
    }
    encodeLogRecord(hardwareRevision_, record, files_.back().bytes);
}

std::vector<LogFileEntry> DeviceLog::listAfter(uint32_t afterId, size_t maxCount) const {
    std::vector<LogFileEntry> entries;
    // Ids grow along the deque, so the first file after `afterId` is found by search.
    auto it = std::upper_bound(files_.begin(), files_.end(), afterId,
                               [](uint32_t id, File const& file) { return id < file.id; });
    for (; it != files_.end() && entries.size() < maxCount; ++it)
        entries.push_back({it->id, static_cast<uint32_t>(it->bytes.size())});
    return entries;
}

std::vector<uint8_t> const* DeviceLog::file(uint32_t id) const {
    auto it = std::lower_bound(files_.begin(), files_.end(), id,
                               [](File const& file, uint32_t wanted) { return file.id < wanted; });
    return it != files_.end() && it->id == id ? &it->bytes : nullptr;
}

}  // namespace sim
