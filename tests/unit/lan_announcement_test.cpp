// The LAN announcement datagram: exact forms per family, everything else dropped.
#include "lan_announcement.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <tuple>

namespace {

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
// decoder takes the sender's instead.
TEST(LanAnnouncement, BothFormsRoundTripWithTheSendersAddress) {
    for (uint8_t revision : {uint8_t{0x10}, uint8_t{0x41}}) {
        auto const ad = sample(revision);
        auto const datagram = encodeLanAnnouncement(ad, 0x7F000002);
        ASSERT_EQ(datagram.size(), revision == 0x10 ? kLanAnnouncementSize : kWifiAnnouncementSize);
        EXPECT_EQ(std::string(datagram.begin(), datagram.begin() + 8), revision == 0x10 ? "ZLMRETHN" : "ZLMRWIFI");
        EXPECT_EQ(datagram[95], 127);
        EXPECT_EQ(datagram[98], 2);

        auto const decoded = decodeLanAnnouncement(datagram.data(), datagram.size(), 0x0300007F);
        ASSERT_TRUE(decoded);
        EXPECT_EQ(decoded->source, ZelmorScanner::Advertisement::Source::Lan);
        EXPECT_EQ(decoded->ipAddress, 0x0300007Fu);
        auto const fields = [](ZelmorScanner::Advertisement const& a) {
            return std::tie(a.hardwareRevision, a.firmwareVersion, a.serial, a.name, a.status, a.voltage1, a.current,
                            a.power, a.temperature, a.time, a.coulombMeter, a.energyWh, a.powerStatus, a.stateOfCharge,
                            a.runtime, a.rssi);
        };
        EXPECT_EQ(fields(*decoded), fields(ad));
        EXPECT_TRUE(revision == 0x10 ? decoded->voltage2 == ad.voltage2 : std::isnan(decoded->voltage2));
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
