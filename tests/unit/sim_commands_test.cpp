// The device commands' answers by model and firmware, and the rules the
// request engine's end-to-end run does not reach: counters that restart,
// the limits of schedules and WiFi networks, the debug area's ranges and the
// firmware transfer's checks.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "crc32.h"
#include "sim_test_host.h"

namespace {

using namespace simtest;

std::string stringAt(Bytes const& payload, size_t offset, size_t size) {
    std::string s(reinterpret_cast<char const*>(payload.data() + offset), size);
    return s.substr(0, s.find('\0'));
}

TEST(SimCommands, AnswerLengthsByModelAndFirmware) {
    struct Case {
        uint8_t revision;
        uint16_t firmware;
        uint16_t code;
        size_t requestLength;
        uint16_t answerCode;
        size_t answerLength;
    };
    // Info grows by the status byte from firmware 1.20 (WiFi), 1.00 (LAN) and 2.40
    // (Bluetooth); a command the model does not know is an invalid request.
    Case const cases[] = {
        {0x41, 0x0119, 0x01, 0, 0, 81}, {0x41, 0x0120, 0x01, 0, 0, 82},  {0x40, 0x0200, 0x01, 0, 0, 82},
        {0x10, 0x0099, 0x01, 0, 0, 48}, {0x10, 0x0100, 0x01, 0, 0, 49},  {0x21, 0x0239, 0x01, 0, 0, 18},
        {0x21, 0x0240, 0x01, 0, 0, 19}, {0x31, 0x0300, 0x01, 0, 0, 19},  {0x40, 0x0132, 0x04, 0, 0, 53},
        {0x21, 0x0132, 0x04, 0, 0, 51}, {0x31, 0x0132, 0x04, 0, 0, 51},  {0x31, 0x0132, 0x02, 0, 0, 39},
        {0x21, 0x0132, 0x03, 0, 0, 75}, {0x10, 0x0132, 0x60, 0, 1, 0},   {0x10, 0x0132, 0x61, 100, 1, 0},
        {0x10, 0x0132, 0x70, 0, 1, 0},  {0x10, 0x0132, 0x71, 100, 1, 0}, {0x10, 0x0132, 0x72, 1, 1, 0},
        {0x21, 0x0132, 0x62, 0, 1, 0},  {0x31, 0x0132, 0x63, 0, 1, 0},   {0x21, 0x0132, 0x60, 0, 1, 0}};
    for (Case const& c : cases) {
        SCOPED_TRACE(testing::Message() << "revision " << int(c.revision) << ", firmware " << c.firmware << ", code "
                                        << c.code);
        Bench b(c.revision, c.firmware);
        Answer const a = b.host.call(c.code, Bytes(c.requestLength, 0));
        EXPECT_EQ(a.code, c.answerCode);
        ASSERT_EQ(a.payload.size(), c.answerLength);
        if (c.code == 0x01) {
            EXPECT_EQ(readLe<uint16_t>(a.payload.data()), c.firmware);
            EXPECT_EQ(a.payload[2], c.revision);
        }
    }
}

TEST(SimCommands, RelayShowsInInfoAndMonitorData) {
    Bench b;
    EXPECT_EQ(b.host.call(0x14, {0}).code, 0);
    EXPECT_EQ(b.host.call(0x01).payload[77], 0);
    Answer const monitor = b.host.call(0x04);
    EXPECT_EQ(readLe<uint32_t>(monitor.payload.data() + 7) & sim::kStatusRelayOn, 0u);
    EXPECT_EQ(monitor.payload[47], 0);  // power status off
}

// Resetting the statistics starts their ranges from the current reading; the
// uptime counts on until a reboot, which also abandons a firmware transfer.
TEST(SimCommands, CountersRestartWhereTheyShould) {
    Bench b;
    b.clock.advance(6 * 3600);
    Answer const before = b.host.call(0x02);
    ASSERT_EQ(before.payload.size(), 39u);
    EXPECT_LT(readLe<float>(before.payload.data() + 7), readLe<float>(before.payload.data() + 11));
    EXPECT_EQ(b.host.call(0x12).code, 0);
    Answer const after = b.host.call(0x02);
    EXPECT_EQ(readLe<float>(after.payload.data() + 7), readLe<float>(after.payload.data() + 11));
    EXPECT_EQ(readLe<float>(after.payload.data() + 31), readLe<float>(after.payload.data() + 35));
    EXPECT_EQ(readLe<uint32_t>(after.payload.data() + 3), 6u * 3600u);

    EXPECT_EQ(b.host.call(0x13).code, 0);
    b.clock.advance(120);
    EXPECT_EQ(readLe<uint32_t>(b.host.call(0x03).payload.data() + 3), 120u);  // since the synchronisation

    EXPECT_EQ(b.host.call(0xF0, u32(100)).code, 0);
    EXPECT_EQ(b.host.call(0xFB).code, 0);
    EXPECT_FALSE(b.device.firmwareUpdate().inProgress);
    b.clock.advance(7);
    EXPECT_EQ(readLe<uint32_t>(b.host.call(0x02).payload.data() + 3), 7u);
}

// 32 records at most, a batch that does not fit refused whole; clearing leaves
// the committed ones alone.
TEST(SimCommands, ScheduleLimits) {
    Bench b;
    EXPECT_EQ(b.host.call(0x51, Bytes(2 * 24, 1)).code, 0);
    EXPECT_EQ(b.host.call(0x52, concat({u32(2), Bytes(24, 7)})).code, 2);
    EXPECT_EQ(b.host.call(0x53, u32(2)).code, 2);
    EXPECT_EQ(b.host.call(0x55).code, 0);
    EXPECT_EQ(b.host.call(0x51, Bytes(31 * 24, 3)).code, 3);
    EXPECT_EQ(b.host.call(0x51, Bytes(30 * 24, 3)).code, 0);
    EXPECT_EQ(b.host.call(0x51, Bytes(24, 4)).code, 3);
    EXPECT_EQ(b.host.call(0x50).payload.size(), 32u * 24u);
    EXPECT_EQ(b.host.call(0x54).code, 0);
    EXPECT_TRUE(b.host.call(0x50).payload.empty());
    sim::DeviceSnapshot const s = b.device.snapshot();
    EXPECT_EQ(s.committedSchedules.size(), 2u);
    EXPECT_EQ(s.scheduleCommits, 1u);
}

// The results follow the empty answer as notifications, strongest first, and
// the network the device is on is always among them.
TEST(SimCommands, WifiScanResults) {
    Bench b;
    for (int round = 0; round < 5; ++round) {
        auto const frames = b.host.exchange(0x60);
        ASSERT_GE(frames.size(), 4u);
        ASSERT_LE(frames.size(), 6u);
        EXPECT_EQ(frames[0]->code, 0);
        EXPECT_TRUE(frames[0]->payload.empty());
        bool sawHome = false;
        int8_t previous = 127;
        for (size_t i = 1; i < frames.size(); ++i) {
            EXPECT_EQ(frames[i]->code, sim::kNotificationCode);
            EXPECT_EQ(frames[i]->sequence, 0);
            Bytes const& p = frames[i]->payload;
            ASSERT_EQ(p.size(), 42u);
            EXPECT_LE(static_cast<int8_t>(p[32]), previous);
            previous = static_cast<int8_t>(p[32]);
            if (stringAt(p, 0, 32) == "HarbourNet") {
                sawHome = true;
                EXPECT_EQ(p[41], 0x03);  // saved and in use
            }
        }
        EXPECT_TRUE(sawHome);
    }
}

// Eight networks at most, one of a known name replaced in place; removing the
// one in use leaves the device without WiFi, joining one puts it in use.
TEST(SimCommands, WifiNetworkLimits) {
    Bench b;
    auto network = [](std::string const& ssid, uint8_t security) {
        Bytes out;
        ByteWriter(out).writeString(ssid, 32).writeString("pw", 64).write<uint8_t>(security).writeString("", 3);
        return out;
    };
    for (int i = 1; i < 8; ++i) EXPECT_EQ(b.host.call(0x71, network("net" + std::to_string(i), 2)).code, 0);
    EXPECT_EQ(b.host.call(0x71, network("net9", 2)).code, 3);
    EXPECT_EQ(b.host.call(0x71, network("net3", 3)).code, 0);
    EXPECT_EQ(b.host.call(0x71, network("", 2)).code, 2);
    EXPECT_EQ(b.host.call(0x71, network("net10", 5)).code, 2);
    Answer list = b.host.call(0x70);
    ASSERT_EQ(list.payload.size(), 8u * 35u);
    EXPECT_EQ(list.payload[3 * 35 + 32], 3);

    EXPECT_EQ(b.host.call(0x72, {8}).code, 2);
    EXPECT_EQ(b.host.call(0x72, {0}).code, 0);
    Answer const info = b.host.call(0x01);
    EXPECT_EQ(info.payload[43], 0);
    EXPECT_EQ(stringAt(info.payload, 44, 32), "");
    EXPECT_EQ(readLe<int16_t>(b.host.call(0x04).payload.data() + 51), sim::kRssiNotAvailable);

    EXPECT_EQ(b.host.call(0x61, network("net5", 4)).code, 0);
    EXPECT_EQ(b.host.call(0x01).payload[43], 2);
    list = b.host.call(0x70);
    EXPECT_EQ(list.payload[4 * 35 + 33], 1);
    EXPECT_EQ(list.payload[4 * 35 + 32], 4);
}

TEST(SimCommands, DebugAreaReadsAreClippedToTheText) {
    Bench b;
    std::string const text = b.device.debugText();
    ASSERT_GT(text.size(), 5u);
    for (auto const& [offset, length, expected] :
         {std::tuple{0u, 65536u, text}, {2u, 3u, text.substr(2, 3)}, {100000u, 3u, std::string()}}) {
        Answer const a = b.host.call(0xDB, concat({u32(offset), u32(length)}));
        EXPECT_EQ(std::string(a.payload.begin(), a.payload.end()), expected) << offset;
    }
    EXPECT_EQ(b.host.call(0xDE).code, 0);
    EXPECT_TRUE(b.host.call(0xDB, concat({u32(0), u32(65536)})).payload.empty());
}

Bytes image(char const* magic, uint16_t version, size_t payloadSize) {
    Bytes out(20 + payloadSize);
    std::memcpy(out.data() + 4, magic, 8);
    writeLe<uint16_t>(out.data() + 12, version);
    writeLe<uint32_t>(out.data() + 16, static_cast<uint32_t>(payloadSize));
    for (size_t i = 0; i < payloadSize; ++i) out[20 + i] = static_cast<uint8_t>(i * 13 + 1);
    writeLe<uint32_t>(out.data(), crc32Of(out.data() + 4, out.size() - 4));
    return out;
}

// The image must be whole, of the model's family, with a good CRC and a BCD
// version; the new firmware then answers in its own layout.
TEST(SimFirmware, ImagesAreCheckedAgainstTheFamilyAndTheirHeader) {
    Bytes const wifi = image("ZLMRWIFI", 0x0300, 300);
    Bytes const ethernet = image("ZLMRETHN", 0x0300, 300);
    Bytes const ble = image("ZLMRBLE0", 0x0300, 300);
    Bytes const headerOnly = image("ZLMRWIFI", 0x0300, 0);
    Bytes const notBcd = image("ZLMRWIFI", 0x01A0, 300);
    Bytes badCrc = wifi;
    badCrc[200] ^= 1;
    Bytes badLength = wifi;
    writeLe<uint32_t>(badLength.data() + 16, 299);
    writeLe<uint32_t>(badLength.data(), crc32Of(badLength.data() + 4, badLength.size() - 4));
    struct Case {
        uint8_t revision;
        Bytes const& bytes;
        uint16_t code;
        size_t infoLength;
    };
    Case const cases[] = {
        {0x41, wifi, 0, 82},      {0x40, ethernet, 3, 81}, {0x10, ethernet, 0, 49},   {0x10, ble, 3, 49},
        {0x21, ble, 0, 19},       {0x31, ble, 0, 19},      {0x31, wifi, 3, 18},       {0x41, badCrc, 3, 81},
        {0x41, badLength, 3, 81}, {0x41, notBcd, 3, 81},   {0x41, headerOnly, 0, 82},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(testing::Message() << "revision " << int(c.revision) << ", case " << (&c - cases));
        Bench b(c.revision, 0x0119);
        uint16_t code = b.host.call(0xF0, u32(static_cast<uint32_t>(c.bytes.size()))).code;
        for (size_t at = 0; code == 0 && at < c.bytes.size(); at += 128) {
            size_t const end = std::min(at + 128, c.bytes.size());
            code = b.host.call(0xF1, Bytes(c.bytes.begin() + at, c.bytes.begin() + end)).code;
        }
        if (code == 0) code = b.host.call(0xF2).code;
        EXPECT_EQ(code, c.code);
        EXPECT_EQ(b.device.firmwareUpdate().finished, c.code == 0);
        Answer const info = b.host.call(0x01);
        EXPECT_EQ(readLe<uint16_t>(info.payload.data()), c.code == 0 ? 0x0300 : 0x0119);
        EXPECT_EQ(info.payload.size(), c.infoLength);
    }
}

TEST(SimFirmware, TransferTakesNoMoreThanAnnouncedAndEndsAtFinish) {
    Bench b;
    Bytes const valid = image("ZLMRWIFI", 0x0140, 80);
    EXPECT_EQ(b.host.call(0xF0, u32(4u << 20)).code, 0);
    EXPECT_EQ(b.host.call(0xF0, u32(100)).code, 0);  // starts over
    EXPECT_EQ(b.host.call(0xF1, Bytes(valid.begin(), valid.begin() + 60)).code, 0);
    EXPECT_EQ(b.host.call(0xF1, Bytes(valid.begin() + 60, valid.end())).code, 0);
    EXPECT_EQ(b.host.call(0xF1, {0}).code, 2);
    EXPECT_EQ(b.device.firmwareUpdate().bytesReceived, 100u);

    // Finishing early fails and ends the transfer.
    EXPECT_EQ(b.host.call(0xF0, u32(100)).code, 0);
    EXPECT_EQ(b.host.call(0xF1, Bytes(valid.begin(), valid.begin() + 50)).code, 0);
    EXPECT_EQ(b.host.call(0xF2).code, 3);
    EXPECT_FALSE(b.device.firmwareUpdate().inProgress);
    EXPECT_EQ(b.host.call(0xF1, {1}).code, 3);
}

}  // namespace
