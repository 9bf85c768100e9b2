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
    ad.name = "Van house bank";
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

TEST(LanAnnouncementTest, BothFormsRoundTripWithTheSendersAddress) {
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
        if (revision == 0x10)
            EXPECT_EQ(decoded->voltage2, ad.voltage2);
        else
            EXPECT_TRUE(std::isnan(decoded->voltage2));
    }
}

TEST(LanAnnouncementTest, DatagramsOfTheWrongFormAreDropped) {
    auto wifi = encodeLanAnnouncement(sample(0x41), 0);
    auto lan = encodeLanAnnouncement(sample(0x10), 0);

    auto wifiFromLanDevice = wifi;
    wifiFromLanDevice[10] = 0x12;
    EXPECT_FALSE(decodeLanAnnouncement(wifiFromLanDevice.data(), wifiFromLanDevice.size(), 0));

    auto lanOfWifiLength = lan;
    lanOfWifiLength.resize(kWifiAnnouncementSize);
    EXPECT_FALSE(decodeLanAnnouncement(lanOfWifiLength.data(), lanOfWifiLength.size(), 0));
    EXPECT_FALSE(decodeLanAnnouncement(wifi.data(), wifi.size() - 1, 0));
    EXPECT_FALSE(decodeLanAnnouncement(lan.data(), 0, 0));

    auto bluetoothMagic = lan;
    std::copy_n("ZLMRBLE0", 8, bluetoothMagic.begin());
    EXPECT_FALSE(decodeLanAnnouncement(bluetoothMagic.data(), bluetoothMagic.size(), 0));
}

TEST(LanAnnouncementTest, NameFillingAllThirtyTwoBytesIsTakenWhole) {
    auto ad = sample(0x10);
    ad.name = std::string(32, 'N');
    auto datagram = encodeLanAnnouncement(ad, 0);
    EXPECT_EQ(datagram[19 + 31], 'N');
    EXPECT_NE(datagram[19 + 32], 'N');
    auto decoded = decodeLanAnnouncement(datagram.data(), datagram.size(), 0);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->name, std::string(32, 'N'));
}

}  // namespace
