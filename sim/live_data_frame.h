#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "device_state.h"
#include "live_data_decoder.h"

namespace sim {

/// The live-data record of the 0x2_ models, which measure a second voltage.
inline constexpr size_t kLiveDataFrameSize = LiveDataDecoder::kFullFrameSize;
/// The 0x3_ models leave the second voltage out.
inline constexpr size_t kLiveDataShortFrameSize = LiveDataDecoder::kShortFrameSize;

/// The record a Bluetooth LE model pushes every second on its live-data
/// characteristic, before line coding: firmware version, hardware revision,
/// then the readings in the order of the 0x04 answer, little-endian. The
/// second voltage is there only for revisions that measure one.
std::vector<uint8_t> encodeLiveDataFrame(uint16_t firmwareVersion, uint8_t hardwareRevision,
                                         MonitorReadings const& readings);

}  // namespace sim
