// The live readings pushed by the Bluetooth LE models: byte-exact frames of
// both forms, read by the decoder and written by the simulator, and the rules
// that skip a frame or abandon a notification.
#include "live_data_decoder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "bluetooth_address.h"
#include "cobs.h"
#include "live_data_frame.h"
#include "test_bytes.h"

namespace {

// Firmware 2.50, time 1763800000, status 5, 13.25 V, 12.5 V, -4.5 A, -59.625 W,
// -12345 mAh, 987654 mWh, 21.5 °C, power status 1, 87 %, 1439 minutes.
constexpr char kFullFrame[] =
    "50 02 23 c0 73 21 69 05 00 00 00 00 00 54 41 00 00 48 41 00 00 90 c0 00 80 6e c2 c7 cf ff ff ff ff ff ff "
    "06 12 0f 00 00 00 00 00 00 00 ac 41 01 57 9f 05";
// The same readings from a 0x31 model, without the second voltage.
constexpr char kShortFrame[] =
    "50 02 31 c0 73 21 69 05 00 00 00 00 00 54 41 00 00 90 c0 00 80 6e c2 c7 cf ff ff ff ff ff ff 06 12 0f 00 "
    "00 00 00 00 00 00 ac 41 01 57 9f 05";

std::vector<uint8_t> framed(std::vector<uint8_t> const& frame) {
    std::vector<uint8_t> out;
    cobsEncode(frame.data(), frame.size(), out);
    return out;
}

std::vector<Zelmor::MonitorData> feed(LiveDataDecoder& decoder, std::vector<uint8_t> const& notification) {
    std::vector<Zelmor::MonitorData> out;
    decoder.feed(notification.data(), notification.size(), [&](Zelmor::MonitorData& m) { out.push_back(m); });
    return out;
}

// The simulator writes the golden frames and the decoder reads them back;
// wide values cross from one to the other intact.
TEST(LiveDataFrameTest, SimulatorAndDecoderAgreeOnBothForms) {
    sim::MonitorReadings r{.time = 1763800000,
                           .status = 5,
                           .voltage1 = 13.25f,
                           .voltage2 = 12.5f,
                           .current = -4.5f,
                           .power = -59.625f,
                           .temperature = 21.5f,
                           .coulombMeter = -12345,
                           .energyMeter = 987654,
                           .powerStatus = sim::PowerStatus::On,
                           .stateOfCharge = 87,
                           .runtime = 1439};
    struct Case {
        uint8_t revision;
        char const* golden;
    } const cases[] = {{0x23, kFullFrame}, {0x31, kShortFrame}, {0x2F, nullptr}, {0x30, nullptr}};
    for (Case const& c : cases) {
        SCOPED_TRACE(int{c.revision});
        if (!c.golden) {
            r.time = 0xFEDCBA98;
            r.coulombMeter = -123456789012;
            r.energyMeter = 987654321098;
            r.runtime = 0xFEDC;
        }
        std::vector<uint8_t> const frame = sim::encodeLiveDataFrame(0x0250, c.revision, r);
        if (c.golden) {
            EXPECT_EQ(hex(frame), c.golden);
        }
        std::optional<Zelmor::MonitorData> const m = decodeLiveDataFrame(frame.data(), frame.size());
        ASSERT_TRUE(m);
        EXPECT_EQ(m->firmwareVersion, 0x0250);
        EXPECT_EQ(m->hardwareRevision, c.revision);
        EXPECT_EQ(m->time, r.time);
        EXPECT_EQ(m->status, r.status);
        EXPECT_EQ(m->voltage1, r.voltage1);
        EXPECT_TRUE(c.revision < 0x30 ? m->voltage2 == r.voltage2 : std::isnan(m->voltage2)) << m->voltage2;
        EXPECT_EQ(m->current, r.current);
        EXPECT_EQ(m->power, r.power);
        EXPECT_EQ(m->coulombMeter, r.coulombMeter);
        EXPECT_EQ(m->energyMeter, r.energyMeter);
        EXPECT_EQ(m->temperature, r.temperature);
        EXPECT_EQ(m->powerStatus, static_cast<uint8_t>(r.powerStatus));
        EXPECT_EQ(m->stateOfCharge, r.stateOfCharge);
        EXPECT_EQ(m->runtime, r.runtime);
        EXPECT_EQ(m->rssi, -32768);
    }
}

TEST(LiveDataFrameTest, LengthMustFitTheRevision) {
    struct Case {
        uint8_t revision;
        size_t length;
        bool accepted;
    };
    for (Case const c : {Case{0x20, 51, true}, Case{0x2F, 51, true}, Case{0x30, 47, true}, Case{0x30, 51, false},
                         Case{0x23, 47, false}, Case{0x41, 51, false}, Case{0x10, 51, false}, Case{0x23, 52, false},
                         Case{0x23, 2, false}}) {
        std::vector<uint8_t> frame(c.length, 0);
        if (c.length > 2) frame[2] = c.revision;
        EXPECT_EQ(decodeLiveDataFrame(frame.data(), frame.size()).has_value(), c.accepted)
            << std::hex << int(c.revision) << " " << std::dec << c.length;
    }
}

TEST(LiveDataDecoderTest, FramesMaySpanNotificationsAndShareThem) {
    LiveDataDecoder decoder;
    std::vector<uint8_t> stream = framed(fromHex(kFullFrame));
    std::vector<uint8_t> const second = framed(fromHex(kShortFrame));
    stream.insert(stream.end(), second.begin(), second.end());
    // Cut where a 23-byte MTU would: 20 bytes per notification.
    std::vector<Zelmor::MonitorData> records;
    for (size_t at = 0; at < stream.size(); at += 20) {
        std::vector<uint8_t> const piece(stream.begin() + static_cast<long>(at),
                                         stream.begin() + static_cast<long>(std::min(at + 20, stream.size())));
        for (auto const& m : feed(decoder, piece)) records.push_back(m);
    }
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].hardwareRevision, 0x23);
    EXPECT_EQ(records[1].hardwareRevision, 0x31);
}

