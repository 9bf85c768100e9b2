// Answers of the device commands: layouts by model and firmware, settings,
// schedules, WiFi and access keys.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

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

TEST(SimCommands, InfoLengthByModelAndFirmware) {
    struct Case {
        uint8_t revision;
        uint16_t firmware;
        size_t length;
    };
    Case const cases[] = {{0x41, 0x0119, 81}, {0x41, 0x0120, 82}, {0x40, 0x0200, 82}, {0x10, 0x0099, 48},
                          {0x10, 0x0100, 49}, {0x21, 0x0239, 18}, {0x21, 0x0240, 19}, {0x31, 0x0300, 19}};
    for (Case const& c : cases) {
        ManualClock clock;
        sim::SimulatedDevice device(configFor(c.revision, clock, c.firmware));
        TestHost host(device);
        Answer const a = host.call(0x01);
        EXPECT_EQ(a.code, 0);
        ASSERT_EQ(a.payload.size(), c.length) << int(c.revision) << " " << c.firmware;
        EXPECT_EQ(readLe<uint16_t>(a.payload.data()), c.firmware);
        EXPECT_EQ(a.payload[2], c.revision);
    }
}

TEST(SimCommands, WifiInfoFields) {
    ManualClock clock;
    sim::SimulatedDeviceConfig config = configFor(0x41, clock);
    config.serial = 0x0102030405060708;
    config.name = "Saloon";
    config.ipAddress = {127, 0, 0, 9};
    sim::SimulatedDevice device(config);
    TestHost host(device);
    Answer const a = host.call(0x01);
    ASSERT_EQ(a.payload.size(), 82u);
    EXPECT_EQ(readLe<uint64_t>(a.payload.data() + 3), 0x0102030405060708u);
    EXPECT_EQ(stringAt(a.payload, 11, 32), "Saloon");
    EXPECT_EQ(a.payload[43], 2);  // connected
    EXPECT_EQ(stringAt(a.payload, 44, 32), "HarbourNet");
    EXPECT_EQ(a.payload[76], 0);  // lock status
    EXPECT_EQ(a.payload[77], 1);  // relay on
    EXPECT_EQ(Bytes(a.payload.begin() + 78, a.payload.end()), (Bytes{127, 0, 0, 9}));

    EXPECT_EQ(host.call(0x14, {0}).code, 0);
    EXPECT_EQ(host.call(0x01).payload[77], 0);
}

TEST(SimCommands, BluetoothInfoFields) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x31, clock, 0x0240));
    TestHost host(device);
    Answer const a = host.call(0x01);
    ASSERT_EQ(a.payload.size(), 19u);
    EXPECT_EQ(Bytes(a.payload.begin() + 3, a.payload.begin() + 9), (Bytes{0xC2, 0x5A, 0x4C, 0x00, 0x00, 0x01}));
    EXPECT_EQ(a.payload[9], 0);
    EXPECT_EQ(a.payload[10], 1);
    EXPECT_EQ(stringAt(a.payload, 11, 8), "Zelmor-7");
}

TEST(SimCommands, RecordLengths) {
    struct Case {
        uint8_t revision;
        uint16_t code;
        size_t length;
    };
    Case const cases[] = {{0x41, 0x02, 39}, {0x41, 0x03, 75}, {0x41, 0x04, 53}, {0x40, 0x04, 53},
                          {0x10, 0x04, 51}, {0x21, 0x04, 51}, {0x31, 0x04, 51}, {0x10, 0x62, 89},
                          {0x41, 0x62, 89}, {0x31, 0x02, 39}, {0x21, 0x03, 75}, {0x41, 0x20, 104}};
    for (Case const& c : cases) {
        ManualClock clock;
        sim::SimulatedDevice device(configFor(c.revision, clock));
        TestHost host(device);
        Answer const a = host.call(c.code);
        EXPECT_EQ(a.code, 0);
        EXPECT_EQ(a.payload.size(), c.length) << int(c.revision) << " " << c.code;
    }
}

TEST(SimCommands, CommandsUnknownToTheModel) {
    struct Case {
        uint8_t revision;
        uint16_t code;
        size_t length;
    };
    Case const cases[] = {{0x10, 0x60, 0}, {0x10, 0x61, 100}, {0x10, 0x70, 0}, {0x10, 0x71, 100},
                          {0x10, 0x72, 1}, {0x21, 0x62, 0},   {0x31, 0x63, 0}, {0x21, 0x60, 0}};
    for (Case const& c : cases) {
        ManualClock clock;
        sim::SimulatedDevice device(configFor(c.revision, clock));
        TestHost host(device);
        EXPECT_EQ(host.call(c.code, Bytes(c.length, 0)).code, 1) << int(c.revision) << " " << c.code;
    }
}

