#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// A firmware file is a 20-byte little-endian header and the payload:
//   0  u32  CRC-32 of every byte from offset 4 to the end of the file
//   4  8    magic of the model family, ASCII without terminator
//  12  u16  firmware version, four BCD digits
//  14  u16  second version field, four BCD digits
//  16  u32  payload length

/// Size of the header in front of the payload.
inline constexpr size_t kFirmwareHeaderSize = 20;

/// The version of `image` if it is a sound update for the model
/// `hardwareRevision`, else 0. Checked in order: CRC, family magic ("ZLMRWIFI"
/// for 0x4_, "ZLMRETHN" for 0x1_, "ZLMRBLE0" for every other), both versions
/// being BCD, and the payload length matching the file. Never reads outside
/// the `length` bytes given.
uint16_t checkFirmwareImage(uint8_t const* image, size_t length, uint8_t hardwareRevision);

/// A file that checkFirmwareImage accepts for `hardwareRevision` when both
/// versions are BCD; used by the simulator and the tests.
std::vector<uint8_t> buildFirmwareImage(uint8_t hardwareRevision, uint16_t version, uint16_t secondVersion,
                                        std::vector<uint8_t> const& payload);
