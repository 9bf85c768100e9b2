// Arbitrary bytes as the data log of several model families, as a device's
// log file or its local copy holds it: what was decoded must encode to the
// very bytes it came from, up to the partial record at the end, which is left
// out. Any bytes are records, so the target needs no seeds.
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
