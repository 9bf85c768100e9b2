// The BlueZ scanner's listening thread: the callback stopping, restarting and
// destroying its own scanner, and a start after the thread ended by itself
// because its bus connection was lost.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <functional>
#include <memory>
#include <sstream>

#include "bluetooth_le_scanner.h"
#include "fake_bluez.h"
#include "process_view.h"
#include "reports.h"

namespace {

using Advertisement = BluetoothLEScanner::Advertisement;

constexpr int16_t kAddedRssi = -79;  // what the fake gives a device it adds

/// Calls on the scanner each of `calls` ("stop", "start", "destroy"); false
/// when one fails.
bool callIn(std::unique_ptr<BluetoothLEScanner>& scanner, std::string const& calls) {
    std::istringstream words(calls);
    bool done = true;
    for (std::string word; words >> word;) {
        if (word == "stop") done = scanner->stop() && done;
        if (word == "start") done = scanner->start() && done;
        if (word == "destroy") scanner.reset();
    }
    return done;
}

TEST(BluetoothLEScannerThread, CallbackMayStopStartAndDestroyItsScanner) {
    std::pair<char const*, bool> const cases[] = {{"stop", false}, {"stop start", true}, {"destroy", false}};
    FakeBlueZ& fake = FakeBlueZ::instance();
    for (auto const& [calls, listening] : cases) {
        SCOPED_TRACE(calls);
        fake.reset();
        Reports<Advertisement> sightings;
        Reports<bool> acted;
        auto scanner = std::make_unique<BluetoothLEScanner>();
        std::string const act = calls;
        scanner->setAdvertisementCallback([&, act, seen = sightings.callback()](Advertisement& sighting) {
            if (sighting.rssi == kAddedRssi) acted.add(callIn(scanner, act));
            seen(sighting);
        });
        ASSERT_TRUE(scanner->init()) << scanner->lastError();
        ASSERT_TRUE(scanner->start()) << scanner->lastError();
        pid_t const listener = threadNamed("zelmor-bluez");
        ASSERT_NE(listener, 0);
        std::string const path = fake.addDevice("C2:5A:4C:00:00:07", "Cabin");
        ASSERT_EQ(acted.wait(1), std::vector<bool>{true});
        if (!listening) {
            ASSERT_TRUE(eventually([&] { return threadState(listener) == 0; }));
            if (!scanner) continue;
            ASSERT_TRUE(scanner->start()) << scanner->lastError();
        }
        fake.setProperty(path, "RSSI", int16_t{-42});
        EXPECT_EQ(sightings.wait(2).size(), 2u);
    }
}

// The signal connection is shut down under the thread; the next start opens a
// new one and restarts discovery, which BlueZ still runs for the scanner.
TEST(BluetoothLEScannerThread, StartAfterTheSignalConnectionWasLostListensAgain) {
    FakeBlueZ& fake = FakeBlueZ::instance();
    fake.reset();
    BluetoothLEScanner scanner;
    Reports<Advertisement> sightings;
    scanner.setAdvertisementCallback(sightings.callback());
    std::set<int> const before = openDescriptors();
    ASSERT_TRUE(scanner.init()) << scanner.lastError();
    std::set<int> const connections = added(before, openDescriptors());
    ASSERT_EQ(connections.size(), 2u);
    ASSERT_TRUE(scanner.start()) << scanner.lastError();
    pid_t const listener = threadNamed("zelmor-bluez");
    ASSERT_NE(listener, 0);
    // The signal connection is opened after the method connection.
    ::shutdown(*connections.rbegin(), SHUT_RDWR);
    ASSERT_TRUE(eventually([&] { return threadState(listener) == 0; }));
    fake.adapterLog();

    ASSERT_TRUE(scanner.start()) << scanner.lastError();
    EXPECT_EQ(fake.adapterLog(), (std::vector<std::string>{"StopDiscovery", "StartDiscovery"}));
    fake.addDevice("C2:5A:4C:00:00:07", "Cabin");
    EXPECT_EQ(sightings.wait(1).size(), 1u);
}

}  // namespace
