#include "firmware_update.h"

#include <cstring>

#include "byte_io.h"
#include "crc32.h"
#include "hardware_revision.h"

namespace sim {

namespace {

constexpr size_t kHeaderSize = 20;
constexpr size_t kMagicSize = 8;

struct FamilyMagic {
    uint8_t family;
    char magic[kMagicSize + 1];
};

constexpr FamilyMagic kMagics[] = {{0x40, "ZLMRWIFI"}, {0x10, "ZLMRETHN"}};
constexpr char kBluetoothMagic[] = "ZLMRBLE0";

char const* magicFor(uint8_t hardwareRevision) {
    for (FamilyMagic const& m : kMagics)
        if (m.family == modelFamily(hardwareRevision)) return m.magic;
    return kBluetoothMagic;
}

bool isBcd(uint16_t value) {
    for (int shift = 0; shift < 16; shift += 4)
        if (((value >> shift) & 0xF) > 9) return false;
    return true;
}

}  // namespace

Status FirmwareUpdate::start(uint32_t size) {
    if (size < kMinImageSize || size > kMaxImageSize) return Status::InvalidParameter;
    // A new start discards whatever an earlier transfer left behind.
    progress_ = FirmwareUpdateProgress{size, 0, 0, true, false};
    image_.clear();
    image_.reserve(size);
    return Status::Success;
}

Status FirmwareUpdate::append(uint8_t const* data, size_t length) {
    if (!progress_.inProgress) return Status::RequestFailed;
    if (length == 0 || length > kMaxBlockSize) return Status::InvalidParameter;
    if (image_.size() + length > progress_.announcedSize) return Status::InvalidParameter;
    image_.insert(image_.end(), data, data + length);
    progress_.bytesReceived = static_cast<uint32_t>(image_.size());
    ++progress_.blocksReceived;
    return Status::Success;
}

std::optional<uint16_t> FirmwareUpdate::finish(uint8_t hardwareRevision) {
    if (!progress_.inProgress) return std::nullopt;
    // The transfer ends whatever the outcome: after a failure the host starts over.
    progress_.inProgress = false;
    std::optional<uint16_t> version;
    if (image_.size() == progress_.announcedSize)
        version = validateFirmwareImage(image_.data(), image_.size(), hardwareRevision);
    progress_.finished = version.has_value();
    image_.clear();
    image_.shrink_to_fit();
    return version;
}

void FirmwareUpdate::abandon() {
    progress_.inProgress = false;
    image_.clear();
    image_.shrink_to_fit();
}

std::optional<uint16_t> validateFirmwareImage(uint8_t const* image, size_t size, uint8_t hardwareRevision) {
    if (size < kHeaderSize) return std::nullopt;
    if (readLe<uint32_t>(image) != crc32Of(image + 4, size - 4)) return std::nullopt;
    if (std::memcmp(image + 4, magicFor(hardwareRevision), kMagicSize) != 0) return std::nullopt;
    if (readLe<uint32_t>(image + 16) + kHeaderSize != size) return std::nullopt;
    auto const version = readLe<uint16_t>(image + 12);
    if (!isBcd(version)) return std::nullopt;
    return version;
}

}  // namespace sim
