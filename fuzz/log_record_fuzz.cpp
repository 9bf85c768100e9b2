// Arbitrary bytes as the data log of several model families, as a device's
// log file or its local copy holds it: what was decoded must encode to the
// very bytes it came from, up to the partial record at the end, which is left
// out. Any bytes are records; the seeds are real ones, ending in a partial one.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "log_record.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    // An exactly sized copy, so a read past the end shows in sanitizer builds.
    std::vector<uint8_t> const input(data, data + size);
    for (uint8_t revision : {0x12, 0x23, 0x31, 0x41}) {
        std::vector<LogRecord> records;
        decodeLogRecords(revision, input.data(), input.size(), records);
        std::vector<uint8_t> encoded;
        for (auto const& r : records) encodeLogRecord(revision, r, encoded);
        if (records.size() != size / logRecordSize(revision) || encoded.size() != size - size % logRecordSize(revision))
            std::abort();
        if (!encoded.empty() && std::memcmp(encoded.data(), input.data(), encoded.size()) != 0) std::abort();
    }
    return 0;
}

extern "C" void zelmorFuzzSeeds(std::vector<std::vector<uint8_t>>& seeds) {
    for (uint8_t revision : {0x12, 0x23, 0x31, 0x41}) {
        std::vector<uint8_t> seed;
        for (uint32_t i = 0; i < 3; ++i) {
            LogRecord record;
            record.time = 1700000000u + 10 * i;
            record.voltage1 = 12.75f - 0.25f * static_cast<float>(i);
            record.current = -1.5f;
            record.stateOfCharge = static_cast<uint8_t>(90 - i);
            encodeLogRecord(revision, record, seed);
        }
        seed.resize(seed.size() + 5);
        seeds.push_back(seed);
    }
}