TEST(LiveDataDecoderTest, ShortFramesAreSkippedButAMisfitAbandonsTheNotification) {
    LiveDataDecoder decoder;
    std::vector<uint8_t> const good = framed(fromHex(kShortFrame));
    std::vector<uint8_t> misfit = fromHex(kShortFrame);
    misfit.resize(LiveDataDecoder::kFullFrameSize);  // 51 bytes from a 0x3_ model

    std::vector<uint8_t> notification = framed({0x01, 0x02});
    notification.insert(notification.end(), good.begin(), good.end());
    EXPECT_EQ(feed(decoder, notification).size(), 1u) << "a 2-byte frame is skipped, the next one decoded";

    notification = framed(misfit);
    notification.insert(notification.end(), good.begin(), good.end());
    EXPECT_TRUE(feed(decoder, notification).empty()) << "the good frame behind a misfit is not decoded";
    EXPECT_EQ(feed(decoder, good).size(), 1u) << "the next notification is";
}

TEST(BluetoothAddressTest, TextFormRoundTripsWithTheFirstFieldMostSignificant) {
    EXPECT_EQ(parseBluetoothAddress("C2:5A:4C:00:00:01"), 0xC25A4C000001u);
    EXPECT_EQ(parseBluetoothAddress("c2:5a:4c:00:00:01"), 0xC25A4C000001u);
    EXPECT_EQ(formatBluetoothAddress(0xC25A4C000001), "C2:5A:4C:00:00:01");
    for (char const* bad : {"", "C2:5A:4C:00:00", "C2:5A:4C:00:00:01:02", "C2-5A-4C-00-00-01", "C2:5A:4C:00:00:0G",
                            "C2:5A:4C:00:00:+1", "C25A4C000001"})
        EXPECT_FALSE(parseBluetoothAddress(bad)) << bad;
}

}  // namespace
