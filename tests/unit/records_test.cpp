// The wire records: golden records of the families the simulated device does
// not stand for in engine_device_test, and the exact lengths each decoder
// takes, with the code it refuses the others with; and what the answer's
// response code and lock status byte mean.
#include "records.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <sstream>
#include <string>

#include "byte_io.h"
#include "lan_announcement.h"
#include "lock_status.h"
#include "response_code.h"
#include "test_bytes.h"
#include "zelmor_schedule.h"

namespace {

using Bytes = std::vector<uint8_t>;

// `text` zero-padded to `size` bytes, in hex.
std::string text(std::string const& s, size_t size) {
    Bytes bytes(s.begin(), s.end());
    bytes.resize(size);
    return hex(bytes);
}

TEST(MonitorDataRecord, GoldenLanRecord) {
    Bytes const payload = fromHex(
        "05 01 12 00 f1 53 65 11 00 00 80 "                 // firmware, revision, time, status
        "00 00 48 41 00 00 c0 7f 00 00 20 c0 00 00 fa c1 "  // voltages 12.5 and NaN, current, power
        "c7 cf ff ff ff ff ff ff 87 d6 12 00 00 00 00 00 "  // coulomb meter (mAh), energy meter (mWh)
        "00 00 ac 41 02 57 e0 01");                         // temperature, power status, charge, runtime
    Zelmor::MonitorData m;
    ASSERT_EQ(decodeMonitorData(payload.data(), payload.size(), m), ResponseCode::Success);
    EXPECT_EQ(std::tie(m.firmwareVersion, m.hardwareRevision, m.time, m.status, m.voltage1, m.current, m.power,
                       m.coulombMeter, m.energyMeter, m.temperature, m.powerStatus, m.stateOfCharge, m.runtime, m.rssi),
              std::make_tuple(0x0105, 0x12, 1700000000u, 0x80000011u, 12.5f, -2.5f, -31.25f, -12345, 1234567, 21.5f, 2,
                              87, 480, -32768));
    EXPECT_TRUE(std::isnan(m.voltage2));
}

TEST(MonitorDataRecord, AcceptsOnlyTheLengthOfItsFamily) {
    struct Case {
        uint8_t revision;
        size_t length;
        bool accepted;
    } const cases[] = {
        {0x12, 2, false},  {0x12, 3, false},  {0x12, 50, false}, {0x12, 51, true},  {0x12, 52, false},
        {0x12, 53, false}, {0x41, 51, false}, {0x41, 52, false}, {0x41, 53, true},  {0x41, 54, false},
        {0x21, 51, false}, {0x21, 53, false}, {0x31, 51, false}, {0x31, 53, false}, {0x00, 51, false},
        {0x50, 53, false}, {0xF1, 51, false},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(testing::Message() << "revision " << int{c.revision} << " length " << c.length);
        Bytes payload(c.length, 0x5A);
        if (c.length > 2) payload[2] = c.revision;
        Zelmor::MonitorData m;
        EXPECT_EQ(decodeMonitorData(payload.data(), payload.size(), m),
                  c.accepted ? ResponseCode::Success : ResponseCode::RequestFailed);
    }
}

// Every field on one line, numbers in hex, the address bytes in the order they came.
std::string describe(Zelmor::DeviceInfo const& i) {
    uint8_t ip[4];
    std::memcpy(ip, &i.ipAddress, sizeof ip);
    std::ostringstream out;
    out << std::hex << "'" << i.name << "' fw " << i.firmwareVersion << " rev " << int{i.hardwareRevision} << " serial "
        << i.serial << " wifi " << int{i.wifiStatus} << " '" << i.wifiNetwork << "' lock " << int{i.lockStatus}
        << " extra " << int{i.extraStatus} << " ip " << hex(ip, 4) << " bt " << hex(i.bluetoothAddress);
    return out.str();
}

// Each family before and after the firmware that added the extra status byte.
TEST(DeviceInfoRecord, GoldenRecordsOfEveryFamilyInBothForms) {
    std::string const name = std::string(32, 'N');
    std::string const network = std::string(32, 'W');
    struct Case {
        std::string payload;
        std::string decoded;
    } const cases[] = {
        {"20 01 41 08 07 06 05 04 03 02 01 " + text("Garage", 32) + " 03 " + text("homenet", 32) + " 01 07 c0 a8 01 07",
         "'Garage' fw 120 rev 41 serial 102030405060708 wifi 3 'homenet' lock 1 extra 7 ip c0 a8 01 07 "
         "bt 00 00 00 00 00 00"},
        {"1f 01 40 2a 00 00 00 00 00 00 00 " + text(name, 32) + " 00 " + text(network, 32) + " 02 0a 00 00 01",
         "'" + name + "' fw 11f rev 40 serial 2a wifi 0 '" + network +
             "' lock 2 extra ff ip 0a 00 00 01 bt 00 00 00 00 00 00"},
        {"00 01 1a 88 99 aa bb cc dd ee ff " + text("Boat", 32) + " 01 80 7f 00 00 09",
         "'Boat' fw 100 rev 1a serial ffeeddccbbaa9988 wifi 0 '' lock 1 extra 80 ip 7f 00 00 09 bt 00 00 00 00 00 00"},
        {"40 02 23 11 22 33 44 55 66 01 09 " + text("Van", 8),
         "'Van' fw 240 rev 23 serial 0 wifi 0 '' lock 1 extra 9 ip 00 00 00 00 bt 11 22 33 44 55 66"},
        {"3f 02 31 a1 a2 a3 a4 a5 a6 00 " + text("ABCDEFGH", 8),
         "'ABCDEFGH' fw 23f rev 31 serial 0 wifi 0 '' lock 0 extra ff ip 00 00 00 00 bt a1 a2 a3 a4 a5 a6"},
    };
    for (auto const& c : cases) {
        Bytes const payload = fromHex(c.payload);
        Zelmor::DeviceInfo info;
        EXPECT_EQ(decodeDeviceInfo(payload.data(), payload.size(), info), ResponseCode::Success);
        EXPECT_EQ(describe(info), c.decoded);
    }
}

TEST(DeviceInfoRecord, LengthFollowsFamilyAndFirmware) {
    struct Case {
        uint16_t firmware;
        uint8_t revision;
        size_t accepted;  // the one length taken; 80 to 83, 47 to 50 or 17 to 20 are tried
    } const cases[] = {
        {0x011F, 0x41, 81}, {0x0120, 0x41, 82}, {0xFFFF, 0x4F, 82}, {0x00FF, 0x12, 48}, {0x0100, 0x12, 49},
        {0x023F, 0x21, 18}, {0x0240, 0x31, 19}, {0x0240, 0x00, 19}, {0x0240, 0x70, 19},
    };
    for (auto const& c : cases) {
        size_t const first = c.accepted < 30 ? 17 : c.accepted < 60 ? 47 : 80;
        for (size_t length = first; length <= first + 3; ++length) {
            SCOPED_TRACE(testing::Message() << std::hex << c.firmware << " " << int{c.revision} << " " << length);
            Bytes payload(length, 'x');
            writeLe<uint16_t>(payload.data(), c.firmware);
            payload[2] = c.revision;
            Zelmor::DeviceInfo info;
            EXPECT_EQ(decodeDeviceInfo(payload.data(), length, info),
                      length == c.accepted ? ResponseCode::Success : ResponseCode::RequestFailed);
        }
    }
}

// The three bytes before the fields are skipped.
TEST(Records, GoldenStatistics) {
    Bytes const monitor = fromHex(
        "ee ee ee 85 f4 03 00 "                              // time since power on: 3 days and 5 s
        "00 00 38 41 00 00 64 41 00 00 00 3f 00 00 5c 41 "   // voltage 1 and 2, each minimum and maximum
        "00 00 f1 c2 00 00 34 42 00 00 04 c1 00 00 1c 42");  // peak currents, temperature range
    Zelmor::MonitorStatistics m;
    ASSERT_EQ(decodeMonitorStatistics(monitor.data(), monitor.size(), m), ResponseCode::Success);
    EXPECT_EQ(std::tie(m.timeSincePowerOn, m.minVoltage1, m.maxVoltage1, m.minVoltage2, m.maxVoltage2,
                       m.peakDischargeCurrent, m.peakChargeCurrent, m.minTemperature, m.maxTemperature),
              std::make_tuple(259205u, 11.5f, 14.25f, 0.5f, 13.75f, -120.5f, 45.0f, -8.25f, 39.0f));
    Bytes const fuelgauge = fromHex(
        "ee ee ee ff ff ff ff 00 00 c9 42 "                  // time since full charge (unknown), capacity
        "02 00 00 00 01 00 00 00 04 00 00 00 03 00 00 00 "   // discharged mAh and mWh
        "06 00 00 00 05 00 00 00 08 00 00 00 07 00 00 80 "   // charged mAh and mWh
        "00 00 28 41 00 00 68 41 00 40 16 43 00 00 73 42 "   // battery voltage range, peak currents
        "00 00 42 41 00 00 a0 42 41 01 00 00 ef be ad de");  // discharge depths, cycles, reserved
    Zelmor::FuelgaugeStatistics f;
    ASSERT_EQ(decodeFuelgaugeStatistics(fuelgauge.data(), fuelgauge.size(), f), ResponseCode::Success);
    EXPECT_EQ(
        std::tie(f.timeSinceFullCharge, f.fullChargeCapacity, f.totalDischargedCapacity, f.totalDischargedEnergy,
                 f.totalChargedCapacity, f.totalChargedEnergy, f.minBatteryVoltage, f.maxBatteryVoltage,
                 f.maxDischargeCurrent, f.maxChargeCurrent, f.lastDischargeDepth, f.deepestDischarge,
                 f.fullDischargeCycles),
        std::make_tuple(Zelmor::FuelgaugeStatistics::kTimeUnknown, 100.5f, 0x0000000100000002u, 0x0000000300000004u,
                        0x0000000500000006u, 0x8000000700000008u, 10.5f, 14.5f, 150.25f, 60.75f, 12.125f, 80.0f, 321u));
}

// Which lengths each decoder takes, and that a refusal leaves a default
// record, is fuzzed; this pins the code it refuses the others with.
template <class Record>
void expectOnlySize(ResponseCode (*decode)(uint8_t const*, size_t, Record&), size_t size, ResponseCode refusal) {
    for (size_t length : {size_t{0}, size_t{3}, size - 1, size, size + 1}) {
        Bytes const payload(length, 0x11);
        Record record{};
        EXPECT_EQ(decode(payload.data(), length, record), length == size ? ResponseCode::Success : refusal)
            << size << " " << length;
    }
}

TEST(Records, FixedLengthRecordsTakeExactlyTheirSize) {
    expectOnlySize(decodeMonitorStatistics, 39, ResponseCode::RequestFailed);
    expectOnlySize(decodeFuelgaugeStatistics, 75, ResponseCode::RequestFailed);
    expectOnlySize(decodeConfig, 104, ResponseCode::InvalidDeviceResponse);
    expectOnlySize(decodeAuthKey, 32, ResponseCode::InvalidDeviceResponse);
    expectOnlySize(decodeAccessKey, 89, ResponseCode::InvalidDeviceResponse);
}

// Whole 35-byte entries, each with its security, flags and last signal; the
// tail is ignored, and so are the flag bits without a meaning.
TEST(Records, WifiNetworkListTakesWholeEntries) {
    Bytes const entries = fromHex(text("home", 32) + " 03 05 c4 " + text(std::string(32, 'Z'), 32) + " 00 02 81 " +
                                  text("x", 32) + " 04 f8 00 01 02 03 04");
    std::vector<Zelmor::WifiNetwork> networks;
    decodeWifiNetworkList(entries.data(), entries.size(), networks);
    EXPECT_EQ(networks, (std::vector<Zelmor::WifiNetwork>{{"home", "", 3, true, true, false, -60},
                                                          {std::string(32, 'Z'), "", 0, false, false, true, -127},
                                                          {"x", "", 4, false, false, false, 0}}));
}

// Name and password cut to their fields; only security and metered follow
// them, the list's own fields are not sent.
TEST(Records, WifiNetworkRecordCarriesNamePasswordSecurityAndMetered) {
    struct Case {
        Zelmor::WifiNetwork network;
        std::string tail;  // bytes 96..99
    } const cases[] = {
        {{std::string(33, 's'), std::string(65, 'p'), 0xFF}, "ff 00 00 00"},
        {{std::string(32, 's'), std::string(64, 'p'), 0, true}, "00 01 00 00"},
        {{std::string(32, 's'), std::string(64, 'p'), 3, true, true, true, -40}, "03 01 00 00"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.tail);
        EXPECT_EQ(hex(encodeWifiNetwork(c.network)),
                  text(std::string(32, 's'), 32) + " " + text(std::string(64, 'p'), 64) + " " + c.tail);
    }
}

// Success, PasswordRejected and Cancelled (0, 6 and 10) have no text, nor has
// any code the device does not send.
TEST(ResponseCodeTest, EveryCodeHasItsTextOrNone) {
    char const* const texts[] = {
        nullptr,
        "Invalid request.",
        "Invalid parameter.",
        "Request failed.",
        "Feature is locked by user password.",
        "Feature is locked by master password.",
        nullptr,
        nullptr,
        "Request timeout.",
        "Invalid device response.",
        nullptr,
        nullptr,
    };
    for (uint16_t code = 0; code < std::size(texts); ++code)
        EXPECT_STREQ(responseCodeMessage(static_cast<Zelmor::ResponseCode>(code)), texts[code]) << code;
    for (uint16_t code : {0x100, 0xFFFF})
        EXPECT_STREQ(responseCodeMessage(static_cast<Zelmor::ResponseCode>(code)), nullptr) << code;
}

// The lock status byte of a device's information, read by model.
TEST(LockStatusTest, LockBitsDependOnTheModel) {
    struct Case {
        uint8_t revision;
        uint8_t lockStatus;
        bool locked;
        bool master;
    };
    Case const cases[] = {
        {0x10, 0x10, true, false}, {0x10, 0x01, false, false}, {0x10, 0x20, false, true},  {0x41, 0x30, true, true},
        {0x41, 0x2F, false, true}, {0x41, 0x00, false, false}, {0x21, 0x01, true, false},  {0x21, 0x10, false, false},
        {0x31, 0x03, true, true},  {0x31, 0x02, false, true},  {0x21, 0x00, false, false},
    };
    for (auto const& c : cases) {
        Zelmor::DeviceInfo info;
        info.hardwareRevision = c.revision;
        info.lockStatus = c.lockStatus;
        EXPECT_EQ(deviceLocked(info), c.locked) << unsigned{c.revision} << " " << unsigned{c.lockStatus};
        EXPECT_EQ(masterPasswordSet(info), c.master) << unsigned{c.revision} << " " << unsigned{c.lockStatus};
    }
}

TEST(ScheduleTest, DefaultIsEveryDayFromMidnightNamedNewTimer) {
    EXPECT_EQ(hex(ZelmorSchedule().bytes()), "00 00 80 3f 00 00 00 00 4e 65 77 20 54 69 6d 65 72 00 00 00 00 00 00 00");
}

// Each field of the timing word where the device expects it: a value is cut
// to the field's width and no other bit of the word, reserved ones included,
// changes.
TEST(ScheduleTest, EachFieldTakesItsOwnBitsOnly) {
    struct Field {
        char const* name;
        unsigned shift;
        unsigned width;
        std::function<void(ZelmorSchedule&, uint32_t)> set;
        std::function<uint32_t(ZelmorSchedule const&)> get;
    } const fields[] = {
        {"start minute", 0, 6, &ZelmorSchedule::setStartMinute, &ZelmorSchedule::getStartMinute},
        {"start hour", 6, 5, &ZelmorSchedule::setStartHour, &ZelmorSchedule::getStartHour},
        {"end minute", 11, 6, &ZelmorSchedule::setEndMinute, &ZelmorSchedule::getEndMinute},
        {"end hour", 17, 5, &ZelmorSchedule::setEndHour, &ZelmorSchedule::getEndHour},
        {"repeat", 23, 31, &ZelmorSchedule::setRepeatValue, &ZelmorSchedule::getRepeatValue},
    };
    for (auto const& f : fields) {
        SCOPED_TRACE(f.name);
        uint64_t const mask = ((uint64_t{1} << f.width) - 1) << f.shift;
        ZelmorSchedule schedule;
        schedule.setTiming(~uint64_t{0});
        f.set(schedule, uint32_t{1} << f.width);  // one past the largest value: cut to 0
        EXPECT_EQ(f.get(schedule), 0u);
        EXPECT_EQ(schedule.getTiming(), ~mask);
        f.set(schedule, 5);
        EXPECT_EQ(f.get(schedule), 5u);
        EXPECT_EQ(schedule.getTiming(), ~mask | uint64_t{5} << f.shift);
        EXPECT_EQ(readLe<uint64_t>(schedule.bytes().data()), schedule.getTiming());
    }
    ZelmorSchedule schedule;
    schedule.setDayOfMonthMode();
    EXPECT_EQ(schedule.getTiming(), 0x3FC00000u);
    EXPECT_TRUE(schedule.isDayOfMonthMode());
    schedule.setDayOfWeekMode();
    EXPECT_EQ(schedule.getTiming(), 0x3F800000u);
    EXPECT_TRUE(schedule.isDayOfWeekMode());
}

// Fifteen characters and a terminator; the name takes no part in equality.
TEST(ScheduleTest, NameKeepsFifteenCharacters) {
    ZelmorSchedule schedule;
    schedule.setName("Nineteen characters");
    EXPECT_EQ(schedule.getName(), "Nineteen charac");
    EXPECT_EQ(hex(schedule.bytes().data() + 8, 16), "4e 69 6e 65 74 65 65 6e 20 63 68 61 72 61 63 00");
    // A shorter name clears what a longer one left behind.
    schedule.setName("Pump");
    EXPECT_EQ(hex(schedule.bytes().data() + 8, 16), "50 75 6d 70 00 00 00 00 00 00 00 00 00 00 00 00");
    EXPECT_EQ(schedule, ZelmorSchedule());
    schedule.setEndHour(1);
    EXPECT_FALSE(schedule == ZelmorSchedule());

    // A name from the device without a terminator stays inside the record.
    ZelmorSchedule::Bytes unterminated{};
    std::fill(unterminated.begin() + 8, unterminated.end(), 'x');
    EXPECT_EQ(ZelmorSchedule(unterminated).getName(), std::string(16, 'x'));
}

// The LAN announcement datagram: exact forms per family, everything else dropped.
ZelmorScanner::Advertisement sample(uint8_t revision) {
    ZelmorScanner::Advertisement ad;
    ad.hardwareRevision = revision;
    ad.firmwareVersion = 0x0132;
    ad.serial = 0x5A4C0000DEADBEEF;
    ad.name = revision == 0x10 ? std::string(32, 'N') : "Van house bank";  // 32 bytes: no terminator
    ad.status = 0x4;
    ad.voltage1 = 13.25f;
    ad.voltage2 = revision == 0x10 ? 12.5f : NAN;
    ad.current = -7.5f;
    ad.power = -99.375f;
    ad.temperature = 21.5f;
    ad.time = 1795000000;
    ad.coulombMeter = -123456;
    ad.energyWh = -1580.5f;
    ad.powerStatus = 1;
    ad.stateOfCharge = 87;
    ad.runtime = 1439;
    ad.rssi = revision == 0x41 ? -61 : -32768;
    return ad;
}

// The address the device holds goes out most significant byte first; the
// decoder takes the sender's instead. What the decoder reads encodes to the
// very same datagram.
TEST(LanAnnouncement, BothFormsRoundTripWithTheSendersAddress) {
    for (uint8_t revision : {uint8_t{0x10}, uint8_t{0x41}}) {
        auto const datagram = encodeLanAnnouncement(sample(revision), 0x7F000002);
        ASSERT_EQ(datagram.size(), revision == 0x10 ? kLanAnnouncementSize : kWifiAnnouncementSize);
        EXPECT_EQ(std::string(datagram.begin(), datagram.begin() + 8), revision == 0x10 ? "ZLMRETHN" : "ZLMRWIFI");
        EXPECT_EQ(std::vector<uint8_t>(datagram.begin() + 95, datagram.begin() + 99),
                  (std::vector<uint8_t>{127, 0, 0, 2}));

        auto const decoded = decodeLanAnnouncement(datagram.data(), datagram.size(), 0x0300007F);
        ASSERT_TRUE(decoded);
        EXPECT_EQ(decoded->source, ZelmorScanner::Advertisement::Source::Lan);
        EXPECT_EQ(decoded->ipAddress, 0x0300007Fu);
        EXPECT_EQ(encodeLanAnnouncement(*decoded, 0x7F000002), datagram);
    }
}

// Wrong magic, a magic of the other family or a length not exactly its form's.
TEST(LanAnnouncement, DatagramsOfTheWrongFormAreDropped) {
    auto const wifi = encodeLanAnnouncement(sample(0x41), 0);
    auto const lan = encodeLanAnnouncement(sample(0x10), 0);
    auto wifiFromLanDevice = wifi;
    wifiFromLanDevice[10] = 0x12;
    auto lanOfWifiLength = lan;
    lanOfWifiLength.resize(kWifiAnnouncementSize);
    auto bluetoothMagic = lan;
    std::copy_n("ZLMRBLE0", 8, bluetoothMagic.begin());
    for (auto const& datagram : {wifiFromLanDevice, lanOfWifiLength, bluetoothMagic})
        EXPECT_FALSE(decodeLanAnnouncement(datagram.data(), datagram.size(), 0));
    EXPECT_FALSE(decodeLanAnnouncement(wifi.data(), wifi.size() - 1, 0));
    EXPECT_FALSE(decodeLanAnnouncement(lan.data(), 0, 0));
}

}  // namespace
