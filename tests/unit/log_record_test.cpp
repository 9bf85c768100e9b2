// The stored form of data log records: both layouts byte for byte, rounding,
// saturation, and decoding that gives back what was stored, codes of
// unavailable values included.
#include "log_record.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "log_csv.h"
#include "log_directory.h"
#include "test_bytes.h"

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint8_t kTwoVoltageModel = 0x41;
constexpr uint8_t kOneVoltageModel = 0x31;
constexpr float kInf = std::numeric_limits<float>::infinity();

// Time, voltages, current, power, temperature, state of charge, power status.
LogRecord sample() { return {1700000000, 12.5f, 13.0f, -3.25f, -40.63f, 21.5f, 87, 2}; }

std::string encoded(uint8_t revision, LogRecord const& r) {
    Bytes out;
    encodeLogRecord(revision, r, out);
    return hex(out);
}

// The CSV export of data log records and the reader of a local log folder.
constexpr uint32_t k2025 = 1735689600;  // 2025-01-01 00:00:00 UTC

/// Runs each test in UTC and puts the process's time zone back afterwards.
class LogCsv : public testing::Test {
protected:
    void SetUp() override { setZone("UTC"); }
    void TearDown() override { setZone(saved_ ? saved_->c_str() : nullptr); }
    static void setZone(char const* zone) {
        if (zone)
            ::setenv("TZ", zone, 1);
        else
            ::unsetenv("TZ");
        ::tzset();
    }

private:
    std::optional<std::string> const saved_ =
        std::getenv("TZ") ? std::optional<std::string>(std::getenv("TZ")) : std::nullopt;
};

LogRecord record(uint32_t time, float voltage2 = 12.7f, uint8_t soc = 87, uint8_t status = 1) {
    return {time, 13.2565f, voltage2, -4.0625f, -53.855f, 21.345f, soc, status};
}

std::string csv(std::vector<LogRecord> const& records, int64_t from = 0,
                int64_t to = std::numeric_limits<int64_t>::max()) {
    char* text = nullptr;
    size_t length = 0;
    std::FILE* out = open_memstream(&text, &length);
    EXPECT_EQ(writeLogCsv(out, records, from, to), LogCsvResult::written);
    std::fclose(out);
    std::string result(text, length);
    std::free(text);
    return result;
}

}  // namespace

// The size and layout follow the model family: only the 0x3_ models leave out the second voltage.
TEST(LogRecord, EncodesBothLayoutsByteForByte) {
    std::string const twoVoltages =
        "00 f1 53 65 "  // time 1700000000
        "6a 18 "        // voltage 1: 6250 x 2 mV
        "64 19 "        // voltage 2: 6500 x 2 mV
        "4e f3 ff "     // current: -3250 mA
        "21 f0 ff "     // power: -4063 x 10 mW
        "66 08 "        // temperature: 2150 x 0.01 °C
        "57 02";        // state of charge 87, power status 2
    std::string const oneVoltage = "00 f1 53 65 6a 18 4e f3 ff 21 f0 ff 66 08 57 02";
    for (uint8_t revision : {0x12, 0x2F, 0x40}) EXPECT_EQ(encoded(revision, sample()), twoVoltages) << int{revision};
    for (uint8_t revision : {0x30, 0x3F}) EXPECT_EQ(encoded(revision, sample()), oneVoltage) << int{revision};
}

// Half a unit rounds away from zero (0.125 °C is a tie exact in binary), and
// beyond its range a field stops at the end, one short of the unavailable code.
TEST(LogRecord, ValuesRoundHalfAwayFromZeroAndSaturate) {
    struct Case {
        float LogRecord::*field;
        size_t offset;
        float value;
        char const* bytes;
    };
    Case const cases[] = {
        {&LogRecord::current, 8, 0.0004f, "00 00 00"},   {&LogRecord::current, 8, 0.0006f, "01 00 00"},
        {&LogRecord::current, 8, -0.0004f, "00 00 00"},  {&LogRecord::current, 8, -0.0006f, "ff ff ff"},
        {&LogRecord::current, 8, -0.0f, "00 00 00"},     {&LogRecord::temperature, 14, 0.125f, "0d 00"},
        {&LogRecord::temperature, 14, -0.125f, "f3 ff"}, {&LogRecord::voltage1, 4, 200.0f, "fe ff"},
        {&LogRecord::voltage1, 4, -0.5f, "00 00"},       {&LogRecord::current, 8, 1e6f, "ff ff 7f"},
        {&LogRecord::current, 8, -kInf, "01 00 80"},     {&LogRecord::power, 11, kInf, "ff ff 7f"},
        {&LogRecord::power, 11, -1e7f, "01 00 80"},      {&LogRecord::temperature, 14, 400.0f, "ff 7f"},
        {&LogRecord::temperature, 14, -400.0f, "01 80"},
    };
    for (auto const& c : cases) {
        LogRecord r = sample();
        r.*c.field = c.value;
        EXPECT_EQ(encoded(kTwoVoltageModel, r).substr(3 * c.offset, std::strlen(c.bytes)), c.bytes) << c.value;
    }
}

