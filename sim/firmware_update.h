#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "device_protocol.h"

namespace sim {

/// Where a firmware transfer stands, for tests and the demo.
struct FirmwareUpdateProgress {
    uint32_t announcedSize = 0;
    uint32_t bytesReceived = 0;
    uint32_t blocksReceived = 0;
    bool inProgress = false;  // started and not yet finished
    bool finished = false;    // the last transfer ended with a valid image
};

/// Receives a firmware image in blocks (commands 0xF0, 0xF1, 0xF2) and checks
/// it before the device takes its version.
class FirmwareUpdate {
public:
    static constexpr uint32_t kMinImageSize = 20;
    static constexpr uint32_t kMaxImageSize = 4u << 20;
    static constexpr size_t kMaxBlockSize = 4096;

    Status start(uint32_t size);
    Status append(uint8_t const* data, size_t length);
    /// Ends the transfer; the version of a complete and valid image, or nothing.
    std::optional<uint16_t> finish(uint8_t hardwareRevision);
    /// A reboot abandons a transfer in progress.
    void abandon();
    FirmwareUpdateProgress progress() const { return progress_; }

private:
    FirmwareUpdateProgress progress_;
    std::vector<uint8_t> image_;
};

/// The version an image carries when it is valid for a device of this
/// revision: CRC-32 at offset 0 over everything after it, the family's 8-byte
/// magic at offset 4, the BCD version at 12, the payload length at 16 with the
/// 20-byte header making up the rest.
std::optional<uint16_t> validateFirmwareImage(uint8_t const* image, size_t size, uint8_t hardwareRevision);

}  // namespace sim
