// The data log: growth with the clock in day files, the listing's pages, read
// ranges, clearing, and how many files the device keeps. The end-to-end runs
// show that the listing over the link is the device's own.
#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "log_record.h"
#include "sim_test_host.h"

namespace {

using namespace simtest;

constexpr int64_t kDay = 86400;
constexpr int64_t kBeforeMidnight = (kStartTime / kDay + 1) * kDay - 1;

Bytes readRequest(uint32_t id, uint32_t offset, uint32_t length) { return concat({u32(id), u32(offset), u32(length)}); }

sim::SimulatedDeviceConfig history(uint32_t days, uint32_t interval, uint8_t revision = 0x41) {
    sim::SimulatedDeviceConfig config = model(revision);
    config.historyDays = days;
    config.logIntervalSeconds = interval;
    return config;
}

size_t totalSize(sim::SimulatedDevice& device) {
    size_t total = 0;
    for (sim::LogFileEntry const& f : device.logFiles()) total += f.size;
    return total;
}

// The start is 22:13:20 UTC: 150 minutes reach into the next day's file.
TEST(SimLog, GrowsByOneRecordPerIntervalInDayFiles) {
    struct Case {
        uint8_t revision;
        uint32_t interval;
        int64_t records;
        size_t files;
    };
    for (Case const c : {Case{0x41, 60, 150, 2}, Case{0x31, 30, 3, 1}}) {
        SCOPED_TRACE(int(c.revision));
        Bench b(history(0, c.interval, c.revision));
        for (int64_t n = 0; n < c.records; ++n) {
            ASSERT_EQ(totalSize(b.device), static_cast<size_t>(n) * logRecordSize(c.revision)) << n;
            b.advance(c.interval);
        }
        std::vector<sim::LogFileEntry> const files = b.device.logFiles();
        ASSERT_EQ(files.size(), c.files);
        for (sim::LogFileEntry const& file : files) {
            Frame const content = b.host.call(0x44, readRequest(file.id, 0, file.size));
            std::vector<LogRecord> records;
            decodeLogRecords(c.revision, content.payload.data(), content.payload.size(), records);
            for (LogRecord const& r : records) {
                EXPECT_EQ(r.time / kDay, records.front().time / kDay);
                EXPECT_EQ(r.time % c.interval, 0u);
                EXPECT_GT(static_cast<int64_t>(r.time), kStartTime);
                EXPECT_LE(static_cast<int64_t>(r.time), b.now.load());
                EXPECT_EQ(std::isnan(r.voltage2), c.revision == 0x31);
            }
        }
    }
}

// Asking for a next page first starts at the beginning; asking for the first
// page again restarts the listing.
TEST(SimLog, PrefilledHistoryIsListedInPagesOf16) {
    // Just before midnight, so 40 days of history make exactly 40 day files.
    Bench b(history(40, 60), kBeforeMidnight);
    EXPECT_EQ(b.device.snapshot().secondsSincePowerOn, 40u * kDay);
    uint32_t id = 0;
    for (size_t expected : {16u, 16u, 8u, 0u, 0u}) {
        Frame const page = b.host.call(0x40, {0});
        ASSERT_EQ(page.payload.size(), expected * 8);
        for (size_t at = 0; at < page.payload.size(); at += 8) {
            EXPECT_EQ(readLe<uint32_t>(page.payload.data() + at), ++id);
            EXPECT_EQ(readLe<uint32_t>(page.payload.data() + at + 4), 1440u * 18u);
        }
    }
    EXPECT_EQ(readLe<uint32_t>(b.host.call(0x40, {1}).payload.data()), 1u);
}

TEST(SimLog, ReadRangesAreClippedToTheFileAnd128KiB) {
    Bench b(history(1, 1), kBeforeMidnight);
    std::vector<sim::LogFileEntry> const files = b.device.logFiles();
    ASSERT_EQ(files.size(), 1u);
    uint32_t const id = files[0].id;
    Bytes const whole = b.device.logFile(id);
    uint32_t const size = 86400u * 18u;
    ASSERT_EQ(whole.size(), size);
    uint32_t const cap = 131072;
    for (auto const [offset, length, begin, end] : {std::array<uint32_t, 4>{5, 0, 5, 5},
                                                    {17, 36, 17, 53},
                                                    {size - 5, 100, size - 5, size},
                                                    {size, 10, size, size},
                                                    {size + 1000, 1, 0, 0},
                                                    {100, 0xFFFFFFFF, 100, 100 + cap},
                                                    {size - cap, cap, size - cap, size},
                                                    {0xFFFFFFFF, 0xFFFFFFFF, 0, 0}}) {
        Frame const a = b.host.call(0x44, readRequest(id, offset, length));
        EXPECT_EQ(a.code, 0);
        EXPECT_EQ(a.payload, Bytes(whole.begin() + begin, whole.begin() + end)) << offset << " " << length;
    }
    EXPECT_EQ(b.host.call(0x44, readRequest(id + 1, 0, 10)).code, 2);
}

TEST(SimLog, ClearRemovesAllFilesAndIdsAreNotReused) {
    Bench b(history(2, 60));
    uint32_t const last = b.device.logFiles().back().id;
    EXPECT_EQ(b.host.call(0x45).code, 0);
    EXPECT_EQ(b.host.call(0x44, readRequest(last, 0, 10)).code, 2);
    b.advance(60);
    std::vector<sim::LogFileEntry> const after = b.device.logFiles();
    ASSERT_EQ(after.size(), 1u);
    EXPECT_GT(after[0].id, last);
    EXPECT_EQ(after[0].size, 18u);
}

TEST(SimLog, KeepsOnlyTheNewestFiles) {
    Bench b(history(450, 3600));
    std::vector<sim::LogFileEntry> const files = b.device.logFiles();
    ASSERT_EQ(files.size(), sim::DeviceLog::kMaxFiles);
    EXPECT_EQ(files.back().id - files.front().id + 1, sim::DeviceLog::kMaxFiles);
    EXPECT_GT(files.front().id, 1u);
}

}  // namespace