TEST(SimCommands, MonitorDataFields) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    TestHost host(device);
    Answer a = host.call(0x04);
    ASSERT_EQ(a.payload.size(), 53u);
    ByteReader r(a.payload.data(), a.payload.size());
    EXPECT_EQ(r.read<uint16_t>(), 0x0132);
    EXPECT_EQ(r.read<uint8_t>(), 0x41);
    EXPECT_EQ(r.read<uint32_t>(), static_cast<uint32_t>(kStartTime));
    uint32_t const status = r.read<uint32_t>();
    EXPECT_EQ(status & (sim::kStatusRelayOn | sim::kStatusSecondVoltage),
              sim::kStatusRelayOn | sim::kStatusSecondVoltage);
    float const v1 = r.read<float>();
    float const v2 = r.read<float>();
    float const current = r.read<float>();
    float const power = r.read<float>();
    EXPECT_GT(v1, 10.5f);
    EXPECT_LT(v1, 14.8f);
    EXPECT_GT(v2, 12.0f);
    EXPECT_NEAR(power, v1 * current, 1e-3);
    r.skip(16);
    float const temperature = r.read<float>();
    EXPECT_GT(temperature, 10.0f);
    EXPECT_EQ(r.read<uint8_t>(), 1);  // power status on
    EXPECT_LE(r.read<uint8_t>(), 100);
    r.skip(2);
    EXPECT_LT(r.read<int16_t>(), -30);

    EXPECT_EQ(host.call(0x14, {0}).code, 0);
    EXPECT_EQ(host.call(0x14, {2}).code, 2);
    a = host.call(0x04);
    EXPECT_EQ(readLe<uint32_t>(a.payload.data() + 7) & sim::kStatusRelayOn, 0u);
    EXPECT_EQ(a.payload[47], 0);  // power status off
}

TEST(SimCommands, SetTimeMovesTheDeviceClock) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x10, clock));
    TestHost host(device);
    EXPECT_EQ(host.call(0x28, u32(1'800'000'000)).code, 0);
    clock.advance(30);
    Answer const a = host.call(0x04);
    EXPECT_EQ(readLe<uint32_t>(a.payload.data() + 3), 1'800'000'030u);
    EXPECT_EQ(device.snapshot().deviceTime, 1'800'000'030u);
}

TEST(SimCommands, CalibrationParameters) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    TestHost host(device);
    auto f32 = [](float value) {
        Bytes out;
        ByteWriter(out).write<float>(value);
        return out;
    };
    for (float bad : {0.0f, NAN, INFINITY, -INFINITY, 2000.5f, -2001.0f})
        EXPECT_EQ(host.call(0x27, f32(bad)).code, 2) << bad;
    for (float good : {10.0f, -2000.0f, 0.5f}) EXPECT_EQ(host.call(0x27, f32(good)).code, 0) << good;
    EXPECT_EQ(host.call(0x26).code, 0);
}

TEST(SimCommands, StatisticsResetStartsFromTheCurrentReading) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    TestHost host(device);
    clock.advance(6 * 3600);
    Answer before = host.call(0x02);
    ASSERT_EQ(before.payload.size(), 39u);
    EXPECT_LT(readLe<float>(before.payload.data() + 7), readLe<float>(before.payload.data() + 11));
    EXPECT_EQ(host.call(0x12).code, 0);
    Answer const after = host.call(0x02);
    EXPECT_EQ(readLe<float>(after.payload.data() + 7), readLe<float>(after.payload.data() + 11));
    EXPECT_EQ(readLe<float>(after.payload.data() + 31), readLe<float>(after.payload.data() + 35));
    EXPECT_EQ(readLe<uint32_t>(after.payload.data() + 3), 6u * 3600u);
}

TEST(SimCommands, ConfigAndName) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    TestHost host(device);
    Bytes image(104);
    for (size_t i = 0; i < image.size(); ++i) image[i] = static_cast<uint8_t>(255 - i);
    EXPECT_EQ(host.call(0x21, image).code, 0);
    EXPECT_EQ(host.call(0x20).payload, image);

    std::string const longest(32, 'n');
    EXPECT_EQ(host.call(0x25, Bytes(longest.begin(), longest.end())).code, 0);
    EXPECT_EQ(stringAt(host.call(0x01).payload, 11, 32), longest);
    EXPECT_EQ(host.call(0x25, {'a', 0, 'b'}).code, 2);
    EXPECT_EQ(host.call(0x25, {'B', 'o', 'w'}).code, 0);
    EXPECT_EQ(device.snapshot().name, "Bow");

    EXPECT_EQ(host.call(0x22).code, 0);
    sim::ConfigImage const factory = sim::defaultConfigImage();
    EXPECT_EQ(host.call(0x20).payload, Bytes(factory.begin(), factory.end()));
    EXPECT_EQ(device.snapshot().name, "Zelmor-V");
}

TEST(SimCommands, BluetoothNamesAreShort) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x21, clock));
    TestHost host(device);
    EXPECT_EQ(host.call(0x25, Bytes(8, 'x')).code, 0);
    EXPECT_EQ(host.call(0x25, Bytes(9, 'x')).code, 2);
    EXPECT_EQ(device.snapshot().name, "xxxxxxxx");
}

