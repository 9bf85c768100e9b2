// The LAN announcement datagram: exact forms per family, everything else dropped.
#include "lan_announcement.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

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