// Decoding and encoding again gives back the bytes: the extremes of every field,
// the codes of unavailable values, and -8388603 mA and -8388606 x 10 mW, which a
// decoder that multiplied in float would hand back one count off. Records are
// appended; a partial one at the end (a file still being written) is left out.
TEST(LogRecord, DecodedRecordsEncodeToTheBytesTheyCameFrom) {
    Bytes const bytes = fromHex(
        "ff ff ff ff fe ff 00 00 ff ff 7f ff ff 7f ff 7f 00 ff "
        "00 00 00 00 01 00 ff ff 01 00 80 01 00 80 01 80 64 00 "
        "01 00 00 00 39 30 fe ff fe ff 7f fd ff 7f fe 7f 65 80 "
        "02 00 00 00 00 00 00 00 05 00 80 02 00 80 00 00 00 00 "
        "03 00 00 00 ff ff ff ff 00 00 80 00 00 80 00 80 ff 00 "
        "ab");
    for (uint8_t revision : {kTwoVoltageModel, kOneVoltageModel}) {
        SCOPED_TRACE(int{revision});
        std::vector<LogRecord> records(1);
        decodeLogRecords(revision, bytes.data(), bytes.size(), records);
        ASSERT_EQ(records.size(), 1 + bytes.size() / logRecordSize(revision));
        EXPECT_EQ(records[0].time, 0u);
        EXPECT_EQ(std::isnan(records[1].voltage2), revision == kOneVoltageModel);
        Bytes again;
        for (size_t i = 1; i < records.size(); ++i) encodeLogRecord(revision, records[i], again);
        EXPECT_EQ(hex(again), hex(bytes.data(), again.size()));
    }
}

// A range runs from the first record not before its start up to and including
// the first at or after its end; both ends fall on a record here.
TEST_F(LogCsv, WritesHeaderAndOneRowPerRecordOfTheRangeOnTheDeviceClock) {
    std::vector<LogRecord> const records = {record(k2025 + 3723), record(k2025 + 3783, NAN, 255, 2),
                                            record(k2025 + 3843, 0, 101, 9), record(k2025 + 3903, 0, 100, 0)};
    std::string const header = kLogCsvHeader;
    std::string const rows[] = {
        "01/01/2025 01:02:03,13.257,12.700,-4.062,-53.85,21.34,87,ON\n",
        // No second voltage, state of charge not available.
        "01/01/2025 01:03:03,13.257,,-4.062,-53.85,21.34,,LVD\n",
        "01/01/2025 01:04:03,13.257,0.000,-4.062,-53.85,21.34,unknown,\n",
        "01/01/2025 01:05:03,13.257,0.000,-4.062,-53.85,21.34,100,OFF\n",
    };
    EXPECT_EQ(csv(records), header + rows[0] + rows[1] + rows[2] + rows[3]);
    EXPECT_EQ(csv(records, k2025 + 3783, k2025 + 3843), header + rows[1] + rows[2]);

    // The stamps are the device's wall clock: the process's zone does not shift them.
    setZone("UTC-2");
    EXPECT_EQ(csv({record(k2025 - 1)}).substr(header.size(), 20), "31/12/2024 23:59:59,");
}

TEST_F(LogCsv, LoaderReadsOnlyLogFileNamesInTimeOrder) {
    auto const dir = std::filesystem::path(testing::TempDir()) / ("log_csv_" + std::to_string(std::random_device()()));
    std::filesystem::create_directories(dir);
    auto write = [&](char const* name, std::vector<uint32_t> const& times) {
        std::vector<uint8_t> bytes;
        for (uint32_t t : times) encodeLogRecord(0x30, record(t), bytes);
        bytes.push_back(0xAB);  // a record still being written
        std::ofstream(dir / name, std::ios::binary)
            .write(reinterpret_cast<char const*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    };
    write("r0000000A.log", {120, 300});
    write("r00000001.log", {0, 180, 240});
    for (char const* ignored : {"r1234567.log", "x0000001f.log", "r0000000g.log", "r00000004.txt"}) write(ignored, {5});

    std::vector<LogRecord> records;
    std::string error;
    ASSERT_TRUE(loadLogDirectory(dir, 0x30, records, error)) << error;
    std::vector<uint32_t> times;
    for (auto const& r : records) times.push_back(r.time);
    EXPECT_EQ(times, (std::vector<uint32_t>{0, 120, 180, 240, 300}));

    std::filesystem::remove_all(dir);
    EXPECT_FALSE(loadLogDirectory(dir, 0x30, records, error));
    EXPECT_NE(error.find(dir.string()), std::string::npos);
}
