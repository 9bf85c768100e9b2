// The data log: growth with the clock, pre-filled history, file list paging
// and reads.
#include <gtest/gtest.h>

#include <cmath>

#include "log_record.h"
#include "sim_test_host.h"

namespace {

using namespace simtest;

constexpr int64_t kDay = 86400;

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

Bytes readRequest(uint32_t id, uint32_t offset, uint32_t length) {
    Bytes out;
    ByteWriter(out).write<uint32_t>(id).write<uint32_t>(offset).write<uint32_t>(length);
    return out;
}

TEST(SimLog, GrowsByOneRecordPerInterval) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    TestHost host(device);
    size_t const recordSize = device.logRecordSize();
    ASSERT_EQ(recordSize, logRecordSize(0x41));
    EXPECT_TRUE(listAll(host).empty());

    // The start is 22:13:20 UTC: 150 minutes reach into the next day.
    for (int64_t n = 1; n <= 150; ++n) {
        clock.advance(60);
        if (n % 50 != 0) continue;
        size_t total = 0;
        for (Listed const& f : listAll(host)) total += f.size;
        EXPECT_EQ(total, static_cast<size_t>(n) * recordSize) << n;
    }
    std::vector<Listed> const files = listAll(host);
    ASSERT_EQ(files.size(), 2u);
    EXPECT_EQ(files[1].id, files[0].id + 1);

    for (Listed const& f : files) {
        Answer const content = host.call(0x44, readRequest(f.id, 0, f.size));
        ASSERT_EQ(content.payload.size(), f.size);
        std::vector<LogRecord> records;
        decodeLogRecords(0x41, content.payload.data(), content.payload.size(), records);
        ASSERT_FALSE(records.empty());
        for (LogRecord const& r : records) {
            EXPECT_EQ(r.time / kDay, records.front().time / kDay);
            EXPECT_EQ(r.time % 60, 0u);
            EXPECT_GT(r.voltage1, 10.5f);
            EXPECT_LT(r.voltage1, 14.8f);
            EXPECT_FALSE(std::isnan(r.voltage2));
        }
    }
}

TEST(SimLog, RecordsCarryDeviceTimeOnTheIntervalGrid) {
    ManualClock clock;
    sim::SimulatedDeviceConfig config = configFor(0x31, clock);
    config.logIntervalSeconds = 300;
    sim::SimulatedDevice device(config);
    clock.advance(3 * 300);
    std::vector<sim::LogFileEntry> const files = device.logFiles();
    ASSERT_EQ(files.size(), 1u);
    Bytes const content = device.logFile(files[0].id);
    std::vector<LogRecord> records;
    decodeLogRecords(0x31, content.data(), content.size(), records);
    ASSERT_EQ(records.size(), 3u);
    for (size_t i = 0; i < records.size(); ++i) {
        EXPECT_EQ(records[i].time % 300, 0u);
        EXPECT_GT(static_cast<int64_t>(records[i].time), kStartTime);
        EXPECT_LE(static_cast<int64_t>(records[i].time), clock.now());
        EXPECT_TRUE(std::isnan(records[i].voltage2));
    }
}

TEST(SimLog, PrefilledMonthIsListedInPagesOf16) {
    // Just before midnight, so 40 days of history make exactly 40 day files.
    ManualClock clock((kStartTime / kDay + 1) * kDay - 1);
    sim::SimulatedDeviceConfig config = configFor(0x41, clock);
    config.historyDays = 40;
    sim::SimulatedDevice device(config);
    TestHost host(device);

    std::vector<Listed> const first = page(host, 1);
    std::vector<Listed> const second = page(host, 0);
    std::vector<Listed> const third = page(host, 0);
    EXPECT_EQ(first.size(), 16u);
    EXPECT_EQ(second.size(), 16u);
    EXPECT_EQ(third.size(), 8u);
    EXPECT_TRUE(page(host, 0).empty());
    EXPECT_TRUE(page(host, 0).empty());

    std::vector<Listed> all = first;
    all.insert(all.end(), second.begin(), second.end());
    all.insert(all.end(), third.begin(), third.end());
    for (size_t i = 0; i < all.size(); ++i) {
        EXPECT_EQ(all[i].id, all[0].id + i);
        EXPECT_EQ(all[i].size, 1440u * 18u) << i;
    }
    // Asking for the first page again restarts the listing.
    EXPECT_EQ(page(host, 1)[0].id, all[0].id);
    EXPECT_EQ(host.call(0x40, {2}).code, 2);
}

