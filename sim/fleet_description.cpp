#include "fleet_description.h"

#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "device_link.h"
#include "hardware_revision.h"
#include "hex.h"
#include "simulated_device.h"

namespace sim {

std::string deviceLink(SimulatedDevice& device) {
    DeviceSnapshot const snapshot = device.snapshot();
    Zelmor::WifiAccessKey const key = device.accessKey();
    Zelmor::DeviceIdentifier id;
    id.name = snapshot.name;
    id.serial = snapshot.serial;
    id.hardwareRevision = snapshot.hardwareRevision;
    id.channelId = key.keyId;
    id.key = key.key;
    return makeDeviceLink(id);
}

std::string deviceSummary(DeviceSpec const& spec, SimulatedDevice& device) {
    DeviceSnapshot const snapshot = device.snapshot();
    std::string line = fmt::format("{:<11} {}  \"{}\"  serial {:016X}", addressText(spec.address),
                                   modelName(snapshot.hardwareRevision), snapshot.name, snapshot.serial);
    if (!spec.userPassword.empty()) line += fmt::format("  user password \"{}\"", spec.userPassword);
    if (!spec.masterPassword.empty()) line += fmt::format("  master password \"{}\"", spec.masterPassword);
    return line + "  " + deviceLink(device);
}

std::string devicePorcelain(DeviceSpec const& spec, SimulatedDevice& device, FleetSpec const& fleet) {
    DeviceSnapshot const snapshot = device.snapshot();
    Zelmor::WifiAccessKey const key = device.accessKey();
    nlohmann::ordered_json line{
        {"address", addressText(spec.address)},
        {"port", fleet.devicePort},
        {"hub", fleet.hub ? nlohmann::ordered_json(endpointText(*fleet.hub)) : nlohmann::ordered_json()},
        {"model", modelName(snapshot.hardwareRevision)},
        {"hardware_revision", snapshot.hardwareRevision},
        {"serial", fmt::format("{:016X}", snapshot.serial)},
        {"name", snapshot.name},
        {"user_password", spec.userPassword},
        {"master_password", spec.masterPassword},
        {"log_interval", spec.logIntervalSeconds},
        {"history_days", spec.historyDays},
        {"channel_id", hexEncode(key.keyId.data(), key.keyId.size())},
        {"link", deviceLink(device)},
    };
    // Names and passwords come from the command line and may not be UTF-8.
    return line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace sim
