#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "zelmor.h"

/// A firmware or program version as the windows show it, "%X.%02X": the high
/// byte, then the low byte as two hexadecimal digits (0x0113 is "1.13").
std::string versionText(uint16_t version);

/// What the device window's About dialog says about the program and the
/// device, top to bottom, in three groups.
struct AboutIdentity {
    /// "Zelmor Manager v0.21."
    std::string program;
    /// "Device name: ...", "Device model: ...", "Device serial: ..." (16
    /// hexadecimal digits) and "Firmware: v1.12".
    std::vector<std::string> device;
    /// "Device IP Address: 127.0.0.2" for the LAN and WiFi models, "Device
    /// Bluetooth Address: C2:5A:4C:00:00:01" for every other.
    std::string address;
};

AboutIdentity aboutIdentity(Zelmor::DeviceInfo const& info);

/// The check's time-out in whole seconds, as wxHTTP counts it: the
/// milliseconds of `setting` (ZELMOR_FIRMWARE_TIMEOUT_MS, a number from 1)
/// rounded up, else the 20 seconds of every firmware download.
unsigned firmwareCheckTimeoutSeconds(char const* setting);

/// What the result label says while the file is fetched.
inline constexpr char kCheckingForUpdate[] = "Checking for firmware update ...";

/// An update is offered when the file held a sound image (`availableVersion`
/// not 0) of a version numerically above the one the device runs.
bool updateOffered(uint16_t deviceVersion, uint16_t availableVersion);

/// The result label once the check has ended: "Firmware update to version
/// 1.13 is available", or "No firmware update is available at the moment".
std::string updateCheckText(uint16_t deviceVersion, uint16_t availableVersion);

/// What the progress dialog shows for a progress report: the label "%u of %u
/// bytes", and the gauge's new value, done × 100 / total, or nothing when the
/// total is 0 (the gauge stays as it is).
struct TransferProgressShown {
    std::string label;
    std::optional<int> gauge;
};

TransferProgressShown transferProgressShown(uint32_t done, uint32_t total);

/// How the progress dialog ends, its ShowModal result.
enum class FirmwareTransferEnd : int {
    Updated = 0,    // the device took the image
    Failed = 1,     // any failure on the way
    Stopped = 2,    // stopped on the user's request
    NotStarted = 3  // closed before the transfer was running
};

/// The end a transfer's completion code gives: Updated for success, Stopped
/// for a transfer stopped on request (Cancelled), Failed for every other.
FirmwareTransferEnd firmwareTransferEnd(Zelmor::ResponseCode code);

/// What the About dialog does after the progress dialog ended with `result`.
struct AfterFirmwareTransfer {
    bool showError;  // "Firmware update error." first
    bool close;      // the About dialog ends
    bool updated;    // ... as confirmed (OK), else cancelled
};

AfterFirmwareTransfer afterFirmwareTransfer(int result);

/// The error box text after a failed transfer.
inline constexpr char kFirmwareUpdateError[] = "Firmware update error.";
/// The question asked before the transfer starts.
inline constexpr char kFirmwareUpdateQuestion[] =
    "You are about to update the firmware in your Zelmor device. \nDo not disconnect the power, sit back and relax.";
/// What the device window tells once the device took a new image.
inline constexpr char kFirmwareReceived[] =
    "Your Zelmor just received brand new firmware.\nIt will now disconnect and update itself.\n\nDO NOT DISCONNECT "
    "THE POWER TO THE DEVICE UNTIL IT COMES BACK ON !";
