#include "ble_advertising.h"

#include "device_advertisement.h"

namespace sim {

ManufacturerData advertisedManufacturerData(SimulatedDevice& device) {
    return encodeManufacturerData(advertisementOf(device));
}

}  // namespace sim
