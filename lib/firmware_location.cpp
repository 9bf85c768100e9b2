#include "firmware_location.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <string_view>

namespace {

struct LocationRow {
    uint8_t revision;
    std::string_view pathBeforeVersion;
};

// The revisions missing here (0x12 and up, 0x20-0x22, 0x25, ...) are left out on
// purpose: no update is offered to them.
// clang-format off
constexpr LocationRow kLocations[] = {
    {0x10, "/fwup/zlmrk/zlmrk_fw_dfu_from_"},
    {0x11, "/fwup/zlmrk/zlmrk_fw_dfu_from_"},
    {0x23, "/fwup/zlmrble/zlmr_ble_fw_dfu_from_"},
    {0x24, "/fwup/zlmrble/zlmr_ble_fw_dfu_from_"},
    {0x26, "/fwup/zlmrble/zlmr_ble_fw_dfu_from_"},
    {0x27, "/fwup/zlmrble/zlmr_ble_fw_dfu_from_"},
    {0x30, "/fwup/zlmrble/zlmr_ble_fw_dfu_from_"},
    {0x31, "/fwup/zlmrble/zlmr_ble_fw_dfu_from_"},
    {0x40, "/fwup/zlmrv/zlmrv_fw_dfu_from_"},
    {0x41, "/fwup/zlmrv2/zlmrv2_fw_dfu_from_"},
};
// clang-format on

}  // namespace

std::string firmwareFilePath(uint8_t hardwareRevision, uint16_t currentFirmwareVersion) {
    auto const row = std::find_if(std::begin(kLocations), std::end(kLocations),
                                  [&](LocationRow const& r) { return r.revision == hardwareRevision; });
    if (row == std::end(kLocations)) return {};
    return fmt::format("{}{:04x}.bin", row->pathBeforeVersion, currentFirmwareVersion);
}
