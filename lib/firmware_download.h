#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// How long one download may take, unless ZELMOR_FIRMWARE_TIMEOUT_MS (a
/// number of milliseconds from 1) says otherwise.
inline constexpr long kFirmwareDownloadTimeoutMs = 20000;
inline constexpr char kFirmwareTimeoutVariable[] = "ZELMOR_FIRMWARE_TIMEOUT_MS";
/// No device takes a larger file; a body beyond it is not read on.
inline constexpr size_t kMaxFirmwareDownloadSize = 16u << 20;

enum class FirmwareDownloadStatus {
    Downloaded,
    NotFound,   // the server answered 404: it has no file there
    Failed,     // no connection, time-out, another HTTP status, a short body
    Cancelled,  // the caller's predicate asked to stop
};

struct FirmwareDownload {
    FirmwareDownloadStatus status = FirmwareDownloadStatus::Failed;
    std::vector<uint8_t> body;
    std::string error;  // for Failed: what went wrong, for a person
};

/// Fetches `url` (http only) with one GET, blocking. Redirects are never
/// followed and no proxy is used, so the request goes to the host of the URL
/// and nowhere else. `keepGoing`, when given, is asked now and then and
/// cancels the download by returning false.
FirmwareDownload downloadFirmware(std::string const& url, std::function<bool()> const& keepGoing = {});
