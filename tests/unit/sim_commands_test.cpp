// Answers of the device commands: layouts by model and firmware, settings,
// schedules, WiFi, the debug area and the firmware transfer.
#include <gtest/gtest.h>

#include <cmath>
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

Bytes networkRecord(std::string const& ssid, std::string const& password, uint8_t security) {
    Bytes out;
    ByteWriter(out).writeString(ssid, 32).writeString(password, 64).write<uint8_t>(security).writeString("", 3);
    return out;
}

/// A plain session on a fresh device of the given model.
struct Bench {
    explicit Bench(uint8_t revision = 0x41, uint16_t firmware = 0x0132)
        : device(configFor(revision, clock, firmware)) {}
    explicit Bench(sim::SimulatedDeviceConfig const& config) : device(config) {}
    ManualClock clock;
    sim::SimulatedDevice device;
    TestHost host{device};
};

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
    // (Bluetooth); a command the model does not know is an invalid request. The
    // records of the LAN and WiFi models at 1.32 are checked end to end.
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

TEST(SimCommands, InfoFields) {
    ManualClock clock;
    sim::SimulatedDeviceConfig config = configFor(0x41, clock);
    config.ipAddress = {127, 0, 0, 9};
    Bench wifi(config);
    Answer const a = wifi.host.call(0x01);
    ASSERT_EQ(a.payload.size(), 82u);
    EXPECT_EQ(a.payload[43], 2);  // connected
    EXPECT_EQ(stringAt(a.payload, 44, 32), "HarbourNet");
    EXPECT_EQ(a.payload[76], 0);  // lock status
    EXPECT_EQ(a.payload[77], 1);  // relay on
    EXPECT_EQ(Bytes(a.payload.begin() + 78, a.payload.end()), (Bytes{127, 0, 0, 9}));

    Bench bluetooth(0x31, 0x0240);
    Answer const b = bluetooth.host.call(0x01);
    ASSERT_EQ(b.payload.size(), 19u);
    EXPECT_EQ(Bytes(b.payload.begin() + 3, b.payload.begin() + 9), (Bytes{0xC2, 0x5A, 0x4C, 0x00, 0x00, 0x01}));
    EXPECT_EQ(b.payload[9], 0);
    EXPECT_EQ(b.payload[10], 1);
    EXPECT_EQ(stringAt(b.payload, 11, 8), "Zelmor-7");
}

TEST(SimCommands, MonitorDataCarriesTheReadingsAndFollowsTheRelay) {
    Bench b(0x41);
    b.clock.advance(3600);
    Answer a = b.host.call(0x04);
    sim::MonitorReadings const m = b.device.readings();
    ASSERT_EQ(a.payload.size(), 53u);
    ByteReader r(a.payload.data(), a.payload.size());
    EXPECT_EQ(r.read<uint16_t>(), 0x0132);
    EXPECT_EQ(r.read<uint8_t>(), 0x41);
    EXPECT_EQ(r.read<uint32_t>(), static_cast<uint32_t>(kStartTime + 3600));
    EXPECT_EQ(r.read<uint32_t>(), m.status);
    for (float expected : {m.voltage1, m.voltage2, m.current, m.power}) EXPECT_EQ(r.read<float>(), expected);
    EXPECT_EQ(r.read<int64_t>(), m.coulombMeter);
    EXPECT_EQ(r.read<int64_t>(), m.energyMeter);
    EXPECT_EQ(r.read<float>(), m.temperature);
    EXPECT_EQ(r.read<uint8_t>(), 1);  // power status on
    EXPECT_EQ(r.read<uint8_t>(), m.stateOfCharge);
    EXPECT_EQ(r.read<uint16_t>(), m.runtime);
    EXPECT_EQ(r.read<int16_t>(), m.rssi);
    EXPECT_NE(m.coulombMeter, 0);
    EXPECT_LT(m.rssi, -30);
    EXPECT_EQ(m.status & (sim::kStatusRelayOn | sim::kStatusSecondVoltage),
              sim::kStatusRelayOn | sim::kStatusSecondVoltage);

    EXPECT_EQ(b.host.call(0x14, {0}).code, 0);
    EXPECT_EQ(b.host.call(0x14, {2}).code, 2);
    a = b.host.call(0x04);
    EXPECT_EQ(readLe<uint32_t>(a.payload.data() + 7) & sim::kStatusRelayOn, 0u);
    EXPECT_EQ(a.payload[47], 0);  // power status off
    EXPECT_EQ(b.host.call(0x01).payload[77], 0);
}

