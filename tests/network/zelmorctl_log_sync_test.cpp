// log sync over links that fail, repeated until a run completes; the copies
// must then be byte for byte the device's own files.
#include <fmt/core.h>
#include <gtest/gtest.h>

#include <csignal>
#include <iterator>
#include <map>
#include <random>
#include <thread>

#include "device_link.h"
#include "device_server.h"
#include "hub_relay.h"
#include "simulated_device.h"
#include "zelmorctl_fleet.h"

namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint64_t kSerial = 0x5A4C0000000000B7;
constexpr char const* kFolder = "5a4c0000000000b7";  // the serial, as sync names the device's folder

sim::SimulatedDeviceConfig deviceConfig(uint32_t historyDays) {
    sim::SimulatedDeviceConfig config;
    config.serial = kSerial;
    config.historyDays = historyDays;
    // The clock stands still, so that the newest file does not grow under the copy.
    config.clock = [] { return int64_t{1763800000}; };
    return config;
}

std::map<std::string, Bytes> readCopies(std::filesystem::path const& folder) {
    std::map<std::string, Bytes> copies;
    if (!std::filesystem::exists(folder)) return copies;
    for (auto const& entry : std::filesystem::directory_iterator(folder)) {
        std::ifstream in(entry.path(), std::ios::binary);
        copies[entry.path().filename().string()] = Bytes(std::istreambuf_iterator<char>(in), {});
    }
    return copies;
}

void expectCopies(std::filesystem::path const& folder, sim::SimulatedDevice& device) {
    std::map<std::string, Bytes> copies = readCopies(folder);
    ASSERT_EQ(copies.size(), device.logFiles().size());
    for (auto const& file : device.logFiles()) {
        std::string const name = fmt::format("r{:08x}.log", file.id);
        EXPECT_TRUE(copies[name] == device.logFile(file.id)) << name << ": " << copies[name].size() << " bytes";
    }
}

/// Every local file is the first bytes of the device's file of its name, however
/// short; returns how many bytes the copies hold.
size_t expectPrefixes(std::filesystem::path const& folder, sim::SimulatedDevice& device) {
    std::map<std::string, Bytes> deviceFiles;
    for (auto const& file : device.logFiles())
        deviceFiles[fmt::format("r{:08x}.log", file.id)] = device.logFile(file.id);
    size_t bytes = 0;
    for (auto const& [name, copy] : readCopies(folder)) {
        auto const original = deviceFiles.find(name);
        if (original == deviceFiles.end()) {
            ADD_FAILURE() << name << " is not a file of the device";
            continue;
        }
        EXPECT_TRUE(copy.size() <= original->second.size() &&
                    std::equal(copy.begin(), copy.end(), original->second.begin()))
            << name << ": " << copy.size() << " bytes are not a prefix of the device's file";
        bytes += copy.size();
    }
    return bytes;
}

}  // namespace

TEST(ZelmorctlLogSync, KilledAtAnyMomentLeavesPrefixesAndResumes) {
    // 3.9 MB of log paced at 4 MB/s. Each run is killed once the copies hold a
    // random number of bytes beyond what the run found, so the kill lands
    // mid-block, between two writes or between two files; every five kills
    // the copy starts over from nothing.
    sim::SimulatedDevice device(deviceConfig(150));
    sim::FaultSettings faults;
    faults.bytesPerSecond = 4 * 1024 * 1024;
    device.faults().configure(faults);
    sim::DeviceServer server(device, "127.0.0.62");
    ASSERT_TRUE(server.start()) << server.error();
    TempDirectory root;
    std::filesystem::path const folder = root.path() / kFolder;
    std::vector<std::string> const sync{"--lan", "127.0.0.62", "log", "sync", root.path().string()};
    size_t total = 0;
    for (auto const& file : device.logFiles()) total += file.size;

    unsigned const seed = std::random_device()();
    SCOPED_TRACE(fmt::format("seed {}", seed));
    std::mt19937 random(seed);
    for (int kill = 0; kill < 30; ++kill) {
        if (kill % 5 == 0) std::filesystem::remove_all(folder);
        size_t const found = expectPrefixes(folder, device);
        // Short of the end by more than a poll lets through at this pace.
        size_t const target =
            std::uniform_int_distribution<size_t>(std::min(found, total - 400000), total - 400000)(random);
        ChildProcess child(ZELMORCTL_PATH, sync);
        ASSERT_TRUE(child.started()) << child.error();
        while (folderBytes(folder) < target && !child.wait(std::chrono::milliseconds(0)))
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        child.signal(SIGKILL);
        ASSERT_TRUE(child.wait(std::chrono::seconds(10)).has_value());
        EXPECT_LT(expectPrefixes(folder, device), total) << "the run ended before it was killed";
    }
    ProgramRun const run = zelmorctl(sync);
    ASSERT_EQ(run.status, 0) << run.err;
    expectCopies(folder, device);
}

TEST(ZelmorctlLogSync, InterruptedSyncResumesToIdenticalCopies) {
    // 150 days of one record a minute: 3.9 MB, and every link ends after 1.5 MB.
    // The link is paced and half the answers come late, yet the copy keeps order.
    sim::SimulatedDevice device(deviceConfig(150));
    sim::FaultSettings faults;
    faults.closeAfterBytes = 1500000;
    faults.bytesPerSecond = 8 * 1024 * 1024;
    faults.answerDelayMs = 20;
    faults.delayFraction = 0.5;
    device.faults().configure(faults);
    sim::DeviceServer server(device, "127.0.0.61");
    ASSERT_TRUE(server.start()) << server.error();
    TempDirectory root;
    std::vector<std::string> const sync{"--lan", "127.0.0.61", "log", "sync", root.path().string()};

    // No run can copy it all: it converges only if each keeps what it copied.
    ProgramRun run;
    int runs = 0;
    for (; run.status != 0 && runs < 10; ++runs) {
        run = zelmorctl(sync);
        EXPECT_TRUE(run.status == 0 || (run.status == 3 && run.err == "Device disconnected\n")) << run.err;
    }
    EXPECT_GE(runs, 3);
    expectCopies(root.path() / kFolder, device);
}

TEST(ZelmorctlLogSync, LossyLinkConvergesOverRepeatedRuns) {
    // A day of log through the hub in frames of 256 bytes, 1 % lost and 1 %
    // corrupted. A lost frame inside an answer ends the run at once as too
    // short; only a lost last frame waits out the request time-out.
    sim::SimulatedDeviceConfig config = deviceConfig(1);
    config.maxFramePayload = 256;
    sim::SimulatedDevice device(config);
    sim::FaultSettings faults;
    faults.dropFraction = 0.01;
    faults.corruptFraction = 0.01;
    device.faults().configure(faults);
    sim::HubRelay hub;
    hub.addDevice(device);
    ASSERT_TRUE(hub.start()) << hub.error();
    Zelmor::WifiAccessKey const key = device.accessKey();
    std::string const link = makeDeviceLink({"Lossy", kSerial, 0x41, key.keyId, key.key});
    TempDirectory root;

    ProgramRun run;
    int runs = 0;
    for (; run.status != 0 && runs < 30; ++runs) {
        run = zelmorctl({"--link", link, "log", "sync", root.path().string()});
        ASSERT_TRUE(run.status.has_value()) << "zelmorctl hung";
        EXPECT_NE(run.status, 2) << run.err;
    }
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_GT(runs, 1);
    expectCopies(root.path() / kFolder, device);
}
