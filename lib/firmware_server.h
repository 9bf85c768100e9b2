#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// The environment variable naming the firmware file server, as HOST[:PORT].
inline constexpr char kFirmwareServerVariable[] = "ZELMOR_FIRMWARE_SERVER";
inline constexpr uint16_t kFirmwareServerDefaultPort = 80;

/// Where the firmware files are served over HTTP. There is no built-in
/// server: without a setting no update is ever looked for.
struct FirmwareServerAddress {
    std::string host;  // a name, an IPv4 address, or an IPv6 address without brackets
    uint16_t port = kFirmwareServerDefaultPort;
};

/// A server, or the reason the text does not name one.
struct FirmwareServerSetting {
    std::optional<FirmwareServerAddress> server;
    std::string error;  // empty when the setting is sound, server or not
};

/// Reads "host", "host:port" or "[v6 address]:port"; the port is 1..65535 and
/// 80 when left out.
FirmwareServerSetting parseFirmwareServer(std::string_view text);

/// The server of the command-line option when it is given (not empty), else
/// that of ZELMOR_FIRMWARE_SERVER, else none. An error names where the bad
/// value came from.
FirmwareServerSetting firmwareServerSetting(std::string_view option = {});

/// "http://host[:port]" followed by firmwareFilePath(hardwareRevision,
/// currentFirmwareVersion); empty without a server or when no update is
/// offered for the model. The port is written only when it is not 80.
std::string firmwareFileUrl(std::optional<FirmwareServerAddress> const& server, uint8_t hardwareRevision,
                            uint16_t currentFirmwareVersion);
