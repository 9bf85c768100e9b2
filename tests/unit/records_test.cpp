#include "records.h"

#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstring>
#include <sstream>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

// Builds payloads by hand, independently of the library's own byte helpers.
class Payload {
public:
    Payload& le(uint64_t value, size_t size) {
        for (size_t i = 0; i < size; ++i) bytes_.push_back(static_cast<uint8_t>(value >> (8 * i)));
        return *this;
    }
    Payload& u8(uint8_t v) { return le(v, 1); }
    Payload& u16(uint16_t v) { return le(v, 2); }
    Payload& u32(uint32_t v) { return le(v, 4); }
    Payload& u64(uint64_t v) { return le(v, 8); }
    Payload& f32(float v) { return le(std::bit_cast<uint32_t>(v), 4); }
    Payload& fill(uint8_t v, size_t size) {
        bytes_.insert(bytes_.end(), size, v);
        return *this;
    }
    Payload& text(std::string_view s, size_t size) {
        bytes_.insert(bytes_.end(), s.begin(), s.end());
        return fill(0, size - s.size());
    }
    Payload& raw(Bytes const& b) {
        bytes_.insert(bytes_.end(), b.begin(), b.end());
        return *this;
    }
    Bytes const& bytes() const { return bytes_; }

private:
    Bytes bytes_;
};

// A payload of `length` bytes that carries `revision` where the revision byte goes.
Bytes withRevision(uint8_t revision, size_t length) {
    Bytes b(length, 0x5A);
    if (length > 2) b[2] = revision;
    return b;
}

std::string fullName(char c) { return std::string(32, c); }

// --- Live data ---------------------------------------------------------------

Bytes const kLanMonitorData = {
    0x05, 0x01,                                      // firmware 0x0105
    0x12,                                            // revision: LAN family
    0x00, 0xF1, 0x53, 0x65,                          // time 1700000000
    0x11, 0x00, 0x00, 0x80,                          // status 0x80000011
    0x00, 0x00, 0x48, 0x41,                          // voltage 1: 12.5
    0x00, 0x00, 0xC0, 0x7F,                          // voltage 2: NaN
    0x00, 0x00, 0x20, 0xC0,                          // current -2.5
    0x00, 0x00, 0xFA, 0xC1,                          // power -31.25
    0xC7, 0xCF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,  // coulomb meter -12345 mAh
    0x87, 0xD6, 0x12, 0x00, 0x00, 0x00, 0x00, 0x00,  // energy meter 1234567 mWh
    0x00, 0x00, 0xAC, 0x41,                          // temperature 21.5
    0x02,                                            // power status
    0x57,                                            // state of charge 87
    0xE0, 0x01,                                      // runtime 480 min
};

TEST(MonitorDataRecordTest, DecodesLanRecordFieldByField) {
    ASSERT_EQ(kLanMonitorData.size(), 51u);
    Zelmor::MonitorData m;
    ASSERT_EQ(decodeMonitorData(kLanMonitorData.data(), kLanMonitorData.size(), m), ResponseCode::Success);
    EXPECT_EQ(std::tie(m.firmwareVersion, m.hardwareRevision, m.time, m.status, m.voltage1, m.current, m.power,
                       m.coulombMeter, m.energyMeter, m.temperature, m.powerStatus, m.stateOfCharge, m.runtime, m.rssi),
              std::make_tuple(0x0105, 0x12, 1700000000u, 0x80000011u, 12.5f, -2.5f, -31.25f, -12345, 1234567, 21.5f, 2,
                              87, 480, -32768));
    EXPECT_TRUE(std::isnan(m.voltage2));
}

TEST(MonitorDataRecordTest, DecodesWifiRecordWithSignalStrength) {
    Bytes payload = kLanMonitorData;
    payload[2] = 0x43;
    payload.push_back(0xC3);  // RSSI -61
    payload.push_back(0xFF);
    Zelmor::MonitorData m;
    ASSERT_EQ(decodeMonitorData(payload.data(), payload.size(), m), ResponseCode::Success);
    EXPECT_EQ(std::tie(m.hardwareRevision, m.temperature, m.runtime, m.rssi), std::make_tuple(0x43, 21.5f, 480, -61));
}

struct LengthCase {
    uint8_t revision;
    size_t length;
    ResponseCode expected;
};

