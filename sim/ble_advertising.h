#pragma once

#include "ble_manufacturer_data.h"

namespace sim {

class SimulatedDevice;

/// The manufacturer data a Bluetooth LE model puts in its advertisements at
/// this moment: its identity and its latest readings, in the 29-byte form of
/// ble_manufacturer_data.h, under kZelmorCompanyId.
ManufacturerData advertisedManufacturerData(SimulatedDevice& device);

}  // namespace sim
