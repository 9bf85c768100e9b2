#include "firmware_update_text.h"

#include <algorithm>
#include <limits>

#include <fmt/core.h>

#include "about_text.h"
#include "bluetooth_address.h"
#include "firmware_download.h"
#include "hardware_revision.h"
#include "local_device_cells.h"
#include "millisecond_setting.h"

namespace {

// The record carries the address's fields in the order they are written.
uint64_t bluetoothAddressValue(std::array<uint8_t, 6> const& fields) {
    uint64_t value = 0;
    for (uint8_t field : fields) value = value << 8 | field;
    return value;
}

}  // namespace

std::string versionText(uint16_t version) { return fmt::format("{:X}.{:02X}", version >> 8, version & 0xFF); }

AboutIdentity aboutIdentity(Zelmor::DeviceInfo const& info) {
    AboutIdentity identity;
    identity.program = programLine();
    identity.device = {
        "Device name: " + info.name,
        fmt::format("Device model: {}", modelName(info.hardwareRevision)),
        fmt::format("Device serial: {:016X}", info.serial),
        "Firmware: v" + versionText(info.firmwareVersion),
    };
    identity.address =
        isNetworkModel(info.hardwareRevision)
            ? "Device IP Address: " + ipv4Text(info.ipAddress)
            : "Device Bluetooth Address: " + formatBluetoothAddress(bluetoothAddressValue(info.bluetoothAddress));
    return identity;
}

unsigned firmwareCheckTimeoutSeconds(char const* setting) {
    long const milliseconds = millisecondSetting(setting, kFirmwareDownloadTimeoutMs);
    long const seconds = milliseconds / 1000 + (milliseconds % 1000 != 0 ? 1 : 0);
    return static_cast<unsigned>(std::min<long>(seconds, std::numeric_limits<unsigned>::max()));
}

bool updateOffered(uint16_t deviceVersion, uint16_t availableVersion) {
    return availableVersion != 0 && deviceVersion < availableVersion;
}

std::string updateCheckText(uint16_t deviceVersion, uint16_t availableVersion) {
    if (!updateOffered(deviceVersion, availableVersion)) return "No firmware update is available at the moment";
    return fmt::format("Firmware update to version {} is available", versionText(availableVersion));
}

TransferProgressShown transferProgressShown(uint32_t done, uint32_t total) {
    TransferProgressShown shown{fmt::format("{} of {} bytes", done, total), std::nullopt};
    if (total != 0) shown.gauge = static_cast<int>(uint64_t{done} * 100 / total);
    return shown;
}

FirmwareTransferEnd firmwareTransferEnd(Zelmor::ResponseCode code) {
    if (code == Zelmor::ResponseCode::Success) return FirmwareTransferEnd::Updated;
    if (code == Zelmor::ResponseCode::Cancelled) return FirmwareTransferEnd::Stopped;
    return FirmwareTransferEnd::Failed;
}

AfterFirmwareTransfer afterFirmwareTransfer(int result) {
    switch (static_cast<FirmwareTransferEnd>(result)) {
        case FirmwareTransferEnd::Updated:
            return {false, true, true};
        case FirmwareTransferEnd::Stopped:
            return {false, true, false};
        case FirmwareTransferEnd::Failed:
            return {true, true, false};
        case FirmwareTransferEnd::NotStarted:
            break;
    }
    return {false, false, false};
}
