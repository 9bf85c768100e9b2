#include "live_data_frame.h"

#include "byte_io.h"
#include "hardware_revision.h"

namespace sim {

std::vector<uint8_t> encodeLiveDataFrame(uint16_t firmwareVersion, uint8_t hardwareRevision, MonitorReadings const& r) {
    bool const secondVoltage = hasSecondVoltage(hardwareRevision);
    std::vector<uint8_t> frame;
    frame.reserve(secondVoltage ? kLiveDataFrameSize : kLiveDataShortFrameSize);
    ByteWriter w(frame);
    w.write<uint16_t>(firmwareVersion).write<uint8_t>(hardwareRevision).write<uint32_t>(r.time);
    w.write<uint32_t>(r.status).write<float>(r.voltage1);
    if (secondVoltage) w.write<float>(r.voltage2);
    w.write<float>(r.current).write<float>(r.power);
    w.write<int64_t>(r.coulombMeter).write<int64_t>(r.energyMeter).write<float>(r.temperature);
    w.write<uint8_t>(static_cast<uint8_t>(r.powerStatus)).write<uint8_t>(r.stateOfCharge).write<uint16_t>(r.runtime);
    return frame;
}

}  // namespace sim