TEST(SimCommands, CalibrationParameters) {
    Bench b(0x41);
    auto f32 = [](float value) {
        Bytes out;
        ByteWriter(out).write<float>(value);
        return out;
    };
    for (float bad : {0.0f, NAN, INFINITY, -INFINITY, 2000.5f, -2001.0f})
        EXPECT_EQ(b.host.call(0x27, f32(bad)).code, 2) << bad;
    for (float good : {10.0f, -2000.0f, 0.5f}) EXPECT_EQ(b.host.call(0x27, f32(good)).code, 0) << good;
    EXPECT_EQ(b.host.call(0x26).code, 0);
}

TEST(SimCommands, StatisticsResetStartsFromTheCurrentReading) {
    Bench b(0x41);
    b.clock.advance(6 * 3600);
    Answer const before = b.host.call(0x02);
    ASSERT_EQ(before.payload.size(), 39u);
    EXPECT_LT(readLe<float>(before.payload.data() + 7), readLe<float>(before.payload.data() + 11));
    EXPECT_EQ(b.host.call(0x12).code, 0);
    Answer const after = b.host.call(0x02);
    EXPECT_EQ(readLe<float>(after.payload.data() + 7), readLe<float>(after.payload.data() + 11));
    EXPECT_EQ(readLe<float>(after.payload.data() + 31), readLe<float>(after.payload.data() + 35));
    EXPECT_EQ(readLe<uint32_t>(after.payload.data() + 3), 6u * 3600u);
}

TEST(SimCommands, NamesAreBoundedByModel) {
    struct Case {
        uint8_t revision;
        std::string name;
        uint16_t code;
    };
    Case const cases[] = {{0x41, std::string(32, 'n'), 0},
                          {0x41, std::string("a\0b", 3), 2},
                          {0x21, std::string(8, 'x'), 0},
                          {0x21, std::string(9, 'x'), 2}};
    for (Case const& c : cases) {
        Bench b(c.revision);
        std::string const before = b.device.snapshot().name;
        EXPECT_EQ(b.host.call(0x25, Bytes(c.name.begin(), c.name.end())).code, c.code) << c.name;
        EXPECT_EQ(b.device.snapshot().name, c.code == 0 ? c.name : before);
    }
}

TEST(SimCommands, ConfigResetRestoresTheFactoryName) {
    Bench b(0x41);
    EXPECT_EQ(b.host.call(0x25, {'B', 'o', 'w'}).code, 0);
    EXPECT_EQ(stringAt(b.host.call(0x01).payload, 11, 32), "Bow");
    EXPECT_EQ(b.host.call(0x22).code, 0);
    EXPECT_EQ(b.device.snapshot().name, "Zelmor-V");
}

TEST(SimCommands, Schedules) {
    Bench b(0x41);
    TestHost& host = b.host;
    auto record = [](uint8_t fill) { return Bytes(24, fill); };
    EXPECT_TRUE(host.call(0x50).payload.empty());
    EXPECT_EQ(host.call(0x51, concat({record(1), record(2)})).code, 0);
    EXPECT_EQ(host.call(0x52, concat({u32(1), record(7)})).code, 0);
    EXPECT_EQ(host.call(0x52, concat({u32(2), record(7)})).code, 2);
    EXPECT_EQ(host.call(0x50).payload, concat({record(1), record(7)}));
    EXPECT_EQ(host.call(0x53, u32(0)).code, 0);
    EXPECT_EQ(host.call(0x53, u32(1)).code, 2);
    EXPECT_EQ(host.call(0x50).payload, record(7));
    EXPECT_EQ(host.call(0x55).code, 0);
    EXPECT_EQ(b.device.snapshot().committedSchedules.size(), 1u);
    EXPECT_EQ(b.device.snapshot().scheduleCommits, 1u);

    // 32 records at most; clearing leaves the committed ones alone.
    EXPECT_EQ(host.call(0x51, Bytes(31 * 24, 3)).code, 0);
    EXPECT_EQ(host.call(0x51, record(4)).code, 3);
    EXPECT_EQ(host.call(0x50).payload.size(), 32u * 24u);
    EXPECT_EQ(host.call(0x54).code, 0);
    EXPECT_TRUE(host.call(0x50).payload.empty());
    EXPECT_EQ(host.call(0x51, Bytes(33 * 24, 3)).code, 3);
    EXPECT_EQ(b.device.snapshot().committedSchedules.size(), 1u);
}

