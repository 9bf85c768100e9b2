#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

/// One logged sample of a device's data log, as the application reads it back.
struct LogRecord {
    uint32_t time = 0;  // seconds since 1970-01-01 UTC
    float voltage1 = 0;
    float voltage2 = 0;  // NaN on models without a second voltage input
    float current = 0;
    float power = 0;
    float temperature = 0;
    uint8_t stateOfCharge = 255;  // percent; 255 = not available, above 100 = unknown
    uint8_t powerStatus = 0;
};

/// Size in bytes of one stored record of a device with this hardware revision.
size_t logRecordSize(uint8_t hardwareRevision);

/// Appends the stored form of `record` (the device side writes its log files with it).
void encodeLogRecord(uint8_t hardwareRevision, LogRecord const& record, std::vector<uint8_t>& out);

/// Decodes every whole record in `data` and appends them to `out`; a partial
/// record at the end (a file still being written) is ignored.
void decodeLogRecords(uint8_t hardwareRevision, uint8_t const* data, size_t length, std::vector<LogRecord>& out);
