#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>

#include "cobs.h"
#include "zelmor.h"

/// The live readings that the Bluetooth LE models push on their live-data
/// characteristic: COBS-framed records, 51 bytes from the 0x2_ models (with the
/// second voltage), 47 bytes from the 0x3_ models (without). The network models
/// are polled instead and never push.
class LiveDataDecoder {
public:
    static constexpr size_t kFullFrameSize = 51;
    static constexpr size_t kShortFrameSize = 47;

    /// Feeds one notification's bytes; `deliver` gets every record completed by
    /// them. A frame whose revision does not match its length (or is not a
    /// Bluetooth LE model's) abandons the rest of the notification.
    void feed(uint8_t const* data, size_t length, std::function<void(Zelmor::MonitorData&)> const& deliver);
    /// Forgets a partly received frame: a new link starts clean.
    void reset() { decoder_.reset(); }

private:
    // Frames are a few dozen bytes; anything much longer is noise.
    static constexpr size_t kMaxBodyLength = 256;
    CobsStreamDecoder decoder_{kMaxBodyLength};
};

/// One decoded frame: firmware version, revision, then the readings in wire
/// order; voltage 2 is NaN in the short form, the signal strength -32768.
/// Nothing when the length does not fit the revision.
std::optional<Zelmor::MonitorData> decodeLiveDataFrame(uint8_t const* frame, size_t length);
