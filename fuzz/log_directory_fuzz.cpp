// A device's folder of the local log store holds files this program wrote,
// but also whatever else lands there. Any folder loads to the records of its
// log files, taken in identifier order and ordered by time with ties in file
// order, behind the records already held; other names are ignored; and a log
// file that cannot be read fails the load without touching the records.
//
// The input builds the folder: a first byte picks the model and whether a
// folder with a log file's name is in the way, then entries of a name byte, a
// 16-bit length and that many bytes of content.
#include <algorithm>
#include <bit>
#include <cstdint>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "byte_io.h"
#include "fuzz_check.h"
#include "log_directory.h"
#include "log_record.h"
#include "scratch_directory.h"

namespace {

constexpr uint8_t kRevisions[] = {0x12, 0x23, 0x31, 0x41};
constexpr uint32_t kFileIds[] = {0x00000000, 0x00000001, 0x00000002, 0x0000001F,
                                 0x00000100, 0x12345678, 0x7FFFFFFF, 0xFFFFFFFF};
constexpr uint8_t kUnreadable = 0x80;
// Name byte: the low three bits pick the identifier, then upper-case digits, then a name that is not a log file's.
constexpr uint8_t kUpperCase = 0x08;
constexpr uint8_t kOtherName = 0x10;

std::string fileName(uint8_t nameByte) {
    uint32_t const id = kFileIds[nameByte & 7];
    if (nameByte & kOtherName) return fmt::format("r{:08x}.{}", id, nameByte & kUpperCase ? "csv" : "log.tmp");
    return nameByte & kUpperCase ? fmt::format("r{:08X}.log", id) : fmt::format("r{:08x}.log", id);
}

bool sameRecord(LogRecord const& a, LogRecord const& b) {
    auto const bits = [](float f) { return std::bit_cast<uint32_t>(f); };
    return a.time == b.time && bits(a.voltage1) == bits(b.voltage1) && bits(a.voltage2) == bits(b.voltage2) &&
           bits(a.current) == bits(b.current) && bits(a.power) == bits(b.power) &&
           bits(a.temperature) == bits(b.temperature) && a.stateOfCharge == b.stateOfCharge &&
           a.powerStatus == b.powerStatus;
}

bool sameRecords(std::vector<LogRecord> const& a, std::vector<LogRecord> const& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), sameRecord);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    if (size == 0) return 0;
    static ScratchDirectory const scratch;
    std::filesystem::path const folder = scratch.path() / "device";
    std::filesystem::remove_all(folder);
    std::filesystem::create_directory(folder);
    uint8_t const revision = kRevisions[data[0] & 3];

    // The contents each name ends up with: a later entry of the same name replaces the file.
    std::map<std::string, std::vector<uint8_t>> files;
    for (size_t at = 1; at + 3 <= size;) {
        std::string const name = fileName(data[at]);
        size_t const length = std::min<size_t>(readLe<uint16_t>(data + at + 1), size - at - 3);
        files[name].assign(data + at + 3, data + at + 3 + length);
        at += 3 + length;
    }
    for (auto const& [name, content] : files)
        std::ofstream(folder / name, std::ios::binary)
            .write(reinterpret_cast<char const*>(content.data()), static_cast<std::streamsize>(content.size()));
    if (data[0] & kUnreadable) std::filesystem::create_directory(folder / "r000000aa.log");

    LogRecord held;
    held.time = 0xFFFFFFFF;
    std::vector<LogRecord> records{held};
    std::string error;
    bool const loaded = loadLogDirectory(folder, revision, records, error);
    if (data[0] & kUnreadable) {
        fuzzCheck(!loaded && !error.empty(), "a log file that cannot be read fails the load");
        fuzzCheck(sameRecords(records, {held}), "a failed load leaves the records as they were");
        return 0;
    }
    fuzzCheck(loaded && error.empty(), "a folder of files loads");

    // The reference: files by identifier, each decoded whole, then a stable sort by time.
    std::multimap<uint32_t, std::vector<uint8_t> const*> byId;
    for (auto const& [name, content] : files)
        if (auto const id = logFileId(name)) byId.emplace(*id, &content);
    std::vector<LogRecord> expected{held};
    bool sharedId = false;
    for (auto it = byId.begin(); it != byId.end(); ++it) {
        sharedId = sharedId || byId.count(it->first) > 1;
        decodeLogRecords(revision, it->second->data(), it->second->size(), expected);
    }
    std::stable_sort(expected.begin() + 1, expected.end(),
                     [](LogRecord const& a, LogRecord const& b) { return a.time < b.time; });
    fuzzCheck(records.size() == expected.size() && sameRecord(records[0], held), "the held records stay in front");
    fuzzCheck(std::is_sorted(records.begin() + 1, records.end(),
                             [](LogRecord const& a, LogRecord const& b) { return a.time < b.time; }),
              "the loaded records are in time order");
    // Two files of one identifier (upper and lower case) come in either order.
    if (!sharedId) fuzzCheck(sameRecords(records, expected), "records of one second keep their file order");
    return 0;
}

extern "C" void zelmorFuzzSeeds(std::vector<std::vector<uint8_t>>& seeds) {
    for (uint8_t selector = 0; selector < 4; ++selector) {
        uint8_t const revision = kRevisions[selector];
        std::vector<uint8_t> seed{selector};
        for (uint8_t nameByte : {0x01, 0x00, 0x13, 0x0A}) {
            std::vector<uint8_t> content;
            for (uint32_t i = 0; i < 3; ++i) {
                LogRecord record;
                record.time = 1700000000u + (nameByte & 1 ? 2 * i : 3 * i);
                record.voltage1 = 12.5f + static_cast<float>(i);
                record.stateOfCharge = static_cast<uint8_t>(50 + i);
                encodeLogRecord(revision, record, content);
            }
            content.resize(content.size() + nameByte % 3);  // a record still being written
            seed.push_back(nameByte);
            seed.push_back(static_cast<uint8_t>(content.size()));
            seed.push_back(static_cast<uint8_t>(content.size() >> 8));
            seed.insert(seed.end(), content.begin(), content.end());
        }
        seeds.push_back(seed);
    }
}
