#pragma once

#include <string>

#include "fleet_plan.h"

namespace sim {

class SimulatedDevice;

/// The link that adds the device as a remote device, reached through the hub:
/// name, serial, revision and the device's present access key.
std::string deviceLink(SimulatedDevice& device);

/// One line for a person: address, model, name, serial, passwords if any, and
/// the device link.
std::string deviceSummary(DevicePlan const& plan, SimulatedDevice& device);

/// One JSON object on one line for programs and tests; its keys are listed in
/// docs/simulated-device.md and stay as they are.
std::string devicePorcelain(DevicePlan const& plan, SimulatedDevice& device, FleetPlan const& fleet);

}  // namespace sim
