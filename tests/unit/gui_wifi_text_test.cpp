// What the WiFi setup dialogs show and decide: which dialog a device gets,
// the status and properties texts, the cells of the scan list and what a
// network typed in by hand may be.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <tuple>

#include "wifi_text.h"

namespace {

TEST(WifiTextTest, KnownNetworkListIsBitOneOfTheExtraStatusOfAWifiModel) {
    // 255: the byte is not sent (WiFi firmware below 1.20), so one network.
    std::tuple<uint8_t, uint8_t, bool> const cases[] = {
        {0x41, 255, false},  {0x41, 0x02, true},  {0x41, 0x03, true},  {0x4F, 0xFE, true},
        {0x41, 0x01, false}, {0x40, 0xFD, false}, {0x10, 0x02, false}, {0x21, 0x02, false},
    };
    for (auto const& [revision, extra, list] : cases) {
        Zelmor::DeviceInfo info;
        info.hardwareRevision = revision;
        info.extraStatus = extra;
        EXPECT_EQ(keepsKnownWifiNetworks(info), list) << int{revision} << " " << int{extra};
    }
}

TEST(WifiTextTest, StatusIsTestedInOrderWithTheAddressMostSignificantByteFirst) {
    // The address as the record holds it: the bytes in the order they came.
    std::tuple<uint8_t, std::array<uint8_t, 4>, char const*> const cases[] = {
        {3, {127, 0, 0, 2}, "Cannot connect"},
        {1, {0, 0, 0, 0}, "Connecting ..."},
        {1, {192, 168, 1, 7}, "Connecting ..."},
        {2, {192, 168, 1, 7}, "Connected (192.168.1.7)"},
        {2, {0, 0, 0, 1}, "Connected (0.0.0.1)"},
        {2, {255, 0, 0, 0}, "Connected (255.0.0.0)"},
        {2, {0, 0, 0, 0}, "Connected (obtaining IP ...)"},
        {0, {10, 0, 0, 1}, "Not connected"},
        {4, {10, 0, 0, 1}, "Not connected"},
    };
    for (auto const& [status, address, text] : cases) {
        Zelmor::DeviceInfo info;
        info.wifiStatus = status;
        std::memcpy(&info.ipAddress, address.data(), address.size());
        EXPECT_EQ(wifiStatusText(info), text) << int{status};
    }
    EXPECT_EQ(wifiNetworkText(Zelmor::DeviceInfo{}), "(none)");
}

TEST(WifiTextTest, PropertiesArePasswordThenMeteredThenFailed) {
    std::tuple<uint8_t, bool, bool, char const*> const cases[] = {
        {0, false, false, "non-metered"},
        {0, true, false, "metered"},
        {3, false, false, "password protected, non-metered"},
        {1, true, true, "password protected, metered, FAILED"},
        {0, false, true, "non-metered, FAILED"},
    };
    for (auto const& [security, metered, failed, text] : cases) {
        Zelmor::WifiNetwork network;
        network.security = security;
        network.metered = metered;
        network.failed = failed;
        // In use or not, and the signal, are no property.
        network.inUse = true;
        EXPECT_EQ(wifiNetworkProperties(network), text);
    }
}

TEST(WifiTextTest, ScanCellsNameSignalAndSecurity) {
    std::tuple<int8_t, char const*> const signals[] = {
        {-30, "-30 dBm (excellent)"}, {-50, "-50 dBm (excellent)"}, {-51, "-51 dBm (good)"}, {-60, "-60 dBm (good)"},
        {-61, "-61 dBm (fair)"},      {-70, "-70 dBm (fair)"},      {-71, "-71 dBm (weak)"}, {-127, "-127 dBm (weak)"},
    };
    for (auto const& [rssi, text] : signals) EXPECT_EQ(wifiSignalText(rssi), text);
    std::tuple<uint8_t, char const*> const securities[] = {{0, "open"}, {1, "WEP"},     {2, "WPA"},      {3, "WPA2"},
                                                           {4, "WPA3"}, {5, "unknown"}, {255, "unknown"}};
    for (auto const& [security, text] : securities) EXPECT_EQ(wifiSecurityText(security), text);

    // A name that fills its 32 bytes has no terminator.
    Zelmor::WifiScanResult result{};
    std::memset(result.ssid, 'N', sizeof result.ssid);
    result.rssi = 'X';
    EXPECT_EQ(scanResultName(result), std::string(32, 'N'));
    std::strcpy(result.ssid, "Marina");
    EXPECT_EQ(scanResultName(result), "Marina");
}

TEST(WifiTextTest, NetworkTypedInNeedsANameAndFitsTheRecordInBytes) {
    std::string name33;
    for (int i = 0; i < 11; ++i) name33 += "\xE2\x82\xAC";  // 11 euro signs, 33 bytes
    std::tuple<std::string, std::string, char const*> const cases[] = {
        {"", "", "network name is empty"},
        {"", std::string(65, 'p'), "network name is empty"},
        {"Boat", "", ""},
        {std::string(32, 'n'), std::string(64, 'p'), ""},
        {std::string(33, 'n'), "", "network name is too long"},
        {name33, "", "network name is too long"},
        {std::string(33, 'n'), std::string(65, 'p'), "network name is too long"},
        {"Boat", std::string(65, 'p'), "password is too long"},
    };
    for (auto const& [name, password, problem] : cases) {
        SCOPED_TRACE(name + " / " + password);
        EXPECT_EQ(wifiNetworkProblem(name, password), problem);
    }
    // Open without a password, else password protected.
    EXPECT_EQ(wifiNetworkToAdd("Boat", "", true).security, 0);
}

}  // namespace
