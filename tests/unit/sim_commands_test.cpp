// The device commands' answers by model and firmware, and the rules the
// end-to-end runs do not reach: the limits of schedules and WiFi networks,
// and the firmware transfer's checks.
#include <gtest/gtest.h>

#include <string>

#include "crc32.h"
#include "firmware_image.h"
#include "sim_test_host.h"

namespace {

using namespace simtest;

TEST(SimCommands, AnswersByModelAndFirmware) {
    struct Case {
        uint8_t revision;
        uint16_t firmware;
        uint16_t code;
        size_t requestLength;
        uint16_t answerCode;
        size_t answerLength;
        sim::WifiKind wifi = sim::WifiKind::NetworkList;
    };
    // Info grows by the status byte from firmware 1.20 (WiFi), 1.00 (LAN) and 2.40
    // (Bluetooth); a command the model does not know is an invalid request (the
    // list commands on a WiFi model that keeps one network too); a Bluetooth
    // model keeps names of 8 characters, the others of 32.
    auto const one = sim::WifiKind::OneNetwork;
    Case const cases[] = {
        {0x41, 0x0119, 0x01, 0, 0, 81},     {0x41, 0x0120, 0x01, 0, 0, 82},     {0x10, 0x0099, 0x01, 0, 0, 48},
        {0x10, 0x0100, 0x01, 0, 0, 49},     {0x21, 0x0239, 0x01, 0, 0, 18},     {0x21, 0x0240, 0x01, 0, 0, 19},
        {0x40, 0x0132, 0x04, 0, 0, 53},     {0x21, 0x0132, 0x04, 0, 0, 51},     {0x31, 0x0132, 0x04, 0, 0, 51},
        {0x31, 0x0132, 0x02, 0, 0, 39},     {0x21, 0x0132, 0x03, 0, 0, 75},     {0x10, 0x0132, 0x60, 0, 1, 0},
        {0x10, 0x0132, 0x61, 100, 1, 0},    {0x10, 0x0132, 0x70, 0, 1, 0},      {0x10, 0x0132, 0x71, 100, 1, 0},
        {0x10, 0x0132, 0x72, 1, 1, 0},      {0x21, 0x0132, 0x62, 0, 1, 0},      {0x31, 0x0132, 0x63, 0, 1, 0},
        {0x41, 0x0132, 0x25, 32, 0, 0},     {0x41, 0x0132, 0x25, 33, 2, 0},     {0x21, 0x0132, 0x25, 8, 0, 0},
        {0x21, 0x0132, 0x25, 9, 2, 0},      {0x41, 0x0132, 0x70, 0, 1, 0, one}, {0x41, 0x0132, 0x71, 100, 1, 0, one},
        {0x41, 0x0132, 0x72, 1, 1, 0, one}, {0x41, 0x0132, 0x60, 0, 0, 0, one}, {0x41, 0x0132, 0x70, 0, 0, 35}};
    for (Case const& c : cases) {
        SCOPED_TRACE(testing::Message() << "revision " << int(c.revision) << ", firmware " << c.firmware << ", code "
                                        << c.code << ", kind " << int(c.wifi));
        sim::SimulatedDeviceConfig config = model(c.revision, c.firmware);
        config.wifiKind = c.wifi;
        Bench b(config);
        Frame const a = b.host.call(c.code, Bytes(c.requestLength, 'x'));
        EXPECT_EQ(a.code, c.answerCode);
        EXPECT_EQ(a.payload.size(), c.answerLength);
    }
}

// 32 records at most, a batch that does not fit refused whole; edits count
// only once committed, and a connection's uncommitted edits end with it.
TEST(SimCommands, ScheduleLimitsAndCommits) {
    Bench b;
    Bytes const updateThird = concat({u32(2), Bytes(24, 7)});
    std::vector<Step> const script = {
        {0x51, Bytes(2 * 24, 1), 0},  {0x52, updateThird, 2},       {0x53, u32(2), 2},      {0x55, Bytes(), 0},
        {0x51, Bytes(31 * 24, 3), 3}, {0x51, Bytes(30 * 24, 3), 0}, {0x51, Bytes(24, 4), 3}};
    runScript(b.host, script);
    EXPECT_EQ(b.host.call(0x50).payload.size(), 2u * 24u);
    EXPECT_EQ(b.host.call(0x55).code, 0);
    EXPECT_EQ(b.host.call(0x50).payload.size(), 32u * 24u);
    {
        TestHost other(b.device);
        EXPECT_EQ(other.call(0x54).code, 0);
        EXPECT_EQ(b.host.call(0x50).payload.size(), 32u * 24u);
    }
    // The next edit starts again from the committed timers.
    EXPECT_EQ(b.host.call(0x53, u32(31)).code, 0);
    EXPECT_EQ(b.host.call(0x55).code, 0);
    EXPECT_EQ(b.device.snapshot().schedules.size(), 31u);
    EXPECT_EQ(b.device.snapshot().scheduleCommits, 3u);
}

// Eight networks at most, one of a known name replaced in place; removing the
// one in use leaves the device without WiFi, joining one out of reach fails
// and marks its entry.
TEST(SimCommands, WifiNetworkLimits) {
    Bench b;
    for (int i = 1; i < 8; ++i) EXPECT_EQ(b.host.call(0x71, networkRecord("net" + std::to_string(i), 2)).code, 0);
    std::vector<Step> const script = {{0x71, networkRecord("net9", 2), 3},
                                      {0x71, networkRecord("net3", 3), 0},
                                      {0x71, networkRecord("", 2), 2},
                                      {0x71, networkRecord("net10", 5), 2},
                                      {0x72, Bytes(1, 8), 2},
                                      {0x72, Bytes(1, 0), 0}};
    runScript(b.host, script);
    Frame list = b.host.call(0x70);
    ASSERT_EQ(list.payload.size(), 7u * 35u);
    EXPECT_EQ(list.payload[2 * 35 + 32], 3);
    Frame const info = b.host.call(0x01);
    EXPECT_EQ(info.payload[43], 0);  // not connected, to no network
    EXPECT_EQ(info.payload[44], 0);
    EXPECT_EQ(readLe<int16_t>(b.host.call(0x04).payload.data() + 51), sim::kRssiNotAvailable);

    EXPECT_EQ(b.host.call(0x61, networkRecord("net5", 4)).code, 0);
    EXPECT_EQ(b.host.call(0x01).payload[43], 1);  // connecting
    b.advance(2);
    EXPECT_EQ(b.host.call(0x01).payload[43], 3);  // failed
    list = b.host.call(0x70);
    EXPECT_EQ(list.payload[4 * 35 + 33], 0x02);  // failed last time, not in use
}

// The image must be whole, of the model's family, with a good CRC and a BCD
// version; the new firmware then answers in its own layout.
TEST(SimFirmware, ImagesAreCheckedAgainstTheFamilyAndTheirHeader) {
    Bytes const payload(300, 0x5A);
    Bytes const wifi = buildFirmwareImage(0x41, 0x0300, 0, payload);
    Bytes const ethernet = buildFirmwareImage(0x10, 0x0300, 0, payload);
    Bytes const ble = buildFirmwareImage(0x21, 0x0300, 0, payload);
    Bytes const headerOnly = buildFirmwareImage(0x41, 0x0300, 0, {});
    Bytes const notBcd = buildFirmwareImage(0x41, 0x01A0, 0, payload);
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
        Frame const info = b.host.call(0x01);
        EXPECT_EQ(readLe<uint16_t>(info.payload.data()), c.code == 0 ? 0x0300 : 0x0119);
        EXPECT_EQ(info.payload.size(), c.infoLength);
    }
}

// A new start discards what came before; a block beyond the announced size is
// refused; finishing early fails and ends the transfer.
TEST(SimFirmware, TransferTakesNoMoreThanAnnouncedAndEndsAtFinish) {
    Bench b;
    Bytes const valid = buildFirmwareImage(0x41, 0x0140, 0, Bytes(80, 0x5A));
    Bytes const head(valid.begin(), valid.begin() + 60);
    Bytes const tail(valid.begin() + 60, valid.end());
    std::vector<Step> const script = {
        {0xF0, u32(4u << 20), 0}, {0xF0, u32(100), 0}, {0xF1, head, 0}, {0xF1, tail, 0},    {0xF1, Bytes(1, 0), 2},
        {0xF2, Bytes(), 0},       {0xF0, u32(100), 0}, {0xF1, head, 0}, {0xF2, Bytes(), 3}, {0xF1, Bytes(1, 0), 3}};
    runScript(b.host, script);
    EXPECT_EQ(b.device.snapshot().firmwareVersion, 0x0140);
}

}  // namespace
