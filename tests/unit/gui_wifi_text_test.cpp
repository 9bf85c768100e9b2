// What the WiFi setup dialogs show and decide, at the edges of each rule.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <tuple>
#include <utility>

#include "wifi_text.h"

namespace {

// The dialog: a list of known networks when a WiFi model sets bit 1 of its
// extra status (255: not sent below firmware 1.20, one network). The status
// line: tested in order, the address's most significant byte first.
TEST(WifiTextTest, InformationRecordGivesTheDialogAndTheStatusLine) {
    std::tuple<uint8_t, uint8_t, bool, uint8_t, std::array<uint8_t, 4>, char const*> const cases[] = {
        {0x41, 255, false, 3, {127, 0, 0, 2}, "Cannot connect"},
        {0x4F, 0xFE, true, 1, {192, 168, 1, 7}, "Connecting ..."},
        {0x41, 0x03, true, 2, {192, 168, 1, 7}, "Connected (192.168.1.7)"},
        {0x40, 0xFD, false, 2, {0, 0, 0, 0}, "Connected (obtaining IP ...)"},
        {0x10, 0x02, false, 4, {10, 0, 0, 1}, "Not connected"},
    };
    for (auto const& [revision, extra, list, status, address, text] : cases) {
        Zelmor::DeviceInfo info;
        info.hardwareRevision = revision;
        info.extraStatus = extra;
        info.wifiStatus = status;
        std::memcpy(&info.ipAddress, address.data(), address.size());
        EXPECT_EQ(keepsKnownWifiNetworks(info), list) << int{extra};
        EXPECT_EQ(wifiStatusText(info), text);
    }
}

TEST(WifiTextTest, CellsOfBothLists) {
    std::pair<Zelmor::WifiNetwork, char const*> const properties[] = {
        {{"", "", 0, false, false, true}, "non-metered, FAILED"},
        {{"", "", 3, false}, "password protected, non-metered"},
        {{"", "", 1, true, false, true}, "password protected, metered, FAILED"},
    };
    for (auto const& [network, text] : properties) EXPECT_EQ(wifiNetworkProperties(network), text);
    std::tuple<int8_t, char const*> const signals[] = {
        {-50, "-50 dBm (excellent)"}, {-51, "-51 dBm (good)"}, {-60, "-60 dBm (good)"},
        {-61, "-61 dBm (fair)"},      {-70, "-70 dBm (fair)"}, {-71, "-71 dBm (weak)"},
    };
    for (auto const& [rssi, text] : signals) EXPECT_EQ(wifiSignalText(rssi), text);
    EXPECT_EQ(wifiSecurityText(5), "unknown");  // the first after WPA3
    Zelmor::WifiScanResult result{};
    result.rssi = 'X';  // a name that fills its 32 bytes has no terminator
    std::memset(result.ssid, 'N', sizeof result.ssid);
    EXPECT_EQ(scanResultName(result), std::string(32, 'N'));
}

TEST(WifiTextTest, NetworkTypedInNeedsANameAndFitsTheRecordInBytes) {
    std::tuple<std::string, std::string, char const*> const cases[] = {
        {"", std::string(65, 'p'), "network name is empty"},
        {std::string(32, 'n'), std::string(64, 'p'), ""},
        {"€€€€€€€€€€€", std::string(65, 'p'), "network name is too long"},  // 11 characters, 33 bytes
        {"Boat", std::string(65, 'p'), "password is too long"},
    };
    for (auto const& [name, password, problem] : cases) EXPECT_EQ(wifiNetworkProblem(name, password), problem) << name;
    EXPECT_EQ(wifiNetworkToAdd("Boat", "", true), (Zelmor::WifiNetwork{"Boat", "", 0, true}));  // no password: open
}

}  // namespace
