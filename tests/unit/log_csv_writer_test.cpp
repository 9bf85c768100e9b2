// The CSV export against a plain snprintf writer of the same formats, and its
// progress and cancel.
#include "log_csv.h"

#include <gtest/gtest.h>

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "log_csv_reference.h"
#include "log_record.h"
#include "power_status.h"

namespace {

std::string referenceCsv(std::vector<LogRecord> const& records, int64_t from, int64_t to) {
    char* text = nullptr;
    size_t length = 0;
    std::FILE* out = open_memstream(&text, &length);
    writeLogCsvBySnprintf(out, records, from, to);
    std::fclose(out);
    std::string result(text, length);
    std::free(text);
    return result;
}

std::string written(std::vector<LogRecord> const& records, int64_t from, int64_t to, LogCsvProgress const& progress,
                    LogCsvResult expected = LogCsvResult::written) {
    char* text = nullptr;
    size_t length = 0;
    std::FILE* out = open_memstream(&text, &length);
    EXPECT_EQ(writeLogCsv(out, records, from, to, progress), expected);
    std::fclose(out);
    std::string result(text, length);
    std::free(text);
    return result;
}

// Decoded records of random stored bytes, in time order, plus values no
// decoder gives: -0, values between the units, and ties of the last digit
// just above the magnitudes where a float still resolves it.
std::vector<LogRecord> randomRecords(std::mt19937& random, uint8_t revision, size_t count) {
    std::vector<uint8_t> bytes(count * logRecordSize(revision));
    for (auto& b : bytes) b = static_cast<uint8_t>(random());
    std::vector<LogRecord> records;
    decodeLogRecords(revision, bytes.data(), bytes.size(), records);
    uint32_t time = 1700000000;
    for (auto& r : records) r.time = time += random() % 100;
    records[0].voltage1 = -0.0f;
    records[1].current = 0.0005f;
    records[2].power = 131072.125f;
    records[5].current = 16384.0625f;
    records[3].voltage2 = 9000.0625f;
    records[4].temperature = -0.004f;
    return records;
}

}  // namespace

TEST(LogCsvWriter, WritesWhatSnprintfWrites) {
    std::mt19937 random(3);
    for (uint8_t revision : {0x41, 0x31}) {
        auto const records = randomRecords(random, revision, 30000);
        struct Range {
            int64_t from, to;
        };
        int64_t const middle = records[15000].time;
        for (Range range : {Range{0, std::numeric_limits<int64_t>::max()}, Range{middle, middle},
                            Range{middle - 1000, middle + 1}, Range{middle + 1, 0}, Range{1LL << 40, 0}}) {
            SCOPED_TRACE(testing::Message() << int{revision} << " " << range.from << " " << range.to);
            EXPECT_EQ(written(records, range.from, range.to, {}), referenceCsv(records, range.from, range.to));
        }
    }
}

TEST(LogCsvWriter, RowsOfTheEdgeValues) {
    std::vector<LogRecord> const records = {
        {1735689600, 12.5f, std::nanf(""), -1.25f, 3.5f, 21.5f, 255, 2},
        {1735689601, 12.5f, 12.6f, -1.25f, 3.5f, 21.5f, 101, 9},
        {1735689602, 12.5f, 12.6f, -1.25f, 3.5f, 21.5f, 0, 8},
    };
    EXPECT_EQ(written(records, 0, 1735689601, {}),
              std::string(kLogCsvHeader) +
                  "01/01/2025 00:00:00,12.500,,-1.250,3.50,21.50,,LVD\n"
                  "01/01/2025 00:00:01,12.500,12.600,-1.250,3.50,21.50,unknown,\n");
}

// Progress comes every few thousand rows with the rows of the whole range; false stops the export there.
TEST(LogCsvWriter, ProgressCountsTheRowsAndCanCancel) {
    std::vector<LogRecord> records(100000);
    for (size_t i = 0; i < records.size(); ++i) records[i].time = static_cast<uint32_t>(i);
    std::vector<uint64_t> seen;
    std::string const text = written(records, 10, 50009, [&](uint64_t done, uint64_t total) {
        EXPECT_EQ(total, 50000u);
        seen.push_back(done);
        return true;
    });
    EXPECT_EQ(seen.back(), 50000u);
    EXPECT_GT(seen.size(), 2u);
    std::string const cut = written(
        records, 0, 100000, [](uint64_t done, uint64_t) { return done < 20000; }, LogCsvResult::cancelled);
    EXPECT_LT(cut.size(), text.size());
}
