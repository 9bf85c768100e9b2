#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "log_record.h"

namespace sim {

/// Identity and current size of one log file.
struct LogFileEntry {
    uint32_t id = 0;
    uint32_t size = 0;
};

/// The device's data log: one file per UTC day of device time, records
/// appended in the stored form of the device's hardware revision. Files are
/// numbered by a running counter starting at 1 that a clear does not restart,
/// so a file id never names two different files. Only the newest files are
/// kept.
class DeviceLog {
public:
    static constexpr size_t kMaxFiles = 400;

    explicit DeviceLog(uint8_t hardwareRevision) : hardwareRevision_(hardwareRevision) {}

    void append(LogRecord const& record);
    void clear() { files_.clear(); }

    /// Up to `maxCount` files with ids above `afterId`, oldest first.
    std::vector<LogFileEntry> listAfter(uint32_t afterId, size_t maxCount) const;
    std::vector<LogFileEntry> list() const { return listAfter(0, files_.size()); }
    /// The content of a file; null when no file has this id.
    std::vector<uint8_t> const* file(uint32_t id) const;
    size_t recordSize() const { return logRecordSize(hardwareRevision_); }

private:
    struct File {
        uint32_t id;
        int64_t day;
        std::vector<uint8_t> bytes;
    };

    uint8_t hardwareRevision_;
    std::deque<File> files_;
    uint32_t nextId_ = 1;
};

}  // namespace sim
