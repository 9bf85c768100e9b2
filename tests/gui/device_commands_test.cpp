// The device window's commands against zelmor-sim. What a command did to the
// device is read back with zelmorctl, not from the window.
#include <gtest/gtest.h>

#include <wx/dcscreen.h>
#include <wx/menu.h>
#include <wx/uiaction.h>

#include <ctime>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "gui_calibrate_dialog.h"
#include "gui_fg_stats.h"
#include "gui_multiple_wifi_setup.h"
#include "gui_stats.h"
#include "gui_timers_dialog.h"
#include "gui_user.h"
#include "gui_wifi_setup.h"
#include "local_store_instance.h"

namespace {

/// A device window on a device of the simulator, ready for commands. Its
/// commands are disabled until then.
struct ReadyWindow {
    SimFleet const& fleet;
    size_t device;
    GuiDevice& window = *openLanDevice(fleet.device(device));

    ReadyWindow(SimFleet const& fleet, size_t device) : fleet(fleet), device(device) {
        EXPECT_FALSE(window.GetMenuBar()->IsEnabled(GuiDevice::kMenuAbout));
        EXPECT_TRUE(waitFor([&] { return ready(window); })) << statusOf(window);
        EXPECT_TRUE(window.GetMenuBar()->IsEnabled(GuiDevice::kMenuAbout));
    }
    ~ReadyWindow() {
        window.Close(true);
        EXPECT_TRUE(allWindowsGone());
    }

