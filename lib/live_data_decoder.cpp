#include "live_data_decoder.h"

#include "byte_io.h"
#include "hardware_revision.h"
#include "records.h"

std::optional<Zelmor::MonitorData> decodeLiveDataFrame(uint8_t const* frame, size_t length) {
    if (length < 3) return std::nullopt;
    uint8_t const revision = frame[2];
    bool const full = modelFamily(revision) == 0x20 && length == LiveDataDecoder::kFullFrameSize;
    bool const shortForm = modelFamily(revision) == 0x30 && length == LiveDataDecoder::kShortFrameSize;
    if (!full && !shortForm) return std::nullopt;

    ByteReader r(frame, length);
    Zelmor::MonitorData m;
    m.firmwareVersion = r.read<uint16_t>();
    m.hardwareRevision = r.read<uint8_t>();
    readMonitorReadings(r, m, full);
    return m;
}

void LiveDataDecoder::feed(uint8_t const* data, size_t length,
                           std::function<void(Zelmor::MonitorData&)> const& deliver) {
    bool abandoned = false;
    // Byte by byte, so that a bad frame can stop the notification where it ends.
    for (size_t i = 0; i < length && !abandoned; ++i) {
        decoder_.feed(data + i, 1, [&](uint8_t* frame, size_t n) {
            /* Frames too short to name a revision are skipped; the rest must fit their revision. */
            if (n < 3) return;
            std::optional<Zelmor::MonitorData> record = decodeLiveDataFrame(frame, n);
            if (!record) {
                abandoned = true;
                return;
            }
            deliver(*record);
        });
    }
}
