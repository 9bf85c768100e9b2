// The live readings pushed by the Bluetooth LE models: byte-exact frames of
// both forms and the lengths the decoder takes; the BLE link tests feed the
// decoder whole notifications.
#include "live_data_decoder.h"

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "bluetooth_address.h"
#include "live_data_frame.h"
#include "test_bytes.h"

namespace {

// Firmware 2.50 and the readings in wire order: time 1763800000, status 5,
// 13.25 V, 12.5 V, -4.5 A, -59.625 W, -12345 mAh, 987654 mWh, 21.5 °C, power
// status 1, 87 %, 1439 minutes.
constexpr char kFullFrame[] =
    "50 02 23 c0 73 21 69 05 00 00 00 00 00 54 41 00 00 48 41 00 00 90 c0 00 80 6e c2 c7 cf ff ff ff ff ff ff "
    "06 12 0f 00 00 00 00 00 00 00 ac 41 01 57 9f 05";
// The same readings from a 0x31 model, without the second voltage.
constexpr char kShortFrame[] =
    "50 02 31 c0 73 21 69 05 00 00 00 00 00 54 41 00 00 90 c0 00 80 6e c2 c7 cf ff ff ff ff ff ff 06 12 0f 00 "
    "00 00 00 00 00 00 ac 41 01 57 9f 05";

}  // namespace

// The simulator writes both forms byte for byte; the BLE link tests read the
// device's own frames back through the decoder, field by field.
TEST(LiveDataFrame, SimulatorWritesBothForms) {
    sim::MonitorReadings r;  // its fields in order, the temperature before the meters
    r = {1763800000, 5, 13.25f, 12.5f, -4.5f, -59.625f, 21.5f, -12345, 987654, sim::PowerStatus::On, 87, 1439};
    EXPECT_EQ(hex(sim::encodeLiveDataFrame(0x0250, 0x23, r)), kFullFrame);
    EXPECT_EQ(hex(sim::encodeLiveDataFrame(0x0250, 0x31, r)), kShortFrame);
}

// 51 bytes from a 0x2_ model, 47 from a 0x3_ one, nothing from the network models.
TEST(LiveDataFrame, LengthMustFitTheRevision) {
    std::tuple<uint8_t, size_t, bool> const cases[] = {{0x20, 51, true},  {0x2F, 51, true},  {0x30, 47, true},
                                                       {0x30, 51, false}, {0x23, 47, false}, {0x41, 51, false},
                                                       {0x10, 51, false}, {0x23, 52, false}, {0x23, 2, false}};
    for (auto const& [revision, length, accepted] : cases) {
        std::vector<uint8_t> frame(length, 0);
        if (length > 2) frame[2] = revision;
        EXPECT_EQ(decodeLiveDataFrame(frame.data(), frame.size()).has_value(), accepted)
            << std::hex << int(revision) << " " << std::dec << length;
    }
}

TEST(BluetoothAddress, TextFormRoundTripsWithTheFirstFieldMostSignificant) {
    EXPECT_EQ(parseBluetoothAddress("C2:5A:4C:00:00:01"), 0xC25A4C000001u);
    EXPECT_EQ(formatBluetoothAddress(0xC25A4C000001), "C2:5A:4C:00:00:01");
    for (char const* bad : {"", "C2:5A:4C:00:00", "C2:5A:4C:00:00:01:02", "C2-5A:4C:00:00:01", "C2:5A:4C:00:00:0G",
                            "C2:5A:4C:00:00:+1", "C25A4C000001"})
        EXPECT_FALSE(parseBluetoothAddress(bad)) << bad;
}
