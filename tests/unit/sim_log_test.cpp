// The data log: growth with the clock in day files, the listing's pages, read
// ranges, clearing, and how many files the device keeps.
#include <gtest/gtest.h>

#include <cmath>

#include "log_record.h"
#include "sim_test_host.h"

namespace {

using namespace simtest;

constexpr int64_t kDay = 86400;
constexpr int64_t kBeforeMidnight = (kStartTime / kDay + 1) * kDay - 1;

struct Listed {
    uint32_t id;
    uint32_t size;
};

std::vector<Listed> page(TestHost& host, uint8_t first) {
    Frame const a = host.call(0x40, {first});
    EXPECT_EQ(a.code, 0);
    EXPECT_EQ(a.payload.size() % 8, 0u);
    std::vector<Listed> files;
    for (size_t i = 0; i + 8 <= a.payload.size(); i += 8)
        files.push_back({readLe<uint32_t>(a.payload.data() + i), readLe<uint32_t>(a.payload.data() + i + 4)});
    return files;
}

std::vector<Listed> listAll(TestHost& host) {
    std::vector<Listed> all = page(host, 1);
    for (std::vector<Listed> more = page(host, 0); !more.empty(); more = page(host, 0))
        all.insert(all.end(), more.begin(), more.end());
    return all;
}

Bytes readRequest(uint32_t id, uint32_t offset, uint32_t length) { return concat({u32(id), u32(offset), u32(length)}); }

sim::SimulatedDeviceConfig history(uint32_t days, uint32_t interval, uint8_t revision = 0x41) {
    sim::SimulatedDeviceConfig config = model(revision);
    config.historyDays = days;
    config.logIntervalSeconds = interval;
    return config;
}

TEST(SimLog, GrowsByOneRecordPerIntervalInDayFiles) {
    struct Case {
        uint8_t revision;
        uint32_t interval;
        int64_t records;
        size_t files;  // the start is 22:13:20 UTC: 150 minutes reach into the next day
    };
    for (Case const c : {Case{0x41, 60, 150, 2}, Case{0x31, 300, 3, 1}}) {
        SCOPED_TRACE(int(c.revision));
        Bench b(history(0, c.interval, c.revision));
        size_t const recordSize = b.device.logRecordSize();
        ASSERT_EQ(recordSize, logRecordSize(c.revision));
        EXPECT_TRUE(listAll(b.host).empty());
        for (int64_t n = 1; n <= c.records; ++n) {
            b.clock.advance(c.interval);
            size_t total = 0;
            for (Listed const& f : listAll(b.host)) total += f.size;
            ASSERT_EQ(total, static_cast<size_t>(n) * recordSize) << n;
        }
        std::vector<Listed> const files = listAll(b.host);
        ASSERT_EQ(files.size(), c.files);
        for (size_t i = 0; i < files.size(); ++i) {
            EXPECT_EQ(files[i].id, files[0].id + i);
            Frame const content = b.host.call(0x44, readRequest(files[i].id, 0, files[i].size));
            std::vector<LogRecord> records;
            decodeLogRecords(c.revision, content.payload.data(), content.payload.size(), records);
            ASSERT_EQ(records.size() * recordSize, files[i].size);
            for (LogRecord const& r : records) {
                EXPECT_EQ(r.time / kDay, records.front().time / kDay);
                EXPECT_EQ(r.time % c.interval, 0u);
                EXPECT_GT(static_cast<int64_t>(r.time), kStartTime);
                EXPECT_LE(static_cast<int64_t>(r.time), b.clock.now());
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
    std::vector<Listed> all;
    for (size_t expected : {16u, 16u, 8u, 0u, 0u}) {
        std::vector<Listed> const files = page(b.host, 0);
        EXPECT_EQ(files.size(), expected);
        all.insert(all.end(), files.begin(), files.end());
    }
    ASSERT_EQ(all.size(), 40u);
    for (size_t i = 0; i < all.size(); ++i) {
        EXPECT_EQ(all[i].id, i + 1);
        EXPECT_EQ(all[i].size, 1440u * 18u) << i;
    }
    EXPECT_EQ(page(b.host, 1)[0].id, 1u);
}

TEST(SimLog, ReadRangesAreClippedToTheFileAnd128KiB) {
    Bench b(history(1, 1), kBeforeMidnight);
    std::vector<Listed> const files = listAll(b.host);
    ASSERT_EQ(files.size(), 1u);
    Listed const file = files[0];
    ASSERT_EQ(file.size, 86400u * 18u);
    Bytes const whole = b.device.logFile(file.id);
    ASSERT_EQ(whole.size(), file.size);

    uint32_t const size = file.size;
    uint32_t const cap = 131072;
    struct Case {
        uint32_t offset;
        uint32_t length;
        uint32_t begin;
        uint32_t end;
    };
    for (Case const& c :
         {Case{0, 10, 0, 10}, Case{5, 0, 5, 5}, Case{17, 36, 17, 53}, Case{size - 5, 100, size - 5, size},
          Case{size, 10, size, size}, Case{size + 1000, 1, 0, 0}, Case{100, 0xFFFFFFFF, 100, 100 + cap},
          Case{size - cap, cap, size - cap, size}, Case{0xFFFFFFFF, 0xFFFFFFFF, 0, 0}}) {
        Frame const a = b.host.call(0x44, readRequest(file.id, c.offset, c.length));
        EXPECT_EQ(a.code, 0);
        EXPECT_EQ(a.payload, Bytes(whole.begin() + c.begin, whole.begin() + c.end)) << c.offset << " " << c.length;
    }
    EXPECT_EQ(b.host.call(0x44, readRequest(file.id + 1, 0, 10)).code, 2);
}

TEST(SimLog, ClearRemovesAllFilesAndIdsAreNotReused) {
    Bench b(history(2, 60));
    std::vector<Listed> const before = listAll(b.host);
    ASSERT_FALSE(before.empty());
    EXPECT_EQ(b.host.call(0x45).code, 0);
    EXPECT_TRUE(listAll(b.host).empty());
    EXPECT_EQ(b.host.call(0x44, readRequest(before.back().id, 0, 10)).code, 2);
    b.clock.advance(60);
    std::vector<Listed> const after = listAll(b.host);
    ASSERT_EQ(after.size(), 1u);
    EXPECT_GT(after[0].id, before.back().id);
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