TEST(SimCommands, WifiScanSendsNotificationsAfterTheAnswer) {
    Bench b(0x41);
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
            auto const rssi = static_cast<int8_t>(p[32]);
            EXPECT_LE(rssi, previous);  // strongest first
            previous = rssi;
            EXPECT_LE(p[33], 4);
            EXPECT_GE(p[34], 1);
            EXPECT_LE(p[34], 13);
            if (stringAt(p, 0, 32) == "HarbourNet") {
                sawHome = true;
                EXPECT_EQ(p[41], 0x03);
            }
        }
        EXPECT_TRUE(sawHome);
    }
}

TEST(SimCommands, WifiNetworks) {
    Bench b(0x41);
    TestHost& host = b.host;
    Answer list = host.call(0x70);
    ASSERT_EQ(list.payload.size(), 35u);
    EXPECT_EQ(stringAt(list.payload, 0, 32), "HarbourNet");
    EXPECT_EQ(list.payload[32], 3);
    EXPECT_EQ(list.payload[33], 1);

    for (int i = 1; i < 8; ++i) EXPECT_EQ(host.call(0x71, networkRecord("net" + std::to_string(i), "pw", 2)).code, 0);
    EXPECT_EQ(host.call(0x71, networkRecord("net9", "pw", 2)).code, 3);
    EXPECT_EQ(host.call(0x71, networkRecord("net3", "other", 3)).code, 0);
    EXPECT_EQ(host.call(0x71, networkRecord("", "pw", 2)).code, 2);
    EXPECT_EQ(host.call(0x71, networkRecord("net10", "pw", 5)).code, 2);
    list = host.call(0x70);
    ASSERT_EQ(list.payload.size(), 8u * 35u);
    EXPECT_EQ(list.payload[3 * 35 + 32], 3);
    EXPECT_EQ(list.payload[3 * 35 + 33], 0);

    EXPECT_EQ(host.call(0x72, {8}).code, 2);
    EXPECT_EQ(host.call(0x72, {0}).code, 0);
    EXPECT_EQ(b.device.snapshot().wifiStatus, sim::WifiStatus::NotConnected);
    Answer const info = host.call(0x01);
    EXPECT_EQ(info.payload[43], 0);
    EXPECT_EQ(stringAt(info.payload, 44, 32), "");
    EXPECT_EQ(readLe<int16_t>(host.call(0x04).payload.data() + 51), sim::kRssiNotAvailable);

    EXPECT_EQ(host.call(0x61, networkRecord("net5", "secret", 4)).code, 0);
    sim::DeviceSnapshot const s = b.device.snapshot();
    EXPECT_EQ(s.wifiStatus, sim::WifiStatus::Connected);
    EXPECT_EQ(s.wifiNetwork, "net5");
    list = host.call(0x70);
    EXPECT_EQ(list.payload[4 * 35 + 33], 1);
    EXPECT_EQ(list.payload[4 * 35 + 32], 4);
}

