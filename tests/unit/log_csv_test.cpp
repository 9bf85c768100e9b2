// The CSV export of data log records and the reader of a local log folder.
#include "log_csv.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <random>
#include <sstream>

namespace {

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
    LogRecord r;
    r.time = time;
    r.voltage1 = 13.2565f;
    r.voltage2 = voltage2;
    r.current = -4.0625f;
    r.power = -53.855f;
    r.temperature = 21.345f;
    r.stateOfCharge = soc;
    r.powerStatus = status;
    return r;
}

std::vector<std::string> lines(std::vector<LogRecord> const& records, int64_t from = 0,
                               int64_t to = std::numeric_limits<int64_t>::max()) {
    std::ostringstream out;
    EXPECT_TRUE(writeLogCsv(out, records, from, to));
    std::vector<std::string> result;
    std::istringstream in(out.str());
    for (std::string line; std::getline(in, line);) result.push_back(line);
    return result;
}

}  // namespace

// A range runs from the first record not before its start up to and including
// the first at or after its end; both ends fall on a record here.
TEST_F(LogCsv, WritesHeaderAndOneRowPerRecordOfTheRangeInTheLocalZone) {
    std::vector<LogRecord> const records = {record(k2025 + 3723), record(k2025 + 3783, NAN, 255, 2),
                                            record(k2025 + 3843, 0, 101, 9), record(k2025 + 3903, 0, 100, 0)};
    auto const rows = lines(records);
    ASSERT_EQ(rows.size(), 5u);
    EXPECT_EQ(rows[0] + "\n", kLogCsvHeader);
    EXPECT_EQ(rows[1], "01/01/2025 01:02:03,13.257,12.700,-4.062,-53.85,21.34,87,ON");
    // No second voltage, state of charge not available.
    EXPECT_EQ(rows[2], "01/01/2025 01:03:03,13.257,,-4.062,-53.85,21.34,,LVD");
    EXPECT_EQ(rows[3], "01/01/2025 01:04:03,13.257,0.000,-4.062,-53.85,21.34,unknown,");
    EXPECT_EQ(rows[4], "01/01/2025 01:05:03,13.257,0.000,-4.062,-53.85,21.34,100,OFF");
    EXPECT_EQ(lines(records, k2025 + 3783, k2025 + 3843), (std::vector<std::string>{rows[0], rows[2], rows[3]}));

    setZone("UTC-2");
    EXPECT_EQ(lines({record(k2025 - 1)}).at(1).substr(0, 20), "01/01/2025 01:59:59,");
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
    write("r0000000A.log", {300, 360});
    write("r00000002.log", {120, 180});
    write("r00000001.log", {0, 60, 240});
    for (char const* ignored : {"r1234567.log", "x0000001f.log", "r0000000g.log", "r00000004.txt"}) write(ignored, {5});

    std::vector<LogRecord> records;
    std::string error;
    ASSERT_TRUE(loadLogDirectory(dir, 0x30, records, error)) << error;
    std::vector<uint32_t> times;
    for (auto const& r : records) times.push_back(r.time);
    EXPECT_EQ(times, (std::vector<uint32_t>{0, 60, 120, 180, 240, 300, 360}));

    std::filesystem::remove_all(dir);
    EXPECT_FALSE(loadLogDirectory(dir, 0x30, records, error));
    EXPECT_NE(error.find(dir.string()), std::string::npos);
}
