// A device whose answers get lost or damaged on the way: every request still
// ends, with its answer or with a code, and the link stays usable.
#include <gtest/gtest.h>

#include <map>
#include <tuple>

#include "device_server.h"
#include "sim_link.h"
#include "simulated_device.h"

namespace {

TEST(FaultInjectionTest, EveryRequestEndsWithACodeWhenAnswersAreDroppedOrCorrupted) {
    sim::SimulatedDeviceConfig config;
    config.hardwareRevision = 0x10;
    config.seed = 11;
    sim::SimulatedDevice device(config);
    sim::FaultSettings faults;
    faults.dropFraction = 0.05;
    faults.corruptFraction = 0.01;
    device.faults().configure(faults);
    sim::DeviceServer server(device, "127.0.0.41");
    ASSERT_TRUE(server.start()) << server.error();

    SimLink link;
    ASSERT_TRUE(link.connectLan("127.0.0.41"));
    std::map<Zelmor::ResponseCode, int> codes;
    for (int i = 0; i < 100; ++i) {
        // get() throws when a callback never comes: a hang fails the test.
        ++codes[std::get<0>(link.monitor())];
    }
    EXPECT_GT(codes[Zelmor::ResponseCode::Success], 80);
    EXPECT_GT(codes[Zelmor::ResponseCode::RequestTimeout], 0);

    device.faults().configure({});
    EXPECT_EQ(std::get<0>(link.info()), Zelmor::ResponseCode::Success);
    EXPECT_FALSE(link.ended());
}

}  // namespace
