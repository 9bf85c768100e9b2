// zelmor-sim as a user runs it: what it prints, that the devices it prints are
// there to be reached, and how it ends.
#include <gtest/gtest.h>

#include <csignal>
#include <cstring>

#include <nlohmann/json.hpp>

#include "child_process.h"
#include "device_link.h"
#include "hex.h"
#include "sim_link.h"

namespace {

using Code = SimLink::Code;
using namespace std::chrono_literals;

/// The device lines up to "ready"; fails the test when "ready" never comes.
std::vector<nlohmann::json> readFleet(ChildProcess& sim) {
    std::vector<nlohmann::json> devices;
    while (auto line = sim.readLine(30s)) {
        if (*line == "ready") return devices;
        devices.push_back(nlohmann::json::parse(*line));
    }
    ADD_FAILURE() << "no \"ready\": " << sim.takeErrors();
    return devices;
}

TEST(SimProgram, ServesTheDefaultFleetItPrintsAndExitsCleanlyOnSigterm) {
    ChildProcess sim(ZELMOR_SIM_PATH, {"--porcelain"});
    ASSERT_TRUE(sim.started()) << sim.error();
    std::vector<nlohmann::json> const devices = readFleet(sim);
    ASSERT_EQ(devices.size(), 3u);

    char const* const addresses[] = {"127.0.0.2", "127.0.0.3", "127.0.0.4"};
    int const revisions[] = {0x10, 0x41, 0x41};
    for (size_t i = 0; i < devices.size(); ++i) {
        nlohmann::json const& d = devices[i];
        EXPECT_EQ(d["address"], addresses[i]);
        EXPECT_EQ(d["port"], 7208);
        EXPECT_EQ(d["hub"], "127.0.0.1:7209");
        EXPECT_EQ(d["hardware_revision"], revisions[i]);
        std::string const serial = d["serial"];
        EXPECT_EQ(serial.find_first_not_of("0123456789ABCDEF"), std::string::npos) << serial;
        EXPECT_EQ(serial.size(), 16u);
        DeviceLinkResult const link = parseDeviceLink(d["link"].get<std::string>());
        ASSERT_TRUE(link.identifier.has_value()) << link.error;
        EXPECT_EQ(link.identifier->name, d["name"]);
        EXPECT_EQ(link.identifier->serial, std::stoull(serial, nullptr, 16));
        EXPECT_EQ(hexEncode(link.identifier->channelId.data(), link.identifier->channelId.size()), d["channel_id"]);
    }
    EXPECT_EQ(devices[0]["user_password"], "");
    EXPECT_NE(devices[2]["user_password"], "");

    // Each device is where its line says, directly and through the hub by its link.
    SimLink direct;
    ASSERT_TRUE(direct.connectLan("127.0.0.3"));
    auto const [directCode, directInfo] = direct.info();
    ASSERT_EQ(directCode, Code::Success);
    EXPECT_EQ(directInfo.name, devices[1]["name"]);
    Zelmor::DeviceIdentifier const id = *parseDeviceLink(devices[2]["link"].get<std::string>()).identifier;
    SimLink relayed;
    ASSERT_TRUE(relayed.connectHub({id.channelId, id.key}));
    auto const [relayedCode, relayedInfo] = relayed.info();
    ASSERT_EQ(relayedCode, Code::Success);
    EXPECT_EQ(relayedInfo.serial, id.serial);
    EXPECT_EQ(std::get<0>(relayed.monitor()), Code::LockedByUserPassword);

    ASSERT_TRUE(sim.signal(SIGTERM));
    EXPECT_EQ(sim.wait(30s), 0);
    EXPECT_EQ(sim.takeErrors(), "");
}

TEST(SimProgram, DeviceOptionsReachTheDevice) {
    ChildProcess sim(ZELMOR_SIM_PATH, {"--porcelain", "--no-hub", "--no-announce", "--base-address", "127.0.0.51",
                                       "--device", "V,name=Dock office,serial=d0c,interval=1,history=3"});
    ASSERT_TRUE(sim.started()) << sim.error();
    std::vector<nlohmann::json> const devices = readFleet(sim);
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0]["address"], "127.0.0.51");
    EXPECT_EQ(devices[0]["hub"], nullptr);
    EXPECT_EQ(devices[0]["serial"], "0000000000000D0C");

    SimLink link;
    ASSERT_TRUE(link.connectLan("127.0.0.51"));
    auto const [code, info] = link.info();
    ASSERT_EQ(code, Code::Success);
    EXPECT_EQ(info.name, "Dock office");
    EXPECT_EQ(info.hardwareRevision, 0x41);
    // Three days of a record a second: several megabytes of log at the start.
    CallbackResult<Code, std::vector<Zelmor::LogFileDescriptor> const&> files;
    link.zelmor().requestGetFileList(files.callback());
    auto const [filesCode, list] = files.get();
    ASSERT_EQ(filesCode, Code::Success);
    size_t total = 0;
    for (auto const& file : list) total += file.size;
    EXPECT_GE(total, 3u * 86400 * 18);

    ASSERT_TRUE(sim.signal(SIGINT));
    EXPECT_EQ(sim.wait(30s), 0);
}

TEST(SimProgram, AnAddressInUseIsReportedAndEndsTheProgram) {
    LoopbackListener taken("127.0.0.2", 7208);
    ProgramRun const run = runProgram(ZELMOR_SIM_PATH, {"--porcelain", "--no-hub", "--no-announce"}, 30s);
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out.find("ready"), std::string::npos) << run.out;
    EXPECT_NE(run.err.find("127.0.0.2:7208"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find(std::strerror(EADDRINUSE)), std::string::npos) << run.err;
}

}  // namespace
