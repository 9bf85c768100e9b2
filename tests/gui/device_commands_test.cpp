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

/// A user who enters a current in the calibration dialog.
class ExpectCalibration : public wxExpectModalBase<GuiCalibrateDialog, ExpectCalibration> {
public:
    explicit ExpectCalibration(wxString current) : current_(std::move(current)) {}

protected:
    int OnInvoked(GuiCalibrateDialog* dialog) const override {
        type(*dialog, GuiCalibrateDialog::kEntryId, current_);
        return wxID_OK;
    }

private:
    wxString current_;
};

/// A device window on a device of the simulator, ready for commands.
struct ReadyWindow {
    SimFleet const& fleet;
    size_t device;
    GuiDevice& window = *openLanDevice(fleet.device(device));

    ReadyWindow(SimFleet const& fleet, size_t device) : fleet(fleet), device(device) {
        EXPECT_TRUE(waitFor([&] { return ready(window); })) << statusOf(window);
    }
    ~ReadyWindow() {
        window.Close(true);
        EXPECT_TRUE(allWindowsGone());
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

TEST(GuiDeviceCommandsTest, MenusAreEnabledOnceReadyAndWifiSetupOnlyForAWifiModelReachedDirectly) {
    SimFleet fleet({});
    for (size_t device : {0, 1}) {
        GuiDevice* window = openLanDevice(fleet.device(device));
        wxMenuBar* bar = window->GetMenuBar();
        EXPECT_FALSE(bar->IsEnabled(GuiDevice::kMenuPowerControl));
        ASSERT_TRUE(waitFor([&] { return ready(*window); }));
        EXPECT_TRUE(bar->IsEnabled(GuiDevice::kMenuPowerControl));
        EXPECT_TRUE(bar->IsEnabled(GuiDevice::kMenuAbout));
        bool const wifiModel = device == 1;
        EXPECT_EQ(bar->FindItem(GuiDevice::kMenuWifiSetup) != nullptr, wifiModel);
        window->Close(true);
        ASSERT_TRUE(allWindowsGone());
    }
}

TEST(GuiDeviceCommandsTest, ScreenshotOfTheDeviceMenuOpen) {
    SimFleet fleet({"--device", "V"});
    ReadyWindow user(fleet, 0);
    user.window.Raise();
    user.window.SetFocus();
    wxUIActionSimulator keyboard;
    // The menu opens as the user opens it, with its mnemonic; it is a window
    // of its own, so the picture is taken from the screen.
    waitFor([] { return false; }, 300);
    keyboard.Char('d', wxMOD_ALT);
    waitFor([] { return false; }, 500);
    wxRect const area = user.window.GetScreenRect();
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

TEST(GuiDeviceCommandsTest, CommandsReachTheDeviceAndCancelSendsNothing) {
    SimFleet fleet({"--device", "K"});
    ReadyWindow user(fleet, 0);
    GuiDevice& window = user.window;
    auto const monitor = std::vector<std::string>{"monitor", "--count", "1"};

    // "OFF" is the dialog's Cancel button.
    wxTEST_DIALOG(window.ProcessCommand(GuiDevice::kMenuPowerControl),
                  ExpectMessage("Device Power", "Turn the device power ...", wxID_CANCEL));
    EXPECT_TRUE(user.deviceShows(monitor, [](nlohmann::json const& j) { return j["power_status"] == "OFF"; }));
    wxTEST_DIALOG(window.ProcessCommand(GuiDevice::kMenuPowerControl),
                  ExpectMessage("Device Power", "Turn the device power ...", wxID_OK));
    EXPECT_TRUE(user.deviceShows(monitor, [](nlohmann::json const& j) { return j["power_status"] == "ON"; }));

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

    struct Logged {
        int command;
        char const* question;
        char const* event;
    };
    for (Logged const& step :
         {Logged{GuiDevice::kMenuZeroCurrentOffset, "Calibrate the current offset ?", "current offset zeroed"},
          Logged{GuiDevice::kMenuForceFgSync, "Force the fuel gauge SoC synchronization ?",
                 "fuel gauge synchronised"}}) {
        wxTEST_DIALOG(window.ProcessCommand(step.command), ExpectMessage("Confirmation", step.question));
        EXPECT_TRUE(user.debugSays(step.event)) << step.event;
    }
    wxTEST_DIALOG(window.ProcessCommand(GuiDevice::kMenuCalibrateCurrent), ExpectCalibration("4.5 A"));
    EXPECT_TRUE(user.debugSays("current calibrated"));

    int const answered = ExpectMessage::answered();
    wxTEST_DIALOG(
        {
            window.ProcessCommand(GuiDevice::kMenuResetFactory);
            EXPECT_TRUE(waitForMessage(answered + 1));
        },
        ExpectMessage("Confirmation", kFactoryResetQuestion),
        ExpectMessage("Info", "The device has been reset to factory defaults."));
    EXPECT_TRUE(user.deviceShows({"info"}, [](nlohmann::json const& j) { return j["name"] == "Zelmor-K"; }));
    EXPECT_TRUE(waitFor([&] { return window.GetTitle() == "Zelmor Manager: Zelmor-K"; }));
    saveScreenshot(window, "device_window_commands");
}

/// A user who looks at a dialog of type D and closes it with `answer`, after
/// `use` (if any) had its way with it.
template <class D>
class ExpectDialog : public wxExpectModalBase<D, ExpectDialog<D>> {
public:
    explicit ExpectDialog(int answer, std::function<void(D&)> use = {}) : answer_(answer), use_(std::move(use)) {}

protected:
    int OnInvoked(D* dialog) const override {
        if (use_) use_(*dialog);
        ++shown;
        return answer_;
    }

public:
    static inline int shown = 0;

private:
    int answer_;
    std::function<void(D&)> use_;
};

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
    }
    ReadyWindow oneNetwork(fleet, 1);
    wxTEST_DIALOG(oneNetwork.window.ProcessCommand(GuiDevice::kMenuWifiSetup), ExpectDialog<GuiWifiSetup>(wxID_CANCEL));
}

TEST(GuiDeviceCommandsTest, PasswordsLockNewConnectionsAndAChangeRefusedByALockAsksForItsPassword) {
    SimFleet fleet({"--device", "V"});
    ReadyWindow user(fleet, 0);
    GuiDevice& window = user.window;
    std::string const address = fleet.device(0).address;

    // Another client locks the device: the window's session is below the new
    // lock, so its commands are refused, and a change of the lock asks for
    // the password that refused it.
    ASSERT_EQ(zelmorctl({"--lan", address, "lock", "user", "--new-password", "heron"}).status, 0);
    wxTEST_DIALOG(
        {
            int const answered = ExpectMessage::answered();
            window.ProcessCommand(GuiDevice::kMenuResetEnergyMeter);
            EXPECT_TRUE(waitForMessage(answered + 1));
        },
        ExpectMessage("Confirmation", "Reset the energy meter ?"),
        ExpectMessage("Error", "Feature is locked by user password."));
    wxTEST_DIALOG(
        {
            int const answered = ExpectMessage::answered();
            window.ProcessCommand(GuiDevice::kMenuSetUserPassword);
            EXPECT_TRUE(waitForMessage(answered));
        },
        ExpectEnterTwice("", ""), ExpectEnterString("heron"),
        ExpectMessage("Confirmation", "Device user password reset successfully.\n"));
    EXPECT_EQ(zelmorctl({"--lan", address, "stats"}).status, 0);

    wxTEST_DIALOG(window.ProcessCommand(GuiDevice::kMenuSetUserPassword), ExpectEnterTwice("bilge", "bilge"));
    EXPECT_TRUE(waitFor([&] { return zelmorctl({"--lan", address, "stats"}).status == 1; }, 10000));
    EXPECT_EQ(zelmorctl({"--lan", address, "stats"}).err, "Feature is locked by user password.\n");
    // An empty password removes the lock; this session set it, so it may.
    wxTEST_DIALOG(
        {
            int const answered = ExpectMessage::answered();
            window.ProcessCommand(GuiDevice::kMenuSetUserPassword);
            EXPECT_TRUE(waitForMessage(answered));
        },
        ExpectEnterTwice("", ""), ExpectMessage("Confirmation", "Device user password reset successfully.\n"));
    EXPECT_EQ(zelmorctl({"--lan", address, "stats"}).status, 0);
}

TEST(GuiDeviceCommandsTest, APairedDeviceOpensFromRemoteDevicesThroughTheHub) {
    SimFleet fleet({"--device", "V,name=Pontoon bank", "--no-announce"});
    {
        ReadyWindow user(fleet, 0);
        wxTEST_DIALOG(
            {
                user.window.ProcessCommand(GuiDevice::kMenuPair);
                ASSERT_TRUE(waitFor([] { return !localStore().remoteDevices().empty(); }));
            },
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