TEST(SimLog, NextPageWithoutFirstStartsAtTheBeginning) {
    ManualClock clock;
    sim::SimulatedDeviceConfig config = configFor(0x10, clock);
    config.historyDays = 3;
    sim::SimulatedDevice device(config);
    TestHost host(device);
    std::vector<Listed> const files = page(host, 0);
    ASSERT_EQ(files.size(), 4u);
    EXPECT_EQ(files[0].id, 1u);
}

TEST(SimLog, PrefillOfThirtyDaysAtOneMinute) {
    ManualClock clock;
    sim::SimulatedDeviceConfig config = configFor(0x41, clock);
    config.historyDays = 30;
    sim::SimulatedDevice device(config);
    size_t total = 0;
    for (sim::LogFileEntry const& f : device.logFiles()) total += f.size;
    EXPECT_EQ(total, 30u * 1440u * 18u);
    EXPECT_EQ(device.snapshot().secondsSincePowerOn, 30u * kDay);
}

TEST(SimLog, ReadRanges) {
    ManualClock clock;
    sim::SimulatedDeviceConfig config = configFor(0x41, clock);
    config.historyDays = 1;
    sim::SimulatedDevice device(config);
    TestHost host(device);
    std::vector<Listed> const files = listAll(host);
    ASSERT_FALSE(files.empty());
    Listed const file = files.back();
    Bytes const whole = device.logFile(file.id);
    ASSERT_EQ(whole.size(), file.size);
    uint32_t const size = file.size;

    struct Case {
        uint32_t offset;
        uint32_t length;
        uint32_t begin;
        uint32_t end;
    };
    Case const cases[] = {
        {0, 10, 0, 10},           {5, 0, 5, 5},           {size - 5, 100, size - 5, size},
        {size, 10, size, size},   {size + 1000, 1, 0, 0}, {0, size, 0, size},
        {0, 0xFFFFFFFF, 0, size}, {17, 36, 17, 53},       {0xFFFFFFFF, 0xFFFFFFFF, 0, 0},
    };
    for (Case const& c : cases) {
        Answer const a = host.call(0x44, readRequest(file.id, c.offset, c.length));
        EXPECT_EQ(a.code, 0);
        EXPECT_EQ(a.payload, Bytes(whole.begin() + c.begin, whole.begin() + c.end)) << c.offset << " " << c.length;
    }
    EXPECT_EQ(host.call(0x44, readRequest(file.id + 1, 0, 10)).code, 2);
    EXPECT_EQ(host.call(0x44, readRequest(0, 0, 10)).code, 2);
}

TEST(SimLog, ReadsAreCappedAt128KiB) {
    ManualClock clock((kStartTime / kDay + 1) * kDay - 1);
    sim::SimulatedDeviceConfig config = configFor(0x41, clock);
    config.logIntervalSeconds = 1;
    config.historyDays = 1;
    sim::SimulatedDevice device(config);
    TestHost host(device);
    std::vector<Listed> const files = listAll(host);
    ASSERT_EQ(files.size(), 1u);
    ASSERT_EQ(files[0].size, 86400u * 18u);
    Answer const a = host.call(0x44, readRequest(files[0].id, 100, 0xFFFFFFFF));
    ASSERT_EQ(a.payload.size(), 131072u);
    Bytes const whole = device.logFile(files[0].id);
    EXPECT_EQ(a.payload, Bytes(whole.begin() + 100, whole.begin() + 100 + 131072));
}

TEST(SimLog, ClearRemovesAllFilesAndIdsAreNotReused) {
    ManualClock clock;
    sim::SimulatedDeviceConfig config = configFor(0x41, clock);
    config.historyDays = 2;
    sim::SimulatedDevice device(config);
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
    sim::SimulatedDeviceConfig config = configFor(0x41, clock);
    config.logIntervalSeconds = 3600;
    config.historyDays = 450;
    sim::SimulatedDevice device(config);
    std::vector<sim::LogFileEntry> const files = device.logFiles();
    ASSERT_EQ(files.size(), sim::DeviceLog::kMaxFiles);
    EXPECT_EQ(files.back().id - files.front().id + 1, sim::DeviceLog::kMaxFiles);
    EXPECT_GT(files.front().id, 1u);
}

}  // namespace
