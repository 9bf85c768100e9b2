#pragma once

#include "zelmor_scanner.h"

namespace sim {

class SimulatedDevice;

/// What a device tells the world about itself at this moment, whichever way it
/// announces it (LAN datagram or Bluetooth LE advertisement): identity and
/// latest readings. The signal strength is the WiFi models' own.
ZelmorScanner::Advertisement advertisementOf(SimulatedDevice& device);

}  // namespace sim
