// How the simulator's options become a fleet: device texts, what they leave to
// the defaults, and the loopback addresses the devices take.
#include <gtest/gtest.h>

#include <tuple>

#include "fleet_plan.h"

namespace {

TEST(SimFleetPlan, DeviceTextSetsEveryKeyAndLeavesTheRestToTheDefaults) {
    sim::DevicePlan defaults;
    defaults.historyDays = 5;
    defaults.faults.bytesPerSecond = 1000;
    sim::DevicePlanResult const r = sim::parseDevicePlan(
        "v,name=Cabin bank,serial=5a4c00000000beef,user=bilge,master=keel,interval=1,seed=7,drop=0.25,"
        "corrupt=0.5,delay-ms=30,close-after=4096,stall,silent,fail=0x51@2,wifi=one",
        defaults);
    ASSERT_TRUE(r.plan.has_value()) << r.error;
    sim::DevicePlan const& d = *r.plan;
    EXPECT_EQ(std::tie(d.hardwareRevision, d.name, d.serial, d.userPassword, d.masterPassword, d.logIntervalSeconds,
                       d.historyDays, d.seed, d.announced),
              std::make_tuple(0x41, "Cabin bank", 0x5A4C00000000BEEFu, "bilge", "keel", 1u, 5u, 7u, false));
    EXPECT_EQ(sim::deviceConfig(d).wifiKind, sim::WifiKind::OneNetwork);
    sim::FaultSettings const& f = d.faults;
    EXPECT_EQ(std::tie(f.dropFraction, f.corruptFraction, f.answerDelayMs, f.delayFraction, f.closeAfterBytes,
                       f.bytesPerSecond, f.stalled),
              std::make_tuple(0.25, 0.5, 30u, 1.0, 4096u, 1000u, true));
    EXPECT_EQ(f.failCommand, (sim::CommandFailure{0x51, 2}));
    EXPECT_EQ(sim::parseCommandFailure("54"), (sim::CommandFailure{0x54, 0}));

    // A share of delayed answers without a delay holds them back the default time.
    sim::DevicePlanResult const delayed = sim::parseDevicePlan("K,delay=0.5", defaults);
    ASSERT_TRUE(delayed.plan.has_value()) << delayed.error;
    EXPECT_EQ(delayed.plan->hardwareRevision, 0x10);
    EXPECT_EQ(delayed.plan->faults.delayFraction, 0.5);
    EXPECT_EQ(delayed.plan->faults.answerDelayMs, sim::kDefaultAnswerDelayMs);
    EXPECT_EQ(sim::parseDevicePlan("V", defaults).plan->wifi, sim::WifiKind::NetworkList);
}

TEST(SimFleetPlan, BadDeviceTextsAreRefusedWithTheReason) {
    struct Case {
        char const* text;
        char const* reason;
    };
    for (Case const c :
         {Case{"X", "model"}, Case{"", "model"}, Case{"K,colour=red", "unknown key \"colour\""},
          Case{"K,serial=zz", "serial"}, Case{"K,serial=0", "serial"}, Case{"K,serial=12345678901234567", "serial"},
          Case{"K,name", "name needs a value"}, Case{"K,name=", "name"},
          Case{"K,name=123456789012345678901234567890123", "name"}, Case{"K,user=a\tb", "control"},
          Case{"K,drop=1.5", "drop"}, Case{"K,drop=x", "drop"}, Case{"K,interval=0", "interval"},
          Case{"K,history=401", "history"}, Case{"K,stall=1", "stall takes no value"}, Case{"K,,name=a", "unknown key"},
          Case{"K,wifi=one", "Zelmor-V"}, Case{"V,wifi=two", "wifi needs one"}}) {
        sim::DevicePlanResult const r = sim::parseDevicePlan(c.text, {});
        EXPECT_FALSE(r.plan.has_value()) << c.text;
        EXPECT_NE(r.error.find(c.reason), std::string::npos) << c.text << ": " << r.error;
    }
    for (char const* text : {"K,fail=51@0", "K,fail=10000", "K,fail=0x5g"})
        EXPECT_NE(sim::parseDevicePlan(text, {}).error.find("fail needs"), std::string::npos) << text;
}

// Addresses are shown end to end (SimProgram); serials and seeds count up.
TEST(SimFleetPlan, CompletingKeepsGivenNamesAndStaysOnLoopback) {
    std::vector<sim::DevicePlan> fleet = sim::defaultFleet({});
    fleet[1].name = "Given";
    ASSERT_EQ(sim::completeFleet(fleet, sim::kDefaultBaseAddress, 10), "");
    EXPECT_EQ(fleet[1].name, "Given");
    EXPECT_EQ(fleet[1].serial, fleet[0].serial + 1);
    EXPECT_EQ(fleet[2].seed, 12u);

    std::vector<sim::DevicePlan> past(2);
    EXPECT_NE(sim::completeFleet(past, *sim::parseLoopbackAddress("127.255.255.254"), 1), "");
}

TEST(SimFleetPlan, OnlyNumericLoopbackEndpointsAreAccepted) {
    EXPECT_EQ(sim::parseLoopbackEndpoint("127.0.0.1:7300", 7207)->port, 7300);
    EXPECT_EQ(sim::endpointText(*sim::parseLoopbackEndpoint("127.1.2.3", 7207)), "127.1.2.3:7207");
    for (char const* text : {"10.0.0.1", "128.0.0.1:7207", "localhost", "127.0.0.1:0", "127.0.0.1:70000",
                             "127.0.0.1:", "127.0.0.1:72x", "::1"})
        EXPECT_FALSE(sim::parseLoopbackEndpoint(text, 7207).has_value()) << text;
}

}  // namespace
