#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "zelmor_scanner.h"

// The datagram a network device sends every second to UDP port 7207 so that
// programs on the LAN can list it without connecting. Layout, little-endian:
//
//   0  8  magic "ZLMRETHN" (LAN family) or "ZLMRWIFI" (WiFi family)
//   8  2  firmware version          10  1  hardware revision
//  11  8  serial number             19 32  name, zero-padded (no terminator when 32 bytes long)
//  51  4  status word              55  4  voltage 1 (V, float)
//  59  4  voltage 2 (V, NaN: none)  63  4  current (A)        67 4 power (W)
//  71  4  temperature (°C)          75  4  device clock (s since 1970 UTC)
//  79  8  coulomb meter (mAh, two's complement)
//  87  8  energy meter (mWh, two's complement; kept as Wh in a float)
//  95  4  the address the device holds, most significant byte first
//  99  1  power status             100  1  state of charge    101 2 runtime (min)
// 103  2  WiFi signal (dBm, signed), WiFi form only
// 103 or 105: 11 reserved bytes, zero
//
// So a LAN announcement is 114 bytes and a WiFi one 116.

inline constexpr uint16_t kLanAnnouncementPort = 7207;
inline constexpr size_t kLanAnnouncementSize = 114;
inline constexpr size_t kWifiAnnouncementSize = 116;

/// The sighting a datagram describes, or nothing when the datagram is not a
/// valid announcement: wrong magic, a magic that does not match the revision's
/// family, or a length other than the exact one of its form. `senderIp` (network
/// byte order) becomes the advertisement's address.
std::optional<ZelmorScanner::Advertisement> decodeLanAnnouncement(uint8_t const* data, size_t length,
                                                                  uint32_t senderIp);

/// The datagram a device of the advertisement's revision sends (the LAN form
/// for the LAN family, the WiFi form otherwise). `heldAddress` is written at
/// offset 95, most significant byte first (host order: 127.0.0.2 is 0x7F000002).
std::vector<uint8_t> encodeLanAnnouncement(ZelmorScanner::Advertisement const& advertisement,
                                           uint32_t heldAddress);
