// The dialogs and windows on screen, against zelmor-sim where they reach a
// device. Which texts the dialogs accept is gui_window_rules_test.cpp's to say;
// here each tells the user on every change of a field.
#include <gtest/gtest.h>

#include <wx/stattext.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <tuple>

#include <fmt/format.h>

#include "gui_calibrate_dialog.h"
#include "gui_device.h"
#include "gui_enter_string.h"
#include "gui_user.h"
#include "zelmorctl_fleet.h"

namespace {

constexpr char const* kTooLong = "string is too long";
constexpr char const* kMismatch = "passwords do not match";

std::string message(wxWindow& dialog) {
    return wxStaticCast(wxWindow::FindWindowByName("message", &dialog), wxStaticText)->GetLabel().utf8_string();
}

TEST(EnterStringDialogTest, PasswordTypedTwiceTellsWhatIsWrongOnEveryChange) {
    GuiEnterString dialog(nullptr, wxID_ANY, "Password", true, true);
    dialog.setPrompt("New password");
    dialog.setConfirmationPrompt("The same password again");
    // A maximum applies at once.
    type(dialog, GuiEnterString::kEntryId, "abcde");
    dialog.setMaxLength(4);
    EXPECT_EQ(message(dialog), kTooLong);
    // A text too long is told before a mismatch. The umlauts are two bytes
    // each in UTF-8: the maximum counts characters.
    std::tuple<wxWindowID, wxString, std::string> const steps[] = {
        {GuiEnterString::kConfirmationId, "abcd", kTooLong},
        {GuiEnterString::kEntryId, "abcd", ""},
        {GuiEnterString::kEntryId, wxString::FromUTF8("äöüß"), kMismatch},
        {GuiEnterString::kConfirmationId, wxString::FromUTF8("äöüß"), ""},
        {GuiEnterString::kEntryId, "abc", kMismatch},
    };
    for (auto const& [field, text, problem] : steps) {
        SCOPED_TRACE(text.utf8_string());
        type(dialog, field, text);
        EXPECT_EQ(message(dialog), problem);
        EXPECT_EQ(continueEnabled(dialog), problem.empty());
    }
    dialog.Show();
    saveScreenshot(dialog, "enter_string");
}

TEST(CalibrateDialogTest, TellsWhatIsWrongOnEveryChange) {
    GuiCalibrateDialog dialog(nullptr, wxID_ANY, "Calibrate current");
    EXPECT_EQ(message(dialog), "value is empty");
    EXPECT_FALSE(continueEnabled(dialog));
    std::tuple<wxString, std::string, float> const cases[] = {
        {"-3,25 A", "", -3.25f},
        {"0", "must be between -2000 A and 2000 A, not 0", 0},
        {"12,5 mA", "not a number", 0},
    };
    for (auto const& [text, problem, current] : cases) {
        SCOPED_TRACE(text.utf8_string());
        type(dialog, GuiCalibrateDialog::kEntryId, text);
        EXPECT_EQ(message(dialog), problem);
        EXPECT_EQ(continueEnabled(dialog), problem.empty());
        EXPECT_FLOAT_EQ(dialog.current(), current);
    }
    dialog.Show();
    saveScreenshot(dialog, "calibrate");
}

/// The rows of the panel that change slowly, as "label: value".
std::vector<std::string> slowRows(GuiDevice const& window) {
    std::vector<std::string> shown;
    for (std::string const label : {"Voltage 1", "Voltage 2", "Battery SoC", "Temperature", "Power Status"})
        for (PanelRow const& row : window.shownRows())
            if (row.label == label) shown.push_back(label + ": " + row.value);
    return shown;
}

std::string fileText(std::filesystem::path const& path) {
    std::ifstream file(path);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

TEST(GuiMainTest, AnnouncingDeviceOpensOnADoubleClickAndShowsItsReadingsUntilItGoesAway) {
    SimFleet fleet({});
    MainWindowUser user;
    wxListCtrl* const list = user.window.localDevicesList();
    ASSERT_TRUE(waitFor([&] { return list->GetItemCount() == 3; })) << list->GetItemCount();
    long const row = list->FindItem(-1, wxString::FromUTF8(fleet.device(0).name));
    ASSERT_GE(row, 0);
    EXPECT_EQ(cell(list, row, 1), "Zelmor-K");
    EXPECT_EQ(cell(list, row, 2), fleet.device(0).serial);
    EXPECT_NE(cell(list, row, 4).find(" V"), std::string::npos);
    EXPECT_EQ(cell(list, row, 14), fleet.device(0).address);
    saveScreenshot(user.window, "main_window");

    activate(list, row);
    ASSERT_EQ(user.window.deviceWindows().size(), 1u);
    GuiDevice& window = *user.window.deviceWindows().front();
    ASSERT_TRUE(waitFor([&] { return ready(window); })) << statusOf(window);
    EXPECT_EQ(window.GetTitle(), "Zelmor Manager: " + fleet.device(0).name);
    // The simulated battery moves on between two readings: the slow rows agree
    // with a reading zelmorctl takes, once the window has polled after it.
    std::vector<std::string> expected;
    for (int attempt = 0; attempt < 3 && slowRows(window) != expected; ++attempt) {
        auto const reading =
            jsonResult(zelmorctl({"--lan", fleet.device(0).address, "monitor", "--count", "1", "--json"}));
        expected = {fmt::format("Voltage 1: {:.3f} V", reading["voltage1"].get<double>()),
                    fmt::format("Voltage 2: {:.3f} V", reading["voltage2"].get<double>()),
                    fmt::format("Battery SoC: {} %", reading["soc"].get<int>()),
                    fmt::format("Temperature: {:.0f} °C", reading["temperature"].get<double>()),
                    "Power Status: " + reading["power_status"].get<std::string>()};
        waitFor([&] { return slowRows(window) == expected; }, 5000);
    }
    EXPECT_EQ(slowRows(window), expected);
    saveScreenshot(window, "device_window");

    // The device window tells and closes at once; the list keeps the silent
    // devices for ten seconds after their last announcement.
    wxTEST_DIALOG(
        {
            fleet.kill();
            ASSERT_TRUE(waitFor([&] { return user.window.deviceWindows().empty(); }));
        },
        ExpectMessage("Info", "Device disconnected"));
    EXPECT_EQ(list->GetItemCount(), 3);
    EXPECT_TRUE(waitFor([&] { return list->GetItemCount() == 0; })) << list->GetItemCount();
}

TEST(GuiMainTest, RemoteDevicesAreAddedByLinkOpenedThroughTheHubAndRemoved) {
    // No announcements: the devices are reachable through the hub relay only.
    SimFleet fleet({"--no-announce"});
    MainWindowUser user;
    wxListCtrl* const list = user.window.remoteDevicesList();
    std::filesystem::path const file = std::filesystem::path(user.dataDir) / "cloud_devices.cfg";
    wxTEST_DIALOG(user.window.ProcessCommand(GuiMain::kMenuAddRemoteDevice),
                  ExpectEnterString("https://example.invalid/?n=zz"),
                  ExpectMessage("Error", "Invalid Zelmor device link"));
    EXPECT_EQ(list->GetItemCount(), 0);
    for (size_t device : {1, 0}) {
        wxTEST_DIALOG(user.window.ProcessCommand(GuiMain::kMenuAddRemoteDevice),
                      ExpectEnterString(wxString::FromUTF8(fleet.device(device).link)));
    }
    ASSERT_EQ(list->GetItemCount(), 2);
    EXPECT_EQ(cell(list, 0, 0), fleet.device(1).name);
    EXPECT_EQ(cell(list, 0, 2), fleet.device(1).serial);
    // The links hold the devices' keys: the file is the user's alone.
    EXPECT_EQ(fileText(file), fleet.device(1).link + "\n" + fleet.device(0).link + "\n");
    EXPECT_EQ(std::filesystem::status(file).permissions() & std::filesystem::perms::all,
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);

    activate(list, 0);
    ASSERT_EQ(user.window.deviceWindows().size(), 1u);
    GuiDevice& window = *user.window.deviceWindows().front();
    EXPECT_TRUE(waitFor([&] { return ready(window); })) << statusOf(window);
    EXPECT_EQ(window.GetTitle(), "Zelmor Manager: " + fleet.device(1).name);
    window.Close(true);
    ASSERT_TRUE(waitFor([&] { return user.window.deviceWindows().empty(); }));

    // The remote device's pop-up menu: its row selected, "Remove" chosen.
    list->SetItemState(0, wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED);
    wxCommandEvent remove(wxEVT_MENU, GuiMain::kMenuRemoveRemoteDevice);
    user.window.ProcessWindowEvent(remove);
    ASSERT_EQ(list->GetItemCount(), 1);
    EXPECT_EQ(cell(list, 0, 0), fleet.device(0).name);
    EXPECT_EQ(fileText(file), fleet.device(0).link + "\n");
}

TEST(GuiDeviceTest, LockedDeviceAsksForThePasswordUntilItIsRight) {
    SimFleet fleet({});
    // The third device of the default fleet is locked with "kingfisher".
    GuiDevice* window = openLanDevice(fleet.device(2));
    wxTEST_DIALOG(ASSERT_TRUE(waitFor([&] { return !window->shownRows().empty(); })), ExpectEnterString("heron"),
                  ExpectMessage("Error", "Invalid password."), ExpectEnterString("kingfisher"));
    EXPECT_EQ(statusOf(*window), "Connected");
    window->Close(true);
    ASSERT_TRUE(allWindowsGone());
}

TEST(GuiDeviceTest, LinkLostUnderThePasswordPromptClosesTheWindowOnceThePromptIsAnswered) {
    for (int answer : {wxID_OK, wxID_CANCEL}) {
        SCOPED_TRACE(answer);
        SimFleet fleet({});
        GuiDevice* window = openLanDevice(fleet.device(2));
        // The user is at the password prompt when the link is lost, then
        // answers it or cancels it.
        auto const linkLost = [&](GuiEnterString& prompt) {
            int const answered = ExpectMessage::answered();
            fleet.kill();
            EXPECT_TRUE(waitForMessage(answered));
            EXPECT_EQ(statusOf(*window), "Disconnected");
            // wx deletes a closed window at the next idle time, and this
            // prompt's loop has had many.
            EXPECT_FALSE(window->IsBeingDeleted());
            type(prompt, GuiEnterString::kEntryId, "kingfisher");
        };
        wxTEST_DIALOG(EXPECT_TRUE(allWindowsGone()), ExpectDialog<GuiEnterString>(answer, linkLost),
                      ExpectMessage("Info", "Device disconnected"));
    }
}

TEST(GuiDeviceTest, ClosingWhileARequestIsOutstandingShowsNothing) {
    // Every answer comes two seconds late: the information request is still
    // outstanding when the window closes.
    SimFleet fleet({"--device", "K,delay-ms=2000"});
    GuiDevice* window = openLanDevice(fleet.device(0));
    waitFor([] { return false; }, 500);
    EXPECT_EQ(statusOf(*window), "Connecting ...");
    window->Close(true);
    ASSERT_TRUE(allWindowsGone());
    // Time for the late answer; the test's modal hook fails on any box shown.
    waitFor([] { return false; }, 2500);
}

}  // namespace