    /// Gives a command; when its reply is told in a box, waits until `boxes`
    /// message boxes (its confirmation included) have been answered.
    void command(int id, int boxes = 0) {
        int const answered = ExpectMessage::answered();
        window.ProcessCommand(id);
        if (boxes > 0) {
            EXPECT_TRUE(waitForMessage(answered + boxes - 1));
        }
    }
    /// zelmorctl's JSON answer to `command` for this device.
    nlohmann::json read(std::vector<std::string> command) const {
        command.insert(command.begin(), {"--json", "--lan", fleet.device(device).address});
        return jsonResult(zelmorctl(command));
    }
    /// Waits until the device, as zelmorctl reads it, satisfies `predicate`:
    /// the window's request is on its way when the menu handler returns.
    bool deviceShows(std::vector<std::string> const& command, std::function<bool(nlohmann::json const&)> predicate) {
        return waitFor([&] { return predicate(read(command)); }, 10000);
    }
    bool debugSays(std::string const& event) {
        return deviceShows({"debug"}, [&](nlohmann::json const& j) {
            return j["text"].get<std::string>().find(event) != std::string::npos;
        });
    }
};

double meter(nlohmann::json const& reading, char const* key) { return std::abs(reading[key].get<double>()); }

TEST(GuiDeviceCommandsTest, CommandsReachTheDeviceAndCancelSendsNothing) {
    SimFleet fleet({"--device", "K"});
    ReadyWindow user(fleet, 0);
    GuiDevice& window = user.window;
    EXPECT_EQ(window.GetMenuBar()->FindItem(GuiDevice::kMenuWifiSetup), nullptr);
    auto const monitor = std::vector<std::string>{"monitor", "--count", "1"};

    // "OFF" is the dialog's Cancel button.
    for (auto const& [answer, status] : {std::pair{wxID_CANCEL, "OFF"}, std::pair{wxID_OK, "ON"}}) {
        wxTEST_DIALOG(window.ProcessCommand(GuiDevice::kMenuPowerControl),
                      ExpectMessage("Device Power", "Turn the device power ...", answer));
        std::string const expected = status;
        EXPECT_TRUE(user.deviceShows(monitor, [&](nlohmann::json const& j) { return j["power_status"] == expected; }));
    }

    // Two days of history leave the meters far from zero; a reset brings them
    // back to what a few seconds add.
    struct Reset {
        int command;
        char const* question;
        char const* key;
    };
    for (Reset const& reset : {Reset{GuiDevice::kMenuResetEnergyMeter, "Reset the energy meter ?", "energy_mWh"},
                               Reset{GuiDevice::kMenuResetCoulombMeter, "Reset the coulomb meter ?", "coulomb_mAh"}}) {
        SCOPED_TRACE(reset.key);
        double const before = meter(user.read(monitor), reset.key);
        ASSERT_GT(before, 1000);
        wxTEST_DIALOG(window.ProcessCommand(reset.command), ExpectMessage("Confirmation", reset.question, wxID_CANCEL));
        EXPECT_GT(meter(user.read(monitor), reset.key), before / 2);
        wxTEST_DIALOG(window.ProcessCommand(reset.command), ExpectMessage("Confirmation", reset.question));
        EXPECT_TRUE(user.deviceShows(monitor, [&](nlohmann::json const& j) { return meter(j, reset.key) < 100; }));
    }

    wxTEST_DIALOG(window.ProcessCommand(GuiDevice::kMenuRename), ExpectEnterString("Bilge bank"));
    EXPECT_TRUE(user.deviceShows({"info"}, [](nlohmann::json const& j) { return j["name"] == "Bilge bank"; }));
    EXPECT_TRUE(waitFor([&] { return window.GetTitle() == "Zelmor Manager: Bilge bank"; }));

    ASSERT_EQ(zelmorctl({"--lan", fleet.device(0).address, "set-time", "978307200"}).status, 0);
    wxTEST_DIALOG(
        window.ProcessCommand(GuiDevice::kMenuSetTime),
        ExpectMessage("Confirmation", "The device clock will be set to:\n", wxID_OK, ExpectMessage::Beginning));
    EXPECT_TRUE(user.deviceShows(monitor, [](nlohmann::json const& j) {
        return std::abs(j["time"].get<double>() - static_cast<double>(std::time(nullptr))) <= 2;
    }));

    for (auto const& [command, question, event] :
         {std::tuple{GuiDevice::kMenuZeroCurrentOffset, "Calibrate the current offset ?", "current offset zeroed"},
          std::tuple{GuiDevice::kMenuForceFgSync, "Force the fuel gauge SoC synchronization ?",
                     "fuel gauge synchronised"}}) {
        wxTEST_DIALOG(window.ProcessCommand(command), ExpectMessage("Confirmation", question));
        EXPECT_TRUE(user.debugSays(event)) << event;
    }
    wxTEST_DIALOG(window.ProcessCommand(GuiDevice::kMenuCalibrateCurrent),
                  ExpectDialog<GuiCalibrateDialog>(wxID_OK, [](GuiCalibrateDialog& dialog) {
                      type(dialog, GuiCalibrateDialog::kEntryId, "4.5 A");
                  }));
    EXPECT_TRUE(user.debugSays("current calibrated"));

    wxTEST_DIALOG(user.command(GuiDevice::kMenuResetFactory, 2), ExpectMessage("Confirmation", kFactoryResetQuestion),
                  ExpectMessage("Info", "The device has been reset to factory defaults."));
    EXPECT_TRUE(user.deviceShows({"info"}, [](nlohmann::json const& j) { return j["name"] == "Zelmor-K"; }));
    EXPECT_TRUE(waitFor([&] { return window.GetTitle() == "Zelmor Manager: Zelmor-K"; }));
    saveScreenshot(window, "device_window_commands");
}

TEST(GuiDeviceCommandsTest, DialogsOpenFromTheMenusAndTimersAreWrittenBack) {
    SimFleet fleet({"--device", "V", "--device", "V,wifi=one"});
    {
        ReadyWindow user(fleet, 0);
        GuiDevice& window = user.window;
        wxTEST_DIALOG(window.ProcessCommand(GuiDevice::kMenuViewStatistics), ExpectDialog<GuiStats>(wxID_CANCEL));
        wxTEST_DIALOG(window.ProcessCommand(GuiDevice::kMenuWifiSetup),
                      ExpectDialog<GuiMultipleWifiSetup>(wxID_CANCEL));
        // The fuel gauge and the timers are read first; their dialogs follow
        // the reply.
        wxTEST_DIALOG(
            {
                window.ProcessCommand(GuiDevice::kMenuViewFgStatistics);
                EXPECT_TRUE(waitFor([] { return ExpectDialog<GuiFgStats>::shown == 1; }));
            },
            ExpectDialog<GuiFgStats>(wxID_CANCEL));
        auto const addTimer = [](GuiTimersDialog& dialog) {
            wxCommandEvent add(wxEVT_BUTTON, GuiTimersDialog::kAddTimerId);
            dialog.FindWindow(GuiTimersDialog::kAddTimerId)->GetEventHandler()->ProcessEvent(add);
        };
        wxTEST_DIALOG(
            {
                window.ProcessCommand(GuiDevice::kMenuTimers);
                EXPECT_TRUE(waitFor([&] {
                    auto const timers = jsonLines(zelmorctl({"--json", "--lan", fleet.device(0).address, "schedules"}));
                    return timers.size() == 1 && timers[0]["name"] == "New Timer";
                }));
            },
            ExpectDialog<GuiTimersDialog>(wxID_OK, addTimer));

        // The menu opens as the user opens it, with its mnemonic; it is a
        // window of its own, so the picture is taken from the screen.
        window.Raise();
        window.SetFocus();
        wxUIActionSimulator keyboard;
        keyboard.Char('d', wxMOD_ALT);
        waitFor([] { return false; }, 500);
        wxRect const area = window.GetScreenRect();
        wxBitmap bitmap(area.GetSize());
        wxMemoryDC copy(bitmap);
        wxScreenDC screen;
        copy.Blit(0, 0, area.width, area.height, &screen, area.x, area.y);
        copy.SelectObject(wxNullBitmap);
        keyboard.Char(WXK_ESCAPE);
        std::filesystem::path const program(wxStandardPaths::Get().GetExecutablePath().utf8_string());
        EXPECT_TRUE(
            bitmap.SaveFile((program.parent_path() / "screenshots" / "device_menu.png").string(), wxBITMAP_TYPE_PNG));
    }
    ReadyWindow oneNetwork(fleet, 1);
    wxTEST_DIALOG(oneNetwork.window.ProcessCommand(GuiDevice::kMenuWifiSetup), ExpectDialog<GuiWifiSetup>(wxID_CANCEL));
}

TEST(GuiDeviceCommandsTest, PasswordsLockNewConnectionsAndAChangeRefusedByALockAsksForItsPassword) {
    SimFleet fleet({"--device", "V"});
    ReadyWindow user(fleet, 0);
    std::string const address = fleet.device(0).address;
    auto const cleared = [] { return ExpectMessage("Confirmation", "Device user password reset successfully.\n"); };

    // Another client locks the device: the window's session is below the new
    // lock, so its commands are refused, and a change of the lock asks for
    // the password that refused it.
    ASSERT_EQ(zelmorctl({"--lan", address, "lock", "user", "--new-password", "heron"}).status, 0);
    wxTEST_DIALOG(user.command(GuiDevice::kMenuResetEnergyMeter, 2),
                  ExpectMessage("Confirmation", "Reset the energy meter ?"),
                  ExpectMessage("Error", "Feature is locked by user password."));
    wxTEST_DIALOG(user.command(GuiDevice::kMenuSetUserPassword, 1), ExpectEnterString("", ""),
                  ExpectEnterString("heron"), cleared());
    EXPECT_EQ(zelmorctl({"--lan", address, "stats"}).status, 0);

    wxTEST_DIALOG(user.command(GuiDevice::kMenuSetUserPassword), ExpectEnterString("bilge", "bilge"));
    EXPECT_TRUE(waitFor([&] { return zelmorctl({"--lan", address, "stats"}).status == 1; }, 10000));
    EXPECT_EQ(zelmorctl({"--lan", address, "stats"}).err, "Feature is locked by user password.\n");
    // An empty password removes the lock; this session set it, so it may.
    wxTEST_DIALOG(user.command(GuiDevice::kMenuSetUserPassword, 1), ExpectEnterString("", ""), cleared());
    EXPECT_EQ(zelmorctl({"--lan", address, "stats"}).status, 0);
}

TEST(GuiDeviceCommandsTest, APairedDeviceOpensFromRemoteDevicesThroughTheHub) {
    SimFleet fleet({"--device", "V,name=Pontoon bank", "--no-announce"});
    {
        ReadyWindow user(fleet, 0);
        wxTEST_DIALOG(
            user.command(GuiDevice::kMenuPair, 1),
            ExpectMessage("Instructions", "Device paired successfully.\n", wxID_OK, ExpectMessage::Beginning));
    }
    GuiMain& main = *new GuiMain(localStore(), std::make_unique<ZelmorScannerImpl>());
    wxListCtrl* const list = main.remoteDevicesList();
    ASSERT_EQ(list->GetItemCount(), 1);
    EXPECT_EQ(cell(list, 0, 0), "Pontoon bank");
    EXPECT_EQ(cell(list, 0, 2), fleet.device(0).serial);
    activate(list, 0);
    ASSERT_EQ(main.deviceWindows().size(), 1u);
    GuiDevice& remote = *main.deviceWindows().front();
    EXPECT_TRUE(waitFor([&] { return ready(remote); })) << statusOf(remote);
    localStore().removeRemoteDevice(0);
    main.Destroy();
    EXPECT_TRUE(allWindowsGone());
}

TEST(GuiDeviceCommandsTest, AStalledDeviceTimesOutWithoutClosingTheWindow) {
    SimFleet fleet({"--device", "K,stall"});
    GuiDevice* window = openLanDevice(fleet.device(0));
    // The information request waits 8 s for its answer.
    wxTEST_DIALOG(EXPECT_TRUE(waitForMessage(ExpectMessage::answered())), ExpectMessage("Error", "Request timeout."));
    EXPECT_EQ(statusOf(*window), "Connecting ...");
    EXPECT_FALSE(window->IsBeingDeleted());
    window->Close(true);
    EXPECT_TRUE(allWindowsGone());
}

}  // namespace
