// A Bluetooth LE device's notifications feed the live-data decoder, and its
// advertisements the manufacturer-data decoder: any bytes must decode to a
// record that fits the revision, or to nothing.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "ble_manufacturer_data.h"
#include "cobs.h"
#include "hardware_revision.h"
#include "live_data_decoder.h"

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    LiveDataDecoder decoder;
    // Split into notifications the way a link might: the first byte says where.
    size_t const cut = size > 0 ? data[0] % (size + 1) : 0;
    auto check = [](Zelmor::MonitorData& record) {
        uint8_t const family = modelFamily(record.hardwareRevision);
        // The short form has no second voltage; the full form may carry any bits.
        if ((family != 0x20 && family != 0x30) || (family == 0x30 && !std::isnan(record.voltage2))) std::abort();
    };
    decoder.feed(data, cut, check);
    decoder.feed(data + cut, size - cut, check);

    ZelmorScanner::Advertisement advertisement;
    if (decodeManufacturerData(data, size, advertisement) && size != kManufacturerDataSize) std::abort();
    return 0;
}

extern "C" void zelmorFuzzSeeds(std::vector<std::vector<uint8_t>>& seeds) {
    for (auto const& [revision, length] : {std::pair<uint8_t, size_t>{0x23, 51}, {0x30, 47}, {0x30, 51}}) {
        std::vector<uint8_t> frame(length, 0x11);
        frame[2] = revision;
        std::vector<uint8_t> encoded;
        cobsEncode(frame.data(), frame.size(), encoded);
        encoded.insert(encoded.begin(), static_cast<uint8_t>(encoded.size() / 2));
        seeds.push_back(encoded);
    }
    seeds.emplace_back(kManufacturerDataSize, 0x23);  // from a 0x23 model
}
