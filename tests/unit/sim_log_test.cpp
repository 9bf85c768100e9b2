// The data log: growth with the clock, pre-filled history, file list paging
// and reads.
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
    Answer const a = host.call(0x40, {first});
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

sim::SimulatedDeviceConfig history(ManualClock const& clock, uint32_t days, uint32_t interval = 60) {
    sim::SimulatedDeviceConfig config = configFor(0x41, clock);
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
        ManualClock clock;
        sim::SimulatedDeviceConfig config = configFor(c.revision, clock);
        config.logIntervalSeconds = c.interval;
        sim::SimulatedDevice device(config);
        TestHost host(device);
        size_t const recordSize = device.logRecordSize();
        ASSERT_EQ(recordSize, logRecordSize(c.revision));
        EXPECT_TRUE(listAll(host).empty());
        for (int64_t n = 1; n <= c.records; ++n) {
            clock.advance(c.interval);
            size_t total = 0;
            for (Listed const& f : listAll(host)) total += f.size;
            ASSERT_EQ(total, static_cast<size_t>(n) * recordSize) << n;
        }
        std::vector<Listed> const files = listAll(host);
        ASSERT_EQ(files.size(), c.files);
        for (size_t i = 0; i < files.size(); ++i) {
            Listed const& f = files[i];
            EXPECT_EQ(f.id, files[0].id + i);
            Answer const content = host.call(0x44, readRequest(f.id, 0, f.size));
            ASSERT_EQ(content.payload.size(), f.size);
            std::vector<LogRecord> records;
            decodeLogRecords(c.revision, content.payload.data(), content.payload.size(), records);
            ASSERT_FALSE(records.empty());
            for (LogRecord const& r : records) {
                EXPECT_EQ(r.time / kDay, records.front().time / kDay);
                EXPECT_EQ(r.time % c.interval, 0u);
                EXPECT_GT(static_cast<int64_t>(r.time), kStartTime);
                EXPECT_LE(static_cast<int64_t>(r.time), clock.now());
                EXPECT_GT(r.voltage1, 10.5f);
                EXPECT_LT(r.voltage1, 14.8f);
                EXPECT_EQ(std::isnan(r.voltage2), c.revision == 0x31);
            }
        }
    }
}

TEST(SimLog, PrefilledHistoryIsListedInPagesOf16) {
    // Just before midnight, so 40 days of history make exactly 40 day files.
    ManualClock clock(kBeforeMidnight);
    sim::SimulatedDevice device(history(clock, 40));
    EXPECT_EQ(device.snapshot().secondsSincePowerOn, 40u * kDay);
    TestHost host(device);
    // Asking for a next page first starts at the beginning.
    std::vector<Listed> all;
    for (size_t expected : {16u, 16u, 8u, 0u, 0u}) {
        std::vector<Listed> const files = page(host, 0);
        EXPECT_EQ(files.size(), expected);
        all.insert(all.end(), files.begin(), files.end());
    }
    ASSERT_EQ(all.size(), 40u);
    EXPECT_EQ(all[0].id, 1u);
    for (size_t i = 0; i < all.size(); ++i) {
        EXPECT_EQ(all[i].id, all[0].id + i);
        EXPECT_EQ(all[i].size, 1440u * 18u) << i;
    }
    // Asking for the first page again restarts the listing.
    EXPECT_EQ(page(host, 1)[0].id, all[0].id);
    EXPECT_EQ(host.call(0x40, {2}).code, 2);
}

TEST(SimLog, ReadRangesAreClippedToTheFileAnd128KiB) {
    ManualClock clock(kBeforeMidnight);
    sim::SimulatedDevice device(history(clock, 1, 1));
    TestHost host(device);
    std::vector<Listed> const files = listAll(host);
    ASSERT_EQ(files.size(), 1u);
    Listed const file = files[0];
    ASSERT_EQ(file.size, 86400u * 18u);
    Bytes const whole = device.logFile(file.id);
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
        Answer const a = host.call(0x44, readRequest(file.id, c.offset, c.length));
        EXPECT_EQ(a.code, 0);
        EXPECT_EQ(a.payload, Bytes(whole.begin() + c.begin, whole.begin() + c.end)) << c.offset << " " << c.length;
    }
    EXPECT_EQ(host.call(0x44, readRequest(file.id + 1, 0, 10)).code, 2);
    EXPECT_EQ(host.call(0x44, readRequest(0, 0, 10)).code, 2);
}

TEST(SimLog, ClearRemovesAllFilesAndIdsAreNotReused) {
    ManualClock clock;
    sim::SimulatedDevice device(history(clock, 2));
    TestHost host(device);
    std::vector<Listed> const before = listAll(host);
    ASSERT_FALSE(before.empty());
    EXPECT_EQ(host.call(0x45).code, 0);
    EXPECT_TRUE(listAll(host).empty());
    EXPECT_EQ(host.call(0x44, readRequest(before.back().id, 0, 10)).code, 2);
    clock.advance(60);
    std::vector<Listed> const after = listAll(host);
    ASSERT_EQ(after.size(), 1u);
    EXPECT_GT(after[0].id, before.back().id);
    EXPECT_EQ(after[0].size, 18u);
}

TEST(SimLog, KeepsOnlyTheNewestFiles) {
    ManualClock clock;
    sim::SimulatedDevice device(history(clock, 450, 3600));
    std::vector<sim::LogFileEntry> const files = device.logFiles();
    ASSERT_EQ(files.size(), sim::DeviceLog::kMaxFiles);
    EXPECT_EQ(files.back().id - files.front().id + 1, sim::DeviceLog::kMaxFiles);
    EXPECT_GT(files.front().id, 1u);
}

}  // namespace
