// The sightings behind the "Local Devices" list: rows replaced in place by
// serial, new devices at the end, and ageing after ten seconds of silence.
#include "local_device_list.h"

#include <gtest/gtest.h>

namespace {

std::vector<uint64_t> serials(LocalDeviceList const& list) {
    std::vector<uint64_t> out;
    for (auto const& entry : list.entries()) out.push_back(entry.advertisement.serial);
    return out;
}

TEST(LocalDeviceListTest, SameSerialRewritesItsRowAndSilentRowsGoHighestFirst) {
    struct Sighting {
        uint64_t serial;
        int64_t receivedMs;
        size_t row;
        bool added;
    };
    Sighting const sightings[] = {
        {3, 1, 0, true}, {1, 0, 1, true}, {2, 5000, 2, true}, {3, 9000, 0, false}, {4, 1, 3, true}};
    LocalDeviceList list;
    for (auto const& sighting : sightings) {
        ZelmorScanner::Advertisement ad;
        ad.serial = sighting.serial;
        LocalDeviceList::Placement const placement = list.take(ad, sighting.receivedMs);
        EXPECT_EQ(placement.row, sighting.row) << sighting.serial;
        EXPECT_EQ(placement.added, sighting.added) << sighting.serial;
    }
    EXPECT_EQ(list.entries()[0].receivedMs, 9000);

    EXPECT_TRUE(list.age(9999).empty()) << "9999 ms is not yet too old";
    EXPECT_EQ(list.age(10001), (std::vector<size_t>{3, 1}));
    EXPECT_EQ(serials(list), (std::vector<uint64_t>{3, 2}));
    EXPECT_EQ(list.age(15000), (std::vector<size_t>{1}));
    EXPECT_EQ(serials(list), (std::vector<uint64_t>{3}));
}

}  // namespace
