// The BlueZ scanner's listening thread: the callback stopping, restarting and
// destroying its own scanner, and a start after the thread ended by itself
// because its bus connection was lost.
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <functional>
#include <memory>

#include "bluetooth_le_scanner.h"
#include "fake_bluez.h"
#include "process_view.h"
#include "reports.h"

namespace {

using Advertisement = BluetoothLEScanner::Advertisement;

constexpr int16_t kAddedRssi = -79;  // what the fake gives a device it adds

/// Starts `scanner` and gives the id of the listening thread it started.
pid_t startListening(BluetoothLEScanner& scanner) {
    std::set<int> const before = threadIds();
    EXPECT_TRUE(scanner.start()) << scanner.lastError();
    std::set<int> const listener = added(before, threadIds());
    EXPECT_EQ(listener.size(), 1u);
    return listener.empty() ? 0 : *listener.begin();
}

TEST(BluetoothLEScannerThread, CallbackMayStopStartAndDestroyItsScanner) {
    using Scanner = std::unique_ptr<BluetoothLEScanner>;
    struct Case {
        char const* action;
        std::function<bool(Scanner&)> act;
        bool listening;
    } const cases[] = {
        {"stop", [](Scanner& s) { return s->stop(); }, false},
        {"stop, then start", [](Scanner& s) { return s->stop() && s->start(); }, true},
        {"destroy",
         [](Scanner& s) {
             s.reset();
             return true;
         },
         false},
    };
    FakeBlueZ& fake = FakeBlueZ::instance();
    for (Case const& c : cases) {
        SCOPED_TRACE(c.action);
        fake.reset();
        Reports<Advertisement> sightings;
        Reports<bool> acted;
        auto scanner = std::make_unique<BluetoothLEScanner>();
        scanner->setAdvertisementCallback([&, seen = sightings.callback()](Advertisement& sighting) {
            if (sighting.rssi == kAddedRssi) acted.add(c.act(scanner));
            seen(sighting);
        });
        ASSERT_TRUE(scanner->init()) << scanner->lastError();
        pid_t const listener = startListening(*scanner);
        std::string const path = fake.addDevice("C2:5A:4C:00:00:07", "Cabin");
        ASSERT_EQ(acted.wait(1), std::vector<bool>{true});
        if (!c.listening) {
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
    pid_t const listener = startListening(scanner);
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