TEST(MonitorDataRecordTest, AcceptsOnlyTheLengthOfItsFamily) {
    constexpr auto ok = ResponseCode::Success;
    constexpr auto bad = ResponseCode::RequestFailed;
    LengthCase const cases[] = {
        {0x12, 0, bad},  {0x12, 1, bad},  {0x12, 2, bad},  {0x12, 3, bad},  {0x12, 50, bad}, {0x12, 51, ok},
        {0x12, 52, bad}, {0x12, 53, bad}, {0x12, 54, bad}, {0x41, 3, bad},  {0x41, 50, bad}, {0x41, 51, bad},
        {0x41, 52, bad}, {0x41, 53, ok},  {0x41, 54, bad}, {0x21, 51, bad}, {0x21, 53, bad}, {0x31, 51, bad},
        {0x31, 53, bad}, {0x00, 51, bad}, {0x50, 53, bad}, {0xF1, 51, bad},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(testing::Message() << "revision " << int(c.revision) << " length " << c.length);
        Bytes const payload = withRevision(c.revision, c.length);
        Zelmor::MonitorData m;
        m.time = 7;
        m.rssi = 3;
        EXPECT_EQ(decodeMonitorData(payload.data(), payload.size(), m), c.expected);
        if (c.expected != ok) {
            EXPECT_EQ(m.time, 0u);
            EXPECT_EQ(m.stateOfCharge, 255);
            EXPECT_EQ(m.runtime, 65535);
            EXPECT_EQ(m.rssi, -32768);
        }
    }
}

// --- Information -------------------------------------------------------------

// Every field on one line, numbers in hex, the address bytes in the order they came.
std::string describe(Zelmor::DeviceInfo const& i) {
    uint8_t ip[4];
    std::memcpy(ip, &i.ipAddress, sizeof ip);
    std::ostringstream out;
    out << std::hex << "'" << i.name << "' fw " << i.firmwareVersion << " rev " << int{i.hardwareRevision} << " serial "
        << i.serial << " wifi " << int{i.wifiStatus} << " '" << i.wifiNetwork << "' lock " << int{i.lockStatus}
        << " extra " << int{i.extraStatus} << " ip";
    for (uint8_t b : ip) out << ' ' << int{b};
    out << " bt";
    for (uint8_t b : i.bluetoothAddress) out << ' ' << int{b};
    return out.str();
}

std::string decoded(Bytes const& payload) {
    Zelmor::DeviceInfo info;
    EXPECT_EQ(decodeDeviceInfo(payload.data(), payload.size(), info), ResponseCode::Success);
    return describe(info);
}

// Firmware version, revision, serial and name: how every network model's record starts.
Payload networkHead(uint16_t firmware, uint8_t revision, uint64_t serial, std::string_view name) {
    return std::move(Payload().u16(firmware).u8(revision).u64(serial).text(name, 32));
}

TEST(DeviceInfoRecordTest, DecodesEveryFamilyInBothForms) {
    Payload wifi = networkHead(0x0120, 0x41, 0x0102030405060708, "Garage");
    wifi.u8(3).text("homenet", 32).u8(1).u8(7).raw({192, 168, 1, 7});
    EXPECT_EQ(decoded(wifi.bytes()),
              "'Garage' fw 120 rev 41 serial 102030405060708 wifi 3 'homenet' lock 1 extra 7 ip c0 a8 1 7 "
              "bt 0 0 0 0 0 0");
    // Before firmware 0x0120 (WiFi) and 0x0100 (LAN) there is no extra status.
    Payload olderWifi = networkHead(0x011F, 0x40, 42, fullName('N'));
    olderWifi.u8(0).text(fullName('W'), 32).u8(2).raw({10, 0, 0, 1});
    EXPECT_EQ(decoded(olderWifi.bytes()), "'" + fullName('N') + "' fw 11f rev 40 serial 2a wifi 0 '" + fullName('W') +
                                              "' lock 2 extra ff ip a 0 0 1 bt 0 0 0 0 0 0");
    Payload lan = networkHead(0x0100, 0x1A, 0xFFEEDDCCBBAA9988, "Boat");
    lan.u8(1).u8(0x80).raw({127, 0, 0, 9});
    EXPECT_EQ(decoded(lan.bytes()),
              "'Boat' fw 100 rev 1a serial ffeeddccbbaa9988 wifi 0 '' lock 1 extra 80 ip 7f 0 0 9 bt 0 0 0 0 0 0");
    Payload olderLan = networkHead(0x00FF, 0x10, 5, "Shed");
    olderLan.u8(0).raw({127, 0, 0, 2});
    EXPECT_EQ(decoded(olderLan.bytes()),
              "'Shed' fw ff rev 10 serial 5 wifi 0 '' lock 0 extra ff ip 7f 0 0 2 bt 0 0 0 0 0 0");
    // Bluetooth models: firmware 0x0240 added the extra status.
    EXPECT_EQ(decoded({0x40, 0x02, 0x23, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x01, 0x09, 'V', 'a', 'n', 0, 0, 0, 0, 0}),
              "'Van' fw 240 rev 23 serial 0 wifi 0 '' lock 1 extra 9 ip 0 0 0 0 bt 11 22 33 44 55 66");
    EXPECT_EQ(
        decoded({0x3F, 0x02, 0x31, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0, 'A', 'B', 'C', 'D', 'E', 'F', 'G', 'H'}),
        "'ABCDEFGH' fw 23f rev 31 serial 0 wifi 0 '' lock 0 extra ff ip 0 0 0 0 bt a1 a2 a3 a4 a5 a6");
}

