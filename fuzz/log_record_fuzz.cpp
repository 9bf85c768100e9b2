// Decodes arbitrary bytes as a data log of several model families and checks
// that what was decoded re-encodes to the very bytes it came from, and so
// decodes again to the same records.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "log_record.h"

namespace {

void check(bool condition) {
    if (!condition) std::abort();
}

bool sameFloat(float a, float b) { return (std::isnan(a) && std::isnan(b)) || a == b; }

bool sameRecord(LogRecord const& a, LogRecord const& b) {
    return a.time == b.time && sameFloat(a.voltage1, b.voltage1) && sameFloat(a.voltage2, b.voltage2) &&
           sameFloat(a.current, b.current) && sameFloat(a.power, b.power) && sameFloat(a.temperature, b.temperature) &&
           a.stateOfCharge == b.stateOfCharge && a.powerStatus == b.powerStatus;
}

constexpr uint8_t kRevisions[] = {0x12, 0x23, 0x31, 0x41};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    std::vector<uint8_t> const input(data, data + size);
    for (uint8_t revision : kRevisions) {
        size_t const recordSize = logRecordSize(revision);
        std::vector<LogRecord> records;
        decodeLogRecords(revision, input.data(), input.size(), records);
        check(records.size() == size / recordSize);

        std::vector<uint8_t> encoded;
        for (auto const& r : records) encodeLogRecord(revision, r, encoded);
        check(encoded.size() == records.size() * recordSize);
        check(encoded.empty() || std::memcmp(encoded.data(), input.data(), encoded.size()) == 0);

        std::vector<LogRecord> again;
        decodeLogRecords(revision, encoded.data(), encoded.size(), again);
        check(again.size() == records.size());
        for (size_t i = 0; i < records.size(); ++i) check(sameRecord(records[i], again[i]));
    }
    return 0;
}

extern "C" void zelmorFuzzSeeds(std::vector<std::vector<uint8_t>>& seeds) {
    LogRecord r;
    r.time = 1700000000;
    r.voltage1 = 12.5f;
    r.voltage2 = 131.068f;
    r.current = -8388.607f;
    r.power = 83886.07f;
    r.temperature = -40.25f;
    r.stateOfCharge = 55;
    r.powerStatus = 3;
    for (uint8_t revision : kRevisions) {
        std::vector<uint8_t> seed;
        for (int i = 0; i < 4; ++i) encodeLogRecord(revision, r, seed);
        seeds.push_back(seed);
    }
}
