#pragma once

#include <cstdint>
#include <string>

/// Where the update for a device lies: the path of the file that updates the
/// model `hardwareRevision` from `currentFirmwareVersion` (written as four
/// lower-case hex digits), e.g. "/fwup/zlmrv2/zlmrv2_fw_dfu_from_0123.bin".
/// An empty text when no update is offered for the revision.
std::string firmwareFilePath(uint8_t hardwareRevision, uint16_t currentFirmwareVersion);