struct InfoLengthCase {
    uint16_t firmware;
    uint8_t revision;
    size_t length;
    bool accepted;
};

TEST(DeviceInfoRecordTest, LengthFollowsFamilyAndFirmware) {
    InfoLengthCase const cases[] = {
        {0x011F, 0x41, 80, false}, {0x011F, 0x41, 81, true},  {0x011F, 0x41, 82, false}, {0x011F, 0x41, 83, false},
        {0x0120, 0x41, 80, false}, {0x0120, 0x41, 81, false}, {0x0120, 0x41, 82, true},  {0x0120, 0x41, 83, false},
        {0xFFFF, 0x4F, 82, true},  {0x00FF, 0x12, 47, false}, {0x00FF, 0x12, 48, true},  {0x00FF, 0x12, 49, false},
        {0x00FF, 0x12, 50, false}, {0x0100, 0x12, 47, false}, {0x0100, 0x12, 48, false}, {0x0100, 0x12, 49, true},
        {0x0100, 0x12, 50, false}, {0x023F, 0x21, 17, false}, {0x023F, 0x21, 18, true},  {0x023F, 0x21, 19, false},
        {0x023F, 0x21, 20, false}, {0x0240, 0x31, 17, false}, {0x0240, 0x31, 18, false}, {0x0240, 0x31, 19, true},
        {0x0240, 0x31, 20, false}, {0x0240, 0x00, 19, true},  {0x0240, 0x70, 19, true},  {0x0120, 0x12, 82, false},
        {0x0100, 0x41, 49, false}, {0x0000, 0x41, 48, false}, {0x0240, 0x23, 0, false},  {0x0240, 0x23, 1, false},
        {0x0240, 0x23, 2, false},  // shorter than the header
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(testing::Message() << "firmware " << c.firmware << " revision " << int(c.revision) << " length "
                                        << c.length);
        Bytes payload(std::max<size_t>(c.length, 3), 'x');
        payload[0] = static_cast<uint8_t>(c.firmware);
        payload[1] = static_cast<uint8_t>(c.firmware >> 8);
        payload[2] = c.revision;
        Zelmor::DeviceInfo info;
        info.name = "stale";
        auto const code = decodeDeviceInfo(payload.data(), c.length, info);
        EXPECT_EQ(code, c.accepted ? ResponseCode::Success : ResponseCode::RequestFailed);
        if (!c.accepted) {
            EXPECT_EQ(describe(info), describe(Zelmor::DeviceInfo{}));
        }
    }
}

// --- Statistics --------------------------------------------------------------

TEST(StatisticsRecordTest, DecodesMonitorStatistics) {
    // Voltage 1 and 2 (min, max), peak discharge and charge current, temperature (min, max).
    std::array<float, 8> const values = {11.5f, 14.25f, 0.5f, 13.75f, -120.5f, 45.0f, -8.25f, 39.0f};
    Payload payload;
    payload.fill(0xEE, 3).u32(86400 * 3 + 5);
    for (float v : values) payload.f32(v);
    ASSERT_EQ(payload.bytes().size(), 39u);
    Zelmor::MonitorStatistics s;
    ASSERT_EQ(decodeMonitorStatistics(payload.bytes().data(), 39, s), ResponseCode::Success);
    EXPECT_EQ(s.timeSincePowerOn, 86400u * 3 + 5);
    EXPECT_EQ((std::array{s.minVoltage1, s.maxVoltage1, s.minVoltage2, s.maxVoltage2, s.peakDischargeCurrent,
                          s.peakChargeCurrent, s.minTemperature, s.maxTemperature}),
              values);

    for (size_t length : {0, 3, 38, 40}) {
        Bytes const wrong(length, 0x11);
        Zelmor::MonitorStatistics t;
        t.minVoltage1 = 3;
        EXPECT_EQ(decodeMonitorStatistics(wrong.data(), wrong.size(), t), ResponseCode::RequestFailed) << length;
        EXPECT_EQ(t.minVoltage1, 0.0f);
    }
}

