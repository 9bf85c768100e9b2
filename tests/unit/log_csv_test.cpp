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
    return {time, 13.2565f, voltage2, -4.0625f, -53.855f, 21.345f, soc, status};
}

std::string csv(std::vector<LogRecord> const& records, int64_t from = 0,
                int64_t to = std::numeric_limits<int64_t>::max()) {
    std::ostringstream out;
    EXPECT_TRUE(writeLogCsv(out, records, from, to));
    return out.str();
}

}  // namespace

// A range runs from the first record not before its start up to and including
// the first at or after its end; both ends fall on a record here.
TEST_F(LogCsv, WritesHeaderAndOneRowPerRecordOfTheRangeInTheLocalZone) {
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

    setZone("UTC-2");
    EXPECT_EQ(csv({record(k2025 - 1)}).substr(header.size(), 20), "01/01/2025 01:59:59,");
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
