// The device window's data log sync against zelmor-sim: the copies it keeps,
// checked against what zelmorctl log sync fetches; the status line while it
// runs; "Sync Log Now" and "Clear Local Data Log". Each test's device has a
// serial of its own, since the copies stay in the store for the whole run.
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

fs::path folderIn(fs::path const& root, SimFleet::Device const& device) {
    return deviceLogDirectory(root, std::stoull(device.serial, nullptr, 16));
}

/// Each copy equals the device's file as zelmorctl fetches it now, but for the
/// newest file, which may have gained a record since: its copy is a prefix.
void expectMirrored(Folder const& copies, Folder const& device) {
    ASSERT_EQ(copies.size(), device.size());
    for (auto const& [name, content] : device) {
        Bytes const& copy = copies.at(name);
        bool const prefix = copy.size() <= content.size() && std::equal(copy.begin(), copy.end(), content.begin());
        EXPECT_TRUE(name == device.rbegin()->first ? prefix : copy == content) << name << ": " << copy.size();
    }
}

bool downloading(GuiDevice& window) { return statusOf(window).starts_with("Connected - Downloading data log ... "); }

}  // namespace

// A day of log is one file of about 26 KB; the third read fails, which leaves
// that file empty until the next sync.
TEST(GuiLogSyncTest, MirrorsTheLogAndSyncLogNowFetchesOnlyWhatIsMissing) {
    SimFleet fleet({"--device", "K,serial=5A4C0000000000A1,history=150,bandwidth=2000000,fail=44@3"});
    GuiDevice& window = *openLanDevice(fleet.device(0));
    fs::path const folder = folderIn(localStore().dataDir(), fleet.device(0));
    std::vector<std::string> statuses{""};
    EXPECT_TRUE(waitFor(
        [&] {
            if (statuses.back() != statusOf(window)) statuses.push_back(statusOf(window));
            return statuses.back() == "Connected" && statuses.end()[-2].starts_with("Connected - Downloading");
        },
        60000));
    unsigned last = 0, percent = 0;
    for (std::string const& status : statuses)
        if (std::sscanf(status.c_str(), "Connected - Downloading data log ... %u%%", &percent) == 1) {
            EXPECT_TRUE(last <= percent && percent <= 100) << status;
            last = percent;
        }

    TempDirectory root;
    auto const device = [&] {
        EXPECT_EQ(zelmorctl({"--lan", fleet.device(0).address, "log", "sync", root.path().string()}).status, 0);
        return readFolder(folderIn(root.path(), fleet.device(0)));
    };
    Folder files = device(), copies = readFolder(folder);
    std::string const failed = std::next(files.begin(), 2)->first, oldest = files.begin()->first;
    EXPECT_TRUE(copies.at(failed).empty());
    copies.at(failed) = files.at(failed);
    expectMirrored(copies, files);

    // A copy as long as the device's file is never read again: zeros in place
    // of the oldest stay, and only the failed file is filled in.
    Bytes const zeros(files.at(oldest).size(), 0);
    std::ofstream(folder / oldest).write(reinterpret_cast<char const*>(zeros.data()), std::ssize(zeros));
    window.ProcessCommand(GuiDevice::kMenuSyncLog);
    EXPECT_TRUE(
        waitFor([&] { return fs::file_size(folder / failed) == files.at(failed).size() && !window.syncing(); }));
    copies = readFolder(folder);
    files = device();
    EXPECT_EQ(copies.at(oldest), zeros);
    copies.at(oldest) = files.at(oldest);
    expectMirrored(copies, files);
    saveScreenshot(window, "device_window_log_sync");
    window.Close(true);
    EXPECT_TRUE(allWindowsGone());
}

TEST(GuiLogSyncTest, ClearLocalDataLogStopsTheSyncAndDeletesTheCopy) {
    SimFleet fleet({"--device", "K,serial=5A4C0000000000A2,history=150,bandwidth=200000"});
    GuiDevice& window = *openLanDevice(fleet.device(0));
    fs::path const folder = folderIn(localStore().dataDir(), fleet.device(0));
    ASSERT_TRUE(waitFor([&] { return downloading(window); }));
    for (int answer : {wxID_CANCEL, wxID_OK}) {
        wxTEST_DIALOG(window.ProcessCommand(GuiDevice::kMenuClearLocalLog),
                      ExpectMessage("Confirmation", kClearLocalLogQuestion, answer));
        EXPECT_EQ(window.syncing(), answer == wxID_CANCEL);
        EXPECT_EQ(fs::exists(folder), answer == wxID_CANCEL);
    }
    // The stopped sync writes nothing more once its end is shown.
    EXPECT_TRUE(waitFor([&] { return statusOf(window) == "Connected"; }));
    EXPECT_FALSE(fs::exists(folder));

    // A new sync starts over; the window closes under it.
    window.ProcessCommand(GuiDevice::kMenuSyncLog);
    EXPECT_TRUE(waitFor([&] { return downloading(window); }));
    window.Close(true);
    EXPECT_TRUE(allWindowsGone());
}
