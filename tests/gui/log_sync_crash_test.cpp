// The device window's sync killed at random moments, as a crash or a pulled
// plug would end the program: the window runs in a process of its own (this
// program again, running only GuiLogSyncChild) and gets SIGKILL mid-sync.
// Whatever the moment, each local file is a prefix of the device's, and the
// next run ends with identical copies.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <thread>

#include <fmt/core.h>

#include "device_server.h"
#include "gui_user.h"
#include "local_store_instance.h"
#include "log_mirror.h"
#include "simulated_device.h"

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

constexpr char const* kAddress = "127.0.0.63";
constexpr uint64_t kSerial = 0x5A4C0000000000A4;
constexpr char const* kChildAddress = "ZELMOR_SYNC_CHILD_ADDRESS";

/// Checks that every copy is the first bytes of the device's file of its
/// name; `whole` asks for every file complete.
void expectCopies(fs::path const& folder, sim::SimulatedDevice& device, bool whole) {
    std::map<std::string, Bytes> files;
    for (auto const& file : device.logFiles()) files[logFileName(file.id)] = device.logFile(file.id);
    std::error_code error;
    size_t copies = 0;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error), ++copies) {
        std::string const name = it->path().filename().string();
        std::ifstream in(it->path(), std::ios::binary);
        Bytes const copy(std::istreambuf_iterator<char>(in), {});
        Bytes const& original = files[name];
        EXPECT_TRUE(whole ? copy == original
                          : copy.size() <= original.size() && std::equal(copy.begin(), copy.end(), original.begin()))
            << name << ": " << copy.size() << " of " << original.size() << " bytes";
    }
    if (whole) {
        EXPECT_EQ(copies, files.size());
    }
}

}  // namespace

// The child: a device window on the device at the address it is given, syncing
// until it is killed. It tells its store's folder first.
TEST(GuiLogSyncChild, SyncsUntilKilled) {
    char const* address = std::getenv(kChildAddress);
    if (address == nullptr) GTEST_SKIP() << "runs only as the child of GuiLogSyncCrashTest";
    SimFleet::Device device;
    device.address = address;
    device.revision = 0x10;
    openLanDevice(device);
    std::printf("store %s\n", localStore().dataDir().c_str());
    std::fflush(stdout);
    waitFor([] { return false; }, 600000);
}

TEST(GuiLogSyncCrashTest, KilledAtAnyMomentLeavesPrefixesAndResumes) {
    // 3.9 MB of log, paced at 4 MB/s, with a clock that stands still.
    sim::SimulatedDeviceConfig config;
    config.hardwareRevision = 0x10;
    config.serial = kSerial;
    config.historyDays = 150;
    config.clock = [] { return int64_t{1763800000}; };
    sim::SimulatedDevice device(config);
    sim::FaultSettings faults;
    faults.bytesPerSecond = 4 * 1024 * 1024;
    device.faults().configure(faults);
    sim::DeviceServer server(device, kAddress);
    ASSERT_TRUE(server.start()) << server.error();
    uint64_t total = 0;
    for (auto const& file : device.logFiles()) total += file.size;

    // Every child keeps its store in the same home, so each run resumes the last.
    TempDirectory home;
    char self[4096] = {};
    ASSERT_GT(::readlink("/proc/self/exe", self, sizeof self - 1), 0);
    std::vector<std::string> const child{"ZELMOR_GUI_TEST_HOME=" + home.path().string(),
                                         fmt::format("{}={}", kChildAddress, kAddress), self,
                                         "--gtest_filter=GuiLogSyncChild.*"};
    unsigned const seed = std::random_device()();
    SCOPED_TRACE(fmt::format("seed {}", seed));
    std::mt19937 random(seed);
    fs::path folder;
    // Each run is killed once the copies hold a random number of bytes more
    // than it found; every five kills the copy starts over. The last run is
    // let finish.
    for (int kill = 0; kill <= 20; ++kill) {
        if (kill % 5 == 0 && !folder.empty()) fs::remove_all(folder);
        uint64_t const found = folder.empty() ? 0 : folderBytes(folder);
        uint64_t const target = kill == 20 ? total
                                           : std::uniform_int_distribution<uint64_t>(std::min(found, total - 400000),
                                                                                     total - 400000)(random);
        ChildProcess window("/usr/bin/env", child);
        ASSERT_TRUE(window.started()) << window.error();
        std::optional<std::string> line;
        while ((line = window.readLine(std::chrono::seconds(30))) && !line->starts_with("store ")) {
        }
        ASSERT_TRUE(line) << window.takeErrors();
        folder = deviceLogDirectory(line->substr(6), kSerial);
        EXPECT_TRUE(waitFor([&] { return folderBytes(folder) >= target; }, 60000)) << window.takeErrors();
        window.signal(SIGKILL);
        ASSERT_TRUE(window.wait(std::chrono::seconds(10)).has_value());
        if (kill < 20) {
            EXPECT_LT(folderBytes(folder), total) << "the sync ended before the kill";
        }
        expectCopies(folder, device, kill == 20);
    }
}
