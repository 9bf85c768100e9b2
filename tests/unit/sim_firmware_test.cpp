// Firmware transfer: image checks, block bookkeeping, the version taken over.
#include <gtest/gtest.h>

#include <cstring>

#include "crc32.h"
#include "sim_test_host.h"

namespace {

using namespace simtest;

Bytes image(char const* magic, uint16_t version, size_t payloadSize) {
    Bytes out(20 + payloadSize);
    std::memcpy(out.data() + 4, magic, 8);
    writeLe<uint16_t>(out.data() + 12, version);
    writeLe<uint32_t>(out.data() + 16, static_cast<uint32_t>(payloadSize));
    for (size_t i = 0; i < payloadSize; ++i) out[20 + i] = static_cast<uint8_t>(i * 13 + 1);
    writeLe<uint32_t>(out.data(), crc32Of(out.data() + 4, out.size() - 4));
    return out;
}

uint16_t transfer(TestHost& host, Bytes const& bytes, size_t block = 4096) {
    uint16_t code = host.call(0xF0, u32(static_cast<uint32_t>(bytes.size()))).code;
    if (code != 0) return code;
    for (size_t at = 0; at < bytes.size(); at += block) {
        size_t const n = std::min(block, bytes.size() - at);
        code = host.call(0xF1, Bytes(bytes.begin() + at, bytes.begin() + at + n)).code;
        if (code != 0) return code;
    }
    return host.call(0xF2).code;
}

TEST(SimFirmware, ValidImageIsTakenOver) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock, 0x0119));
    TestHost host(device);
    EXPECT_EQ(host.call(0x01).payload.size(), 81u);
    Bytes const valid = image("ZLMRWIFI", 0x0201, 10000);
    EXPECT_EQ(transfer(host, valid), 0);
    sim::FirmwareUpdateProgress const p = device.firmwareUpdate();
    EXPECT_EQ(p.announcedSize, 10020u);
    EXPECT_EQ(p.bytesReceived, 10020u);
    EXPECT_EQ(p.blocksReceived, 3u);
    EXPECT_TRUE(p.finished);
    EXPECT_FALSE(p.inProgress);
    Answer const info = host.call(0x01);
    EXPECT_EQ(readLe<uint16_t>(info.payload.data()), 0x0201);
    // The new firmware sends the extra status byte.
    EXPECT_EQ(info.payload.size(), 82u);
}

TEST(SimFirmware, ImagesAreCheckedAgainstTheFamily) {
    struct Case {
        uint8_t revision;
        char const* magic;
        uint16_t code;
    };
    Case const cases[] = {
        {0x41, "ZLMRWIFI", 0}, {0x40, "ZLMRETHN", 3}, {0x10, "ZLMRETHN", 0}, {0x10, "ZLMRBLE0", 3},
        {0x21, "ZLMRBLE0", 0}, {0x31, "ZLMRBLE0", 0}, {0x31, "ZLMRWIFI", 3},
    };
    for (Case const& c : cases) {
        ManualClock clock;
        sim::SimulatedDevice device(configFor(c.revision, clock));
        TestHost host(device);
        EXPECT_EQ(transfer(host, image(c.magic, 0x0300, 100)), c.code) << int(c.revision) << c.magic;
        EXPECT_EQ(device.snapshot().firmwareVersion, c.code == 0 ? 0x0300 : 0x0132);
    }
}

TEST(SimFirmware, DamagedImagesAreRefused) {
    Bytes const good = image("ZLMRWIFI", 0x0150, 300);
    Bytes badCrc = good;
    badCrc[200] ^= 1;
    Bytes badLength = good;
    writeLe<uint32_t>(badLength.data() + 16, 299);
    writeLe<uint32_t>(badLength.data(), crc32Of(badLength.data() + 4, badLength.size() - 4));
    Bytes const notBcd = image("ZLMRWIFI", 0x01A0, 300);
    Bytes const headerOnly = image("ZLMRWIFI", 0x0150, 0);
    for (Bytes const& bytes : {badCrc, badLength, notBcd}) {
        ManualClock clock;
        sim::SimulatedDevice device(configFor(0x41, clock));
        TestHost host(device);
        EXPECT_EQ(transfer(host, bytes, 128), 3);
        EXPECT_FALSE(device.firmwareUpdate().finished);
        EXPECT_EQ(device.snapshot().firmwareVersion, 0x0132);
    }
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    TestHost host(device);
    EXPECT_EQ(transfer(host, headerOnly), 0);
}

TEST(SimFirmware, TransferBookkeeping) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    TestHost host(device);
    EXPECT_EQ(host.call(0xF1, {1, 2, 3}).code, 3);
    EXPECT_EQ(host.call(0xF2).code, 3);
    EXPECT_EQ(host.call(0xF0, u32(19)).code, 2);
    EXPECT_EQ(host.call(0xF0, u32((4u << 20) + 1)).code, 2);
    EXPECT_EQ(host.call(0xF0, u32(4u << 20)).code, 0);
    EXPECT_EQ(host.call(0xF0, u32(100)).code, 0);

    Bytes const valid = image("ZLMRWIFI", 0x0140, 80);
    EXPECT_EQ(host.call(0xF1, Bytes(valid.begin(), valid.begin() + 60)).code, 0);
    EXPECT_EQ(host.call(0xF1, Bytes(valid.begin() + 60, valid.end())).code, 0);
    EXPECT_EQ(host.call(0xF1, {0}).code, 2);
    sim::FirmwareUpdateProgress p = device.firmwareUpdate();
    EXPECT_EQ(p.bytesReceived, 100u);
    EXPECT_EQ(p.blocksReceived, 2u);
    EXPECT_TRUE(p.inProgress);

    // Finishing early fails and ends the transfer.
    EXPECT_EQ(host.call(0xF0, u32(100)).code, 0);
    EXPECT_EQ(host.call(0xF1, Bytes(valid.begin(), valid.begin() + 50)).code, 0);
    EXPECT_EQ(host.call(0xF2).code, 3);
    p = device.firmwareUpdate();
    EXPECT_FALSE(p.inProgress);
    EXPECT_FALSE(p.finished);
    EXPECT_EQ(host.call(0xF1, {1}).code, 3);
}

TEST(SimFirmware, RebootAbandonsTransferAndRestartsUptime) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    TestHost host(device);
    clock.advance(500);
    Answer stats = host.call(0x02);
    ASSERT_EQ(stats.payload.size(), 39u);
    EXPECT_EQ(readLe<uint32_t>(stats.payload.data() + 3), 500u);
    EXPECT_EQ(host.call(0xF0, u32(100)).code, 0);
    EXPECT_EQ(host.call(0xFB).code, 0);
    EXPECT_FALSE(device.firmwareUpdate().inProgress);
    clock.advance(7);
    stats = host.call(0x02);
    EXPECT_EQ(readLe<uint32_t>(stats.payload.data() + 3), 7u);
}

}  // namespace
