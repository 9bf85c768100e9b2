#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "zelmor.h"

// What the WiFi setup dialogs show and decide, apart from any display.

/// Which setup dialog serves a device: a WiFi model that sets bit 1 of its
/// extra status byte keeps a list of known networks (0x70-0x72); one without
/// the byte (255, firmware below 1.20) or with the bit clear keeps one network.
bool keepsKnownWifiNetworks(Zelmor::DeviceInfo const& info);

/// The value of "WiFi Network: ": the network joined or being joined, or
/// "(none)".
std::string wifiNetworkText(Zelmor::DeviceInfo const& info);

/// The value of "WiFi Status: ", tested in this order: failed "Cannot
/// connect"; connecting "Connecting ..."; connected "Connected (a.b.c.d)",
/// the address's most significant byte first, or "Connected (obtaining IP
/// ...)" while the address is 0; anything else "Not connected".
std::string wifiStatusText(Zelmor::DeviceInfo const& info);

/// The "Properties" of a known network: "password protected" when its
/// security is not open, "metered" or "non-metered", "FAILED" when the device
/// failed to join it last time, joined by ", ".
std::string wifiNetworkProperties(Zelmor::WifiNetwork const& network);

/// The name a scan result carries, cut at the first zero or at 32 bytes.
std::string scanResultName(Zelmor::WifiScanResult const& result);

/// The "Signal" cell of a scan result: "-58 dBm (good)"; from -50 dBm
/// "excellent", from -60 "good", from -70 "fair", below "weak".
std::string wifiSignalText(int8_t rssi);

/// The "Security" cell: 0 "open", 1 "WEP", 2 "WPA", 3 "WPA2", 4 "WPA3",
/// anything else "unknown".
std::string wifiSecurityText(uint8_t security);

/// Only an open network (security 0) is joined without asking for a password.
inline bool wifiNeedsPassword(uint8_t security) { return security != 0; }

inline constexpr size_t kMaxWifiNameBytes = 32;
inline constexpr size_t kMaxWifiPasswordBytes = 64;
/// The security sent for a network added by hand with a password: the device
/// uses whatever the network asks for, the value only says "not open".
inline constexpr uint8_t kWifiSecurityWpa2 = 3;

/// What is wrong with a network typed in by the user (UTF-8), or "": in this
/// order "network name is empty", "network name is too long" (over 32
/// bytes), "password is too long" (over 64 bytes). An empty password is an
/// open network.
std::string wifiNetworkProblem(std::string_view name, std::string_view password);

/// The network a user typed in: open without a password, else WPA2.
Zelmor::WifiNetwork wifiNetworkToAdd(std::string name, std::string password, bool metered);
