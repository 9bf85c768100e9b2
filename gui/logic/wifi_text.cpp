#include "wifi_text.h"

#include <cstring>
#include <utility>

#include <fmt/format.h>

#include "hardware_revision.h"

namespace {

// The WiFi status byte of the information record.
constexpr uint8_t kStatusConnecting = 1;
constexpr uint8_t kStatusConnected = 2;
constexpr uint8_t kStatusFailed = 3;
constexpr uint8_t kExtraStatusAbsent = 255;
constexpr uint8_t kExtraKnownNetworks = 0x02;

struct SignalWord {
    int from;  // dBm
    char const* word;
};
constexpr SignalWord kSignalWords[] = {{-50, "excellent"}, {-60, "good"}, {-70, "fair"}};

constexpr char const* kSecurityNames[] = {"open", "WEP", "WPA", "WPA2", "WPA3"};

}  // namespace

bool keepsKnownWifiNetworks(Zelmor::DeviceInfo const& info) {
    return isWifiFamily(info.hardwareRevision) && info.extraStatus != kExtraStatusAbsent &&
           (info.extraStatus & kExtraKnownNetworks) != 0;
}

std::string wifiNetworkText(Zelmor::DeviceInfo const& info) {
    return info.wifiNetwork.empty() ? "(none)" : info.wifiNetwork;
}

std::string wifiStatusText(Zelmor::DeviceInfo const& info) {
    switch (info.wifiStatus) {
        case kStatusFailed:
            return "Cannot connect";
        case kStatusConnecting:
            return "Connecting ...";
        case kStatusConnected: {
            if (info.ipAddress == 0) return "Connected (obtaining IP ...)";
            // The record keeps the bytes as they came, the most significant first.
            uint8_t bytes[4];
            std::memcpy(bytes, &info.ipAddress, sizeof bytes);
            return fmt::format("Connected ({}.{}.{}.{})", bytes[0], bytes[1], bytes[2], bytes[3]);
        }
        default:
            return "Not connected";
    }
}

std::string wifiNetworkProperties(Zelmor::WifiNetwork const& network) {
    std::string text = network.security != 0 ? "password protected, " : "";
    text += network.metered ? "metered" : "non-metered";
    if (network.failed) text += ", FAILED";
    return text;
}

std::string scanResultName(Zelmor::WifiScanResult const& result) {
    return std::string(result.ssid, strnlen(result.ssid, sizeof result.ssid));
}

std::string wifiSignalText(int8_t rssi) {
    char const* word = "weak";
    for (SignalWord const& w : kSignalWords) {
        if (rssi >= w.from) {
            word = w.word;
            break;
        }
    }
    return fmt::format("{} dBm ({})", rssi, word);
}

std::string wifiSecurityText(uint8_t security) {
    return security < std::size(kSecurityNames) ? kSecurityNames[security] : "unknown";
}

std::string wifiNetworkProblem(std::string_view name, std::string_view password) {
    if (name.empty()) return "network name is empty";
    if (name.size() > kMaxWifiNameBytes) return "network name is too long";
    if (password.size() > kMaxWifiPasswordBytes) return "password is too long";
    return {};
}

Zelmor::WifiNetwork wifiNetworkToAdd(std::string name, std::string password, bool metered) {
    Zelmor::WifiNetwork network;
    network.security = password.empty() ? 0 : kWifiSecurityWpa2;
    network.ssid = std::move(name);
    network.password = std::move(password);
    network.metered = metered;
    return network;
}
