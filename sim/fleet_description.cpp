#include "fleet_description.h"

#include <fmt/core.h>

#include <nlohmann/json.hpp>

#include "device_link.h"
#include "hardware_revision.h"
#include "hex.h"
#include "logging_mode.h"
#include "simulated_device.h"
#include "zelmor_config.h"

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

std::string deviceSummary(DevicePlan const& plan, SimulatedDevice& device) {
    DeviceSnapshot const snapshot = device.snapshot();
    std::string line = fmt::format("{:<11} {}  \"{}\"  serial {:016X}", addressText(plan.address),
                                   modelName(snapshot.hardwareRevision), snapshot.name, snapshot.serial);
    if (!plan.userPassword.empty()) line += fmt::format("  user password \"{}\"", plan.userPassword);
    if (!plan.masterPassword.empty()) line += fmt::format("  master password \"{}\"", plan.masterPassword);
    if (!plan.announced) line += "  silent";
    if (isWifiFamily(plan.hardwareRevision) && plan.wifi == WifiKind::OneNetwork) line += "  keeps one WiFi network";
    return line + "  " + deviceLink(device);
}

std::string devicePorcelain(DevicePlan const& plan, SimulatedDevice& device, FleetPlan const& fleet) {
    DeviceSnapshot const snapshot = device.snapshot();
    Zelmor::WifiAccessKey const key = device.accessKey();
    nlohmann::ordered_json line{
        {"address", addressText(plan.address)},
        {"port", plan.served ? nlohmann::ordered_json(fleet.devicePort) : nlohmann::ordered_json()},
        {"hub", plan.served && fleet.hub ? nlohmann::ordered_json(endpointText(*fleet.hub)) : nlohmann::ordered_json()},
        {"model", modelName(snapshot.hardwareRevision)},
        {"hardware_revision", snapshot.hardwareRevision},
        {"serial", fmt::format("{:016X}", snapshot.serial)},
        {"name", snapshot.name},
        {"user_password", plan.userPassword},
        {"master_password", plan.masterPassword},
        // What the device logs at: the logging mode nearest the interval asked for.
        {"log_interval", loggingIntervalSeconds(ZelmorConfig(snapshot.config).dataLoggingMode()).value_or(0)},
        {"history_days", plan.historyDays},
        {"channel_id", hexEncode(key.keyId.data(), key.keyId.size())},
        {"link", deviceLink(device)},
    };
    // Names and passwords come from the command line and may not be UTF-8.
    return line.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

}  // namespace sim
