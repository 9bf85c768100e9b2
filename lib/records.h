#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "byte_io.h"
#include "zelmor.h"

// Decoders and encoders of the wire records carried as answer and request
// payloads. Decoders accept only the exact payload lengths the protocol gives
// and report a wrong length as a response code (they never throw); on failure
// the output record is left default-constructed.

using ResponseCode = Zelmor::ResponseCode;

/// 0x01: length depends on the family and firmware; wrong length -> RequestFailed.
ResponseCode decodeDeviceInfo(uint8_t const* data, size_t length, Zelmor::DeviceInfo& out);
/// 0x04: 51 bytes (LAN family) or 53 bytes (WiFi family); else RequestFailed.
ResponseCode decodeMonitorData(uint8_t const* data, size_t length, Zelmor::MonitorData& out);
/// The readings after firmware version and revision, in wire order, as the
/// polled record (0x04) and the pushed live-data frame share them; without
/// the second voltage it is NaN. `r` must hold enough bytes.
void readMonitorReadings(ByteReader& r, Zelmor::MonitorData& m, bool secondVoltage);
/// 0x02: exactly 39 bytes, the first 3 skipped; else RequestFailed.
ResponseCode decodeMonitorStatistics(uint8_t const* data, size_t length, Zelmor::MonitorStatistics& out);
/// 0x03: exactly 75 bytes, the first 3 skipped; else RequestFailed.
ResponseCode decodeFuelgaugeStatistics(uint8_t const* data, size_t length, Zelmor::FuelgaugeStatistics& out);
/// 0x20: exactly 104 bytes; else InvalidDeviceResponse.
ResponseCode decodeConfig(uint8_t const* data, size_t length, ZelmorConfig& out);
/// 0x35: exactly 32 bytes; else InvalidDeviceResponse.
ResponseCode decodeAuthKey(uint8_t const* data, size_t length, Zelmor::AuthKey& out);
/// 0x62: exactly 89 bytes (identifier at 41..56, key at 57..88); else InvalidDeviceResponse.
ResponseCode decodeAccessKey(uint8_t const* data, size_t length, Zelmor::WifiAccessKey& out);
/// 0x50: a run of 24-byte records; a shorter remainder is ignored.
void decodeSchedules(uint8_t const* data, size_t length, std::vector<ZelmorSchedule>& out);
/// 0x70: a run of 35-byte entries: 32-byte name, security, flags (bit 0 in
/// use, bit 1 failed last time, bit 2 metered), last signal in dBm (signed).
void decodeWifiNetworkList(uint8_t const* data, size_t length, std::vector<Zelmor::WifiNetwork>& out);
/// 0x40: a page of 8-byte descriptors appended to `out`; a shorter remainder is ignored.
void decodeFileListPage(uint8_t const* data, size_t length, std::vector<Zelmor::LogFileDescriptor>& out);

/// The 100-byte payload of 0x61 and 0x71: name, password, security, options
/// (bit 0 metered), two zero bytes.
std::vector<uint8_t> encodeWifiNetwork(Zelmor::WifiNetwork const& network);

/// The WifiScanResult carried by a notification of exactly this many bytes.
constexpr size_t kWifiScanResultSize = 42;
static_assert(sizeof(Zelmor::WifiScanResult) == kWifiScanResultSize);
