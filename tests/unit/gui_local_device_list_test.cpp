// The rows behind "Local Devices": which rows a batch of sightings adds or
// changes, which rows age out, and the inbox that gathers the batches from the
// scanner's threads.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "local_device_list.h"
#include "sighting_inbox.h"

namespace {

using Advertisement = ZelmorScanner::Advertisement;
constexpr int kVoltageColumn = 4;

Advertisement sighting(uint64_t serial, float voltage) {
    Advertisement ad;
    ad.serial = serial;
    ad.voltage1 = voltage;
    return ad;
}

std::vector<uint64_t> serials(std::vector<Advertisement> const& sightings) {
    std::vector<uint64_t> out;
    for (Advertisement const& ad : sightings) out.push_back(ad.serial);
    return out;
}

TEST(LocalDeviceListTest, BatchesAppendNewSerialsAndNameTheRowsWhoseCellsChanged) {
    struct Step {
        std::vector<std::pair<uint64_t, float>> sightings;
        int64_t receivedMs;
        size_t added;
        std::vector<size_t> rewritten;
    };
    Step const steps[] = {
        {{{3, 12.0f}, {1, 12.0f}}, 0, 2, {}},
        // The same readings change no cell; a new serial goes at the end.
        {{{1, 12.0f}, {2, 13.0f}, {3, 12.5f}}, 100, 1, {0}},
        // Rows in order and once each, however the batch lists them.
        {{{2, 13.1f}, {2, 13.2f}, {1, 12.1f}}, 9000, 0, {1, 2}},
        // A row added and changed in one batch is only added.
        {{{4, 11.0f}, {4, 11.5f}}, 50, 1, {}},
    };
    LocalDeviceList list;
    for (size_t i = 0; i < std::size(steps); ++i) {
        SCOPED_TRACE(i);
        std::vector<Advertisement> batch;
        for (auto const& [serial, voltage] : steps[i].sightings) batch.push_back(sighting(serial, voltage));
        LocalDeviceList::Changes const changes = list.take(batch, steps[i].receivedMs);
        EXPECT_EQ(changes.added, steps[i].added);
        EXPECT_EQ(changes.rewritten, steps[i].rewritten);
    }
    std::vector<std::string> shown;
    for (auto const& entry : list.entries()) shown.push_back(entry.cells[kVoltageColumn]);
    EXPECT_EQ(shown, (std::vector<std::string>{"12.500 V", "12.100 V", "13.200 V", "11.500 V"}));

    // Rows of serials 3 (at 100 ms) and 4 (at 50 ms) age out together.
    EXPECT_TRUE(list.age(10049).empty()) << "9999 ms is not yet too old";
    EXPECT_EQ(list.age(10101), (std::vector<size_t>{3, 0}));
    std::pair<uint64_t, std::optional<size_t>> const rows[] = {{1, 0}, {2, 1}, {3, std::nullopt}, {4, std::nullopt}};
    for (auto const& [serial, row] : rows) EXPECT_EQ(list.rowOf(serial), row) << serial;
    // An aged-out device that comes back is new again.
    EXPECT_EQ(list.take(std::vector{sighting(3, 12.0f), sighting(2, 13.2f)}, 10200).added, 1u);
    EXPECT_EQ(list.rowOf(3), 2u);
}

TEST(SightingInboxTest, KeepsTheLatestSightingOfEachSerialAndWakesOnlyWhenItWasEmpty) {
    // Each put with whether it found the inbox empty; take() after the marked ones.
    struct Put {
        uint64_t serial;
        float voltage;
        bool woke;
        bool takeAfter;
    };
    Put const puts[] = {
        {7, 12.0f, true, false}, {5, 12.0f, false, false}, {7, 12.5f, false, true},
        {5, 13.0f, true, true},  {9, 11.0f, true, false},
    };
    SightingInbox inbox;
    std::vector<std::vector<Advertisement>> taken;
    for (Put const& put : puts) {
        SCOPED_TRACE(put.serial);
        EXPECT_EQ(inbox.put(sighting(put.serial, put.voltage)), put.woke);
        if (put.takeAfter) taken.push_back(inbox.take());
    }
    taken.push_back(inbox.take());
    ASSERT_EQ(taken.size(), 3u);
    EXPECT_EQ(serials(taken[0]), (std::vector<uint64_t>{7, 5}));
    EXPECT_FLOAT_EQ(taken[0][0].voltage1, 12.5f);
    EXPECT_EQ(serials(taken[1]), (std::vector<uint64_t>{5}));
    EXPECT_EQ(serials(taken[2]), (std::vector<uint64_t>{9}));
    EXPECT_TRUE(inbox.take().empty());
}

}  // namespace