TEST(StatisticsRecordTest, DecodesFuelgaugeStatisticsAtTheirOffsets) {
    Bytes const payload = Payload()
                              .fill(0xEE, 3)
                              .u32(0xFFFFFFFF)          // 0 time since full charge: unknown
                              .f32(100.5f)              // 4 full charge capacity
                              .u64(0x0000000100000002)  // 8 total discharged mAh
                              .u64(0x0000000300000004)  // 16 total discharged mWh
                              .u64(0x0000000500000006)  // 24 total charged mAh
                              .u64(0x8000000700000008)  // 32 total charged mWh
                              .f32(10.5f)               // 40 min battery voltage
                              .f32(14.5f)               // 44 max battery voltage
                              .f32(150.25f)             // 48 max discharge current
                              .f32(60.75f)              // 52 max charge current
                              .f32(12.125f)             // 56 last discharge depth
                              .f32(80.0f)               // 60 deepest discharge
                              .u32(321)                 // 64 full discharge cycles
                              .u32(0xDEADBEEF)          // 68 reserved
                              .bytes();
    ASSERT_EQ(payload.size(), 75u);
    Zelmor::FuelgaugeStatistics s;
    ASSERT_EQ(decodeFuelgaugeStatistics(payload.data(), payload.size(), s), ResponseCode::Success);
    EXPECT_EQ(std::tie(s.timeSinceFullCharge, s.totalDischargedCapacity, s.totalDischargedEnergy,
                       s.totalChargedCapacity, s.totalChargedEnergy, s.fullDischargeCycles),
              std::make_tuple(Zelmor::FuelgaugeStatistics::kTimeUnknown, 0x0000000100000002u, 0x0000000300000004u,
                              0x0000000500000006u, 0x8000000700000008u, 321u));
    EXPECT_EQ((std::array{s.fullChargeCapacity, s.minBatteryVoltage, s.maxBatteryVoltage, s.maxDischargeCurrent,
                          s.maxChargeCurrent, s.lastDischargeDepth, s.deepestDischarge}),
              (std::array{100.5f, 10.5f, 14.5f, 150.25f, 60.75f, 12.125f, 80.0f}));

    for (size_t length : {0, 3, 39, 74, 76}) {
        Bytes const wrong(length, 0x11);
        Zelmor::FuelgaugeStatistics t;
        t.timeSinceFullCharge = 5;
        t.fullDischargeCycles = 5;
        EXPECT_EQ(decodeFuelgaugeStatistics(wrong.data(), wrong.size(), t), ResponseCode::RequestFailed) << length;
        EXPECT_EQ(t.timeSinceFullCharge, Zelmor::FuelgaugeStatistics::kTimeUnknown);
        EXPECT_EQ(t.fullDischargeCycles, 0u);
    }
}

// --- Configuration and keys --------------------------------------------------

Bytes counting(size_t length, uint8_t first = 0) {
    Bytes b(length);
    for (size_t i = 0; i < length; ++i) b[i] = static_cast<uint8_t>(first + i);
    return b;
}

TEST(KeyRecordTest, ConfigAndAuthKeyAreTakenWholeAtExactlyTheirSize) {
    for (size_t length : {0, 31, 32, 33, 103, 104, 105}) {
        Bytes const payload = counting(length, 1);
        ZelmorConfig config;
        config.image()[0] = 0x77;
        EXPECT_EQ(decodeConfig(payload.data(), payload.size(), config),
                  length == 104 ? ResponseCode::Success : ResponseCode::InvalidDeviceResponse)
            << length;
        EXPECT_EQ(Bytes(config.image().begin(), config.image().end()), length == 104 ? payload : Bytes(104, 0));
        Zelmor::AuthKey key;
        key.fill(0x55);
        EXPECT_EQ(decodeAuthKey(payload.data(), payload.size(), key),
                  length == 32 ? ResponseCode::Success : ResponseCode::InvalidDeviceResponse)
            << length;
        EXPECT_EQ(Bytes(key.begin(), key.end()), length == 32 ? payload : Bytes(32, 0));
    }
}

