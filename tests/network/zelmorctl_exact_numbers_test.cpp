// zelmorctl's JSON carries the very floats a device sends, while its text
// stays rounded for people.
#include "zelmorctl_fleet.h"

namespace {

TEST(ZelmorctlExactNumbers, JsonPrintsTheDevicesFloatsExactlyAndTextRoundsThem) {
    SimFleet fleet({"--no-announce", "--history", "0", "--device", "K,reading=13.249999:nan:-2.5:-33.125:1e-7"});
    std::string const lan = fleet.device(0).address;
    ProgramRun const json = zelmorctl({"--lan", lan, "--json", "monitor", "--count", "1"});
    EXPECT_EQ(json.status, 0) << json.err;
    EXPECT_NE(
        json.out.find(R"("voltage1":13.249999,"voltage2":null,"current":-2.5,"power":-33.125,"temperature":1e-07,)"),
        std::string::npos)
        << json.out;
    ProgramRun const text = zelmorctl({"--lan", lan, "monitor", "--count", "1"});
    EXPECT_NE(text.out.find("V1 13.250 V  V2 -  I -2.500 A  P -33.12 W  T 0.00 °C"), std::string::npos) << text.out;
}

}  // namespace
