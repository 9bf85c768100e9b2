// The sightings behind the "Local Devices" list: rows replaced in place by
// serial, new devices at the end, and ageing after ten seconds of silence.
#include "local_device_list.h"

#include <gtest/gtest.h>

namespace {

ZelmorScanner::Advertisement sighting(uint64_t serial, float voltage1 = 12.0f) {
    ZelmorScanner::Advertisement ad;
    ad.serial = serial;
    ad.voltage1 = voltage1;
    return ad;
}

std::vector<uint64_t> serials(LocalDeviceList const& list) {
    std::vector<uint64_t> out;
    for (auto const& entry : list.entries()) out.push_back(entry.advertisement.serial);
    return out;
}

TEST(LocalDeviceListTest, SameSerialRewritesItsRowInPlace) {
    LocalDeviceList list;
    EXPECT_EQ(list.take(sighting(7), 0).row, 0u);
    LocalDeviceList::Placement const second = list.take(sighting(9), 10);
    EXPECT_TRUE(second.added);
    EXPECT_EQ(second.row, 1u);

    LocalDeviceList::Placement const again = list.take(sighting(7, 13.5f), 20);
    EXPECT_FALSE(again.added);
    EXPECT_EQ(again.row, 0u);
    EXPECT_EQ(serials(list), (std::vector<uint64_t>{7, 9}));
    EXPECT_EQ(list.entries()[0].advertisement.voltage1, 13.5f);
    EXPECT_EQ(list.entries()[0].receivedMs, 20);
}

TEST(LocalDeviceListTest, EntriesSilentForTenSecondsAreRemovedHighestRowFirst) {
    LocalDeviceList list;
    list.take(sighting(1), 0);
    list.take(sighting(2), 5000);
    list.take(sighting(3), 1);
    list.take(sighting(4), 9000);

    EXPECT_TRUE(list.age(9999).empty()) << "9999 ms is not yet too old";
    EXPECT_EQ(list.age(10001), (std::vector<size_t>{2, 0}));
    EXPECT_EQ(serials(list), (std::vector<uint64_t>{2, 4}));
    EXPECT_EQ(list.age(18000), (std::vector<size_t>{0}));
    EXPECT_EQ(serials(list), (std::vector<uint64_t>{4}));
}

}  // namespace