TEST(SimCommands, Schedules) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    TestHost host(device);
    auto record = [](uint8_t fill) { return Bytes(24, fill); };
    EXPECT_TRUE(host.call(0x50).payload.empty());
    EXPECT_EQ(host.call(0x51, concat({record(1), record(2)})).code, 0);
    EXPECT_EQ(host.call(0x50).payload, concat({record(1), record(2)}));
    EXPECT_EQ(host.call(0x52, concat({u32(1), record(7)})).code, 0);
    EXPECT_EQ(host.call(0x52, concat({u32(2), record(7)})).code, 2);
    EXPECT_EQ(host.call(0x50).payload, concat({record(1), record(7)}));
    EXPECT_EQ(host.call(0x53, u32(0)).code, 0);
    EXPECT_EQ(host.call(0x53, u32(1)).code, 2);
    EXPECT_EQ(host.call(0x50).payload, record(7));
    EXPECT_EQ(host.call(0x55).code, 0);
    EXPECT_EQ(device.snapshot().committedSchedules.size(), 1u);
    EXPECT_EQ(device.snapshot().scheduleCommits, 1u);

    EXPECT_EQ(host.call(0x51, Bytes(31 * 24, 3)).code, 0);
    EXPECT_EQ(host.call(0x51, record(4)).code, 3);
    EXPECT_EQ(host.call(0x50).payload.size(), 32u * 24u);
    EXPECT_EQ(host.call(0x54).code, 0);
    EXPECT_TRUE(host.call(0x50).payload.empty());
    EXPECT_EQ(host.call(0x51, Bytes(33 * 24, 3)).code, 3);
    EXPECT_EQ(device.snapshot().committedSchedules.size(), 1u);
}

TEST(SimCommands, WifiScanSendsNotificationsAfterTheAnswer) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    TestHost host(device);
    for (int round = 0; round < 5; ++round) {
        auto const frames = host.exchange(0x60);
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
            EXPECT_LE(rssi, previous);
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
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    TestHost host(device);
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
    EXPECT_EQ(device.snapshot().wifiStatus, sim::WifiStatus::NotConnected);
    Answer const info = host.call(0x01);
    EXPECT_EQ(info.payload[43], 0);
    EXPECT_EQ(stringAt(info.payload, 44, 32), "");
    EXPECT_EQ(readLe<int16_t>(host.call(0x04).payload.data() + 51), sim::kRssiNotAvailable);

    EXPECT_EQ(host.call(0x61, networkRecord("net5", "secret", 4)).code, 0);
    sim::DeviceSnapshot const s = device.snapshot();
    EXPECT_EQ(s.wifiStatus, sim::WifiStatus::Connected);
    EXPECT_EQ(s.wifiNetwork, "net5");
    list = host.call(0x70);
    EXPECT_EQ(list.payload[4 * 35 + 33], 1);
    EXPECT_EQ(list.payload[4 * 35 + 32], 4);
}

TEST(SimCommands, AccessKeysRecord) {
    ManualClock clock;
    sim::SimulatedDeviceConfig config = configFor(0x41, clock);
    config.serial = 77;
    config.name = "Galley";
    sim::SimulatedDevice device(config);
    TestHost host(device);
    Answer const a = host.call(0x62);
    ASSERT_EQ(a.payload.size(), 89u);
    EXPECT_EQ(a.payload[0], 1);
    EXPECT_EQ(readLe<uint64_t>(a.payload.data() + 1), 77u);
    EXPECT_EQ(stringAt(a.payload, 9, 32), "Galley");
    Zelmor::WifiAccessKey const key = device.accessKey();
    EXPECT_EQ(Bytes(a.payload.begin() + 41, a.payload.begin() + 57), Bytes(key.keyId.begin(), key.keyId.end()));
    EXPECT_EQ(Bytes(a.payload.begin() + 57, a.payload.end()), Bytes(key.key.begin(), key.key.end()));
}

TEST(SimCommands, DebugArea) {
    ManualClock clock;
    sim::SimulatedDevice device(configFor(0x41, clock));
    TestHost host(device);
    EXPECT_EQ(host.call(0x14, {0}).code, 0);
    Bytes request = concat({u32(0), u32(65536)});
    Answer a = host.call(0xDB, request);
    std::string const text(a.payload.begin(), a.payload.end());
    EXPECT_NE(text.find("power on, firmware 1.32"), std::string::npos);
    EXPECT_NE(text.find("relay off"), std::string::npos);
    EXPECT_EQ(text, device.debugText());
    a = host.call(0xDB, concat({u32(2), u32(3)}));
    EXPECT_EQ(std::string(a.payload.begin(), a.payload.end()), text.substr(2, 3));
    EXPECT_TRUE(host.call(0xDB, concat({u32(100000), u32(3)})).payload.empty());
    EXPECT_EQ(host.call(0xDE).code, 0);
    EXPECT_TRUE(host.call(0xDB, request).payload.empty());
}

}  // namespace