TEST(SimCommands, DebugArea) {
    Bench b(0x41);
    EXPECT_EQ(b.host.call(0x14, {0}).code, 0);
    Bytes const everything = concat({u32(0), u32(65536)});
    std::string const text = b.device.debugText();
    EXPECT_NE(text.find("power on, firmware 1.32"), std::string::npos);
    EXPECT_NE(text.find("relay off"), std::string::npos);
    struct Case {
        Bytes request;
        std::string expected;
    };
    for (Case const& c : {Case{everything, text}, Case{concat({u32(2), u32(3)}), text.substr(2, 3)},
                          Case{concat({u32(100000), u32(3)}), ""}}) {
        Answer const a = b.host.call(0xDB, c.request);
        EXPECT_EQ(std::string(a.payload.begin(), a.payload.end()), c.expected);
    }
    EXPECT_EQ(b.host.call(0xDE).code, 0);
    EXPECT_TRUE(b.host.call(0xDB, everything).payload.empty());
}

TEST(SimFirmware, ValidImageIsTakenOverWithItsAnswerLayout) {
    Bench b(0x41, 0x0119);
    EXPECT_EQ(b.host.call(0x01).payload.size(), 81u);
    EXPECT_EQ(transfer(b.host, image("ZLMRWIFI", 0x0201, 10000)), 0);
    sim::FirmwareUpdateProgress const p = b.device.firmwareUpdate();
    EXPECT_EQ(p.announcedSize, 10020u);
    EXPECT_EQ(p.bytesReceived, 10020u);
    EXPECT_EQ(p.blocksReceived, 3u);
    EXPECT_TRUE(p.finished);
    EXPECT_FALSE(p.inProgress);
    Answer const info = b.host.call(0x01);
    EXPECT_EQ(readLe<uint16_t>(info.payload.data()), 0x0201);
    EXPECT_EQ(info.payload.size(), 82u);  // the new firmware sends the extra status byte
}

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
    };
    Case const cases[] = {
        {0x41, wifi, 0},      {0x40, ethernet, 3}, {0x10, ethernet, 0},   {0x10, ble, 3},
        {0x21, ble, 0},       {0x31, ble, 0},      {0x31, wifi, 3},       {0x41, badCrc, 3},
        {0x41, badLength, 3}, {0x41, notBcd, 3},   {0x41, headerOnly, 0},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(testing::Message() << "revision " << int(c.revision) << ", case " << (&c - cases));
        Bench b(c.revision);
        EXPECT_EQ(transfer(b.host, c.bytes, 128), c.code);
        EXPECT_EQ(b.device.firmwareUpdate().finished, c.code == 0);
        EXPECT_EQ(b.device.snapshot().firmwareVersion, c.code == 0 ? 0x0300 : 0x0132);
    }
}

TEST(SimFirmware, TransferBookkeeping) {
    Bench b;
    TestHost& host = b.host;
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
    sim::FirmwareUpdateProgress p = b.device.firmwareUpdate();
    EXPECT_EQ(p.bytesReceived, 100u);
    EXPECT_EQ(p.blocksReceived, 2u);
    EXPECT_TRUE(p.inProgress);

    // Finishing early fails and ends the transfer.
    EXPECT_EQ(host.call(0xF0, u32(100)).code, 0);
    EXPECT_EQ(host.call(0xF1, Bytes(valid.begin(), valid.begin() + 50)).code, 0);
    EXPECT_EQ(host.call(0xF2).code, 3);
    p = b.device.firmwareUpdate();
    EXPECT_FALSE(p.inProgress);
    EXPECT_FALSE(p.finished);
    EXPECT_EQ(host.call(0xF1, {1}).code, 3);
}

TEST(SimFirmware, RebootAbandonsTransferAndRestartsUptime) {
    Bench b;
    auto uptime = [&b] {
        Bytes const stats = b.host.call(0x02).payload;
        return stats.size() == 39 ? readLe<uint32_t>(stats.data() + 3) : UINT32_MAX;
    };
    b.clock.advance(500);
    EXPECT_EQ(uptime(), 500u);
    EXPECT_EQ(b.host.call(0xF0, u32(100)).code, 0);
    EXPECT_EQ(b.host.call(0xFB).code, 0);
    EXPECT_FALSE(b.device.firmwareUpdate().inProgress);
    b.clock.advance(7);
    EXPECT_EQ(uptime(), 7u);
}

}  // namespace
