// The device window's data log sync against zelmor-sim: the copies it keeps,
// checked against what zelmorctl log sync fetches; the status line while it
// runs; "Sync Log Now" and "Clear Local Data Log".
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "gui_user.h"
#include "local_store_instance.h"
#include "log_mirror.h"
#include "log_sync_text.h"

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;
using Folder = std::map<std::string, Bytes>;  // file name -> content

Folder readFolder(fs::path const& folder) {
    Folder files;
    for (auto const& entry : fs::directory_iterator(folder)) {
        std::ifstream in(entry.path(), std::ios::binary);
        files[entry.path().filename().string()] = Bytes(std::istreambuf_iterator<char>(in), {});
    }
    return files;
}

uint64_t serialOf(SimFleet::Device const& device) { return std::stoull(device.serial, nullptr, 16); }

/// The device's files as zelmorctl log sync copies them now into `root`.
Folder deviceFiles(SimFleet::Device const& device, TempDirectory const& root) {
    EXPECT_EQ(zelmorctl({"--lan", device.address, "log", "sync", root.path().string()}).status, 0);
    return readFolder(deviceLogDirectory(root.path(), serialOf(device)));
}

/// The window's copies equal the device's files, but for the newest, to
/// which the device may have added a record since: the copy is a prefix.
void expectMirrored(Folder const& copies, Folder const& device) {
    ASSERT_EQ(copies.size(), device.size());
    for (auto const& [name, content] : device) {
        Bytes const& copy = copies.at(name);
        bool const prefix = copy.size() <= content.size() && std::equal(copy.begin(), copy.end(), content.begin());
        EXPECT_TRUE(name == device.rbegin()->first ? prefix : copy == content) << name << ": " << copy.size();
    }
}

/// Lets the events run until `until` holds, and gives each status line shown
/// on the way.
std::vector<std::string> statusesUntil(GuiDevice& window, std::function<bool()> const& until) {
    std::vector<std::string> seen;
    EXPECT_TRUE(waitFor(
        [&] {
            std::string const status = statusOf(window);
            if (seen.empty() || seen.back() != status) seen.push_back(status);
            return until();
        },
        60000));
    return seen;
}

bool downloading(GuiDevice& window) { return statusOf(window).starts_with("Connected - Downloading data log ... "); }

}  // namespace

// Each test's device has a serial of its own: the copies of a run stay in
// the store for the rest of it.

// A day of log is one file of about 26 KB; the third read fails, which leaves
// that file empty until the next sync.
TEST(GuiLogSyncTest, MirrorsTheLogAndSyncLogNowFetchesOnlyWhatIsMissing) {
    SimFleet fleet({"--device", "K,serial=5A4C0000000000A1,history=150,bandwidth=2000000,fail=44@3"});
    GuiDevice& window = *openLanDevice(fleet.device(0));
    fs::path const folder = deviceLogDirectory(localStore().dataDir(), serialOf(fleet.device(0)));
    bool sawDownload = false;
    std::vector<std::string> const statuses = statusesUntil(window, [&] {
        sawDownload = sawDownload || downloading(window);
        return sawDownload && statusOf(window) == "Connected";
    });
    unsigned last = 0;
    for (std::string const& status : statuses) {
        unsigned percent = 0;
        if (std::sscanf(status.c_str(), "Connected - Downloading data log ... %u%%", &percent) != 1) continue;
        EXPECT_TRUE(last <= percent && percent <= 100) << status;
        last = percent;
    }
    EXPECT_EQ(statuses.back(), "Connected");

    TempDirectory root;
    Folder device = deviceFiles(fleet.device(0), root);
    Folder copies = readFolder(folder);
    std::string const failed = std::next(device.begin(), 2)->first, oldest = device.begin()->first;
    EXPECT_TRUE(copies.at(failed).empty());
    copies.at(failed) = device.at(failed);
    expectMirrored(copies, device);

    // A copy as long as the device's file is never read again: zeros in place
    // of the oldest stay, and only the failed file is filled in.
    Bytes const zeros(device.at(oldest).size(), 0);
    std::ofstream(folder / oldest, std::ios::binary).write(reinterpret_cast<char const*>(zeros.data()), zeros.size());
    window.ProcessCommand(GuiDevice::kMenuSyncLog);
    EXPECT_TRUE(
        waitFor([&] { return fs::file_size(folder / failed) == device.at(failed).size() && !window.syncing(); }));
    copies = readFolder(folder);
    device = deviceFiles(fleet.device(0), root);
    EXPECT_EQ(copies.at(oldest), zeros);
    copies.at(oldest) = device.at(oldest);
    expectMirrored(copies, device);
    saveScreenshot(window, "device_window_log_sync");
    window.Close(true);
    EXPECT_TRUE(allWindowsGone());
}

TEST(GuiLogSyncTest, ClearLocalDataLogStopsTheSyncAndDeletesTheCopy) {
    SimFleet fleet({"--device", "K,serial=5A4C0000000000A2,history=150,bandwidth=200000"});
    GuiDevice& window = *openLanDevice(fleet.device(0));
    fs::path const folder = deviceLogDirectory(localStore().dataDir(), serialOf(fleet.device(0)));
    ASSERT_TRUE(waitFor([&] { return downloading(window); }));

    wxTEST_DIALOG(window.ProcessCommand(GuiDevice::kMenuClearLocalLog),
                  ExpectMessage("Confirmation", kClearLocalLogQuestion, wxID_CANCEL));
    EXPECT_TRUE(window.syncing());
    EXPECT_FALSE(fs::is_empty(folder));
    wxTEST_DIALOG(window.ProcessCommand(GuiDevice::kMenuClearLocalLog),
                  ExpectMessage("Confirmation", kClearLocalLogQuestion));
    EXPECT_FALSE(window.syncing());
    EXPECT_FALSE(fs::exists(folder));
    EXPECT_TRUE(waitFor([&] { return statusOf(window) == "Connected"; }));
    EXPECT_FALSE(fs::exists(folder));

    // A new sync starts over in a new folder; the window closes under it.
    window.ProcessCommand(GuiDevice::kMenuSyncLog);
    EXPECT_TRUE(waitFor([&] { return downloading(window); }));
    window.Close(true);
    EXPECT_TRUE(allWindowsGone());
}