TEST(KeyRecordTest, AccessKeyTakesIdentifierAndKeyFromTheirOffsets) {
    Bytes const payload = counting(89);  // byte i holds i
    Zelmor::WifiAccessKey key;
    ASSERT_EQ(decodeAccessKey(payload.data(), payload.size(), key), ResponseCode::Success);
    EXPECT_EQ(Bytes(key.keyId.begin(), key.keyId.end()), counting(16, 41));
    EXPECT_EQ(Bytes(key.key.begin(), key.key.end()), counting(32, 57));

    for (size_t length : {0, 88, 90}) {
        Bytes const wrong = counting(length);
        Zelmor::WifiAccessKey stale = key;
        EXPECT_EQ(decodeAccessKey(wrong.data(), wrong.size(), stale), ResponseCode::InvalidDeviceResponse) << length;
        EXPECT_EQ(stale, Zelmor::WifiAccessKey{});
    }
}

// --- Lists -------------------------------------------------------------------

TEST(ListRecordTest, SchedulesAreCopiedWholeAndRemainderIgnored) {
    Bytes const payload = counting(24 * 2 + 23, 3);
    std::vector<ZelmorSchedule> schedules;
    decodeSchedules(payload.data(), payload.size(), schedules);
    ASSERT_EQ(schedules.size(), 2u);
    EXPECT_EQ(Bytes(schedules[0].bytes().begin(), schedules[0].bytes().end()), counting(24, 3));
    EXPECT_EQ(Bytes(schedules[1].bytes().begin(), schedules[1].bytes().end()), counting(24, 27));

    std::vector<ZelmorSchedule> none;
    decodeSchedules(payload.data(), 23, none);
    EXPECT_TRUE(none.empty());
}

TEST(ListRecordTest, WifiNetworkListTakesTheNameOfEachEntry) {
    Bytes const payload =
        Payload().text("home", 32).raw({0xC4, 0x03, 0x06}).text(fullName('Z'), 32).raw({0x01, 0x02, 0x03}).bytes();
    ASSERT_EQ(payload.size(), 70u);
    std::vector<Zelmor::WifiNetwork> networks;
    decodeWifiNetworkList(payload.data(), payload.size(), networks);
    ASSERT_EQ(networks.size(), 2u);
    EXPECT_EQ(networks[0], (Zelmor::WifiNetwork{"home", "", 0}));
    EXPECT_EQ(networks[1], (Zelmor::WifiNetwork{fullName('Z'), "", 0}));

    std::vector<Zelmor::WifiNetwork> fromPartial;
    decodeWifiNetworkList(payload.data(), 69, fromPartial);
    EXPECT_EQ(fromPartial.size(), 1u);

    std::vector<Zelmor::WifiNetwork> none;
    decodeWifiNetworkList(payload.data(), 34, none);
    EXPECT_TRUE(none.empty());
    decodeWifiNetworkList(payload.data(), 0, none);
    EXPECT_TRUE(none.empty());
}

TEST(ListRecordTest, FileListPageAppendsDescriptors) {
    Bytes const page = {
        0x01, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x00,  // file 1, 4096 bytes
        0xFE, 0xFF, 0xFF, 0xFF, 0x12, 0x00, 0x00, 0x80,  // file 0xFFFFFFFE, 0x80000012 bytes
        0xAA, 0xBB, 0xCC, 0xDD,                          // partial descriptor
    };
    std::vector<Zelmor::LogFileDescriptor> files{{7, 7}};
    decodeFileListPage(page.data(), page.size(), files);
    ASSERT_EQ(files.size(), 3u);
    EXPECT_EQ(files[0], (Zelmor::LogFileDescriptor{7, 7}));
    EXPECT_EQ(files[1], (Zelmor::LogFileDescriptor{1, 4096}));
    EXPECT_EQ(files[2], (Zelmor::LogFileDescriptor{0xFFFFFFFE, 0x80000012}));

    decodeFileListPage(page.data(), 7, files);
    EXPECT_EQ(files.size(), 3u);
}

// --- Network settings --------------------------------------------------------

TEST(WifiNetworkRecordTest, EncodesNamePasswordAndSecurityCuttingOverlongFields) {
    EXPECT_EQ(encodeWifiNetwork({"home", "secret", 3}),
              Payload().text("home", 32).text("secret", 64).u8(3).fill(0, 3).bytes());
    EXPECT_EQ(encodeWifiNetwork({fullName('s') + "tail", std::string(64, 'p') + "tail", 0xFF}),
              Payload().fill('s', 32).fill('p', 64).u8(0xFF).fill(0, 3).bytes());
    EXPECT_EQ(encodeWifiNetwork({}), Bytes(100, 0));
}

}  // namespace
