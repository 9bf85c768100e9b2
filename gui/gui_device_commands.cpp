// The device window's menus and the commands they give the device.
#include <wx/menu.h>
#include <wx/msgdlg.h>
#include <wx/utils.h>

#include <ctime>

#include "auth_key.h"
#include "device_link.h"
#include "firmware_update_text.h"
#include "gui_about.h"
#include "gui_calibrate_dialog.h"
#include "gui_chart.h"
#include "gui_device.h"
#include "gui_device_config.h"
#include "gui_enter_string.h"
#include "gui_fg_stats.h"
#include "gui_multiple_wifi_setup.h"
#include "gui_stats.h"
#include "gui_timers_dialog.h"
#include "gui_wifi_setup.h"
#include "hardware_revision.h"
#include "local_store_instance.h"
#include "log_sync_text.h"
#include "report_response_code.h"
#include "schedule_writer.h"
#include "wifi_text.h"
#include "zelmor_impl.h"

namespace {

struct MenuItem {
    int id;
    char const* text;
    char const* help;
};

struct Menu {
    char const* title;
    std::initializer_list<MenuItem> items;
};

Menu const kMenus[] = {
    {"&Device",
     {
         {GuiDevice::kMenuViewStatistics, "View Statistics", "View the device statistics"},
         {GuiDevice::kMenuViewFgStatistics, "View FuelGauge Statistics", "View the FuelGauge statistics"},
         {GuiDevice::kMenuDataLog, "Data Log", "Access the data logging feature"},
         {GuiDevice::kMenuSyncLog, "Sync Log Now", "Synchronize the data log now"},
         {GuiDevice::kMenuClearLocalLog, "Clear Local Data Log", "Clear the local copy of the data log feature"},
         {GuiDevice::kMenuTimers, "Timers", "Add, edit or delete timers"},
         {GuiDevice::kMenuPowerControl, "Power Control", "Control the device power relay output"},
         {GuiDevice::kMenuResetEnergyMeter, "Reset Energy Meter", "Reset the device energy meter"},
         {GuiDevice::kMenuResetCoulombMeter, "Reset Coulomb Meter", "Reset the device coulomb meter"},
         {GuiDevice::kMenuUnlock, "Unlock Device", "Unlock a password protected device"},
         {GuiDevice::kMenuSetUserPassword, "Set User Password", "Set or remove the user password protection"},
         {GuiDevice::kMenuSetMasterPassword, "Set Master Password", "Set or remove the master password protection"},
         {GuiDevice::kMenuPair, "Pair Device", "Pair the device"},
         {GuiDevice::kMenuDisconnect, "Disconnect", "Disconnect from the device and close this window"},
     }},
    {"&Settings",
     {
         {GuiDevice::kMenuRename, "Rename Device", "Change the BLE name of a device"},
         {GuiDevice::kMenuConfiguration, "Device Configuration", "Access the device configuration"},
         {GuiDevice::kMenuWifiSetup, "WiFi Setup", "Configure the WiFi network Zelmor connects to"},
         {GuiDevice::kMenuResetFactory, "Factory Reset", ""},
         {GuiDevice::kMenuSetTime, "Set Device Clock", "Set the device clock"},
         {GuiDevice::kMenuZeroCurrentOffset, "Zero Current Offset", "Zero the current offset"},
         {GuiDevice::kMenuCalibrateCurrent, "Calibrate Current", "Calibrate the current reading"},
         {GuiDevice::kMenuForceFgSync, "Force SOC Sync", "Force the SOC synchronization"},
     }},
    {"&Help", {{GuiDevice::kMenuAbout, "&About", ""}}},
};

}  // namespace

void GuiDevice::buildMenus() {
    auto* bar = new wxMenuBar;
    for (Menu const& menu : kMenus) {
        auto* items = new wxMenu;
        for (MenuItem const& item : menu.items) items->Append(item.id, item.text, item.help);
        bar->Append(items, menu.title);
    }
    SetMenuBar(bar);
    setMenusEnabled(false);
}

void GuiDevice::setMenusEnabled(bool enabled) {
    wxMenuBar* const bar = GetMenuBar();
    bool const wifiSetup = isWifiFamily(info_.hardwareRevision) && device_->isDirectConnection();
    wxMenu* settings = nullptr;
    if (enabled && !wifiSetup && bar->FindItem(kMenuWifiSetup, &settings)) settings->Destroy(kMenuWifiSetup);
    for (Menu const& menu : kMenus)
        for (MenuItem const& item : menu.items)
            if (bar->FindItem(item.id)) bar->Enable(item.id, enabled);
}

void GuiDevice::bindCommands() {
    using Request = void (Zelmor::*)(Zelmor::DoneCallback);
    struct Confirmed {
        int id;
        char const* question;
        Request request;
    };
    static Confirmed const confirmed[] = {
        {kMenuResetEnergyMeter, "Reset the energy meter ?", &Zelmor::requestResetEnergyMeter},
        {kMenuResetCoulombMeter, "Reset the coulomb meter ?", &Zelmor::requestResetCoulombMeter},
        {kMenuForceFgSync, "Force the fuel gauge SoC synchronization ?", &Zelmor::requestFgSynchronize},
        {kMenuZeroCurrentOffset, "Calibrate the current offset ?", &Zelmor::requestZeroCurrentOffset},
    };
    for (Confirmed const& command : confirmed)
        Bind(
            wxEVT_MENU, [this, &command](wxCommandEvent&) { confirmAndSend(command.question, command.request); },
            command.id);
    Bind(wxEVT_MENU, &GuiDevice::OnMenuDeviceViewStats, this, kMenuViewStatistics);
    Bind(wxEVT_MENU, &GuiDevice::OnMenuDeviceViewFgStats, this, kMenuViewFgStatistics);
    Bind(wxEVT_MENU, &GuiDevice::OnMenuDeviceTimers, this, kMenuTimers);
    Bind(
        wxEVT_MENU,
        [this](wxCommandEvent&) {
            if (!logSync_.syncing()) startSync();
        },
        kMenuSyncLog);
    Bind(wxEVT_MENU, &GuiDevice::OnMenuDeviceDataLog, this, kMenuDataLog);
    Bind(wxEVT_MENU, &GuiDevice::OnMenuDeviceClearLocalLog, this, kMenuClearLocalLog);
    Bind(wxEVT_MENU, &GuiDevice::OnMenuSettingsWifiSetup, this, kMenuWifiSetup);
    Bind(wxEVT_MENU, &GuiDevice::OnMenuDevicePowerControl, this, kMenuPowerControl);
    Bind(
        wxEVT_MENU, [this](wxCommandEvent&) { deviceUnlock(false); }, kMenuUnlock);
    Bind(
        wxEVT_MENU, [this](wxCommandEvent&) { OnMenuSettingsSetPassword(PasswordLock::User); }, kMenuSetUserPassword);
    Bind(
        wxEVT_MENU, [this](wxCommandEvent&) { OnMenuSettingsSetPassword(PasswordLock::Master); },
        kMenuSetMasterPassword);
    Bind(wxEVT_MENU, &GuiDevice::OnMenuDevicePair, this, kMenuPair);
    Bind(
        wxEVT_MENU, [this](wxCommandEvent&) { Close(true); }, kMenuDisconnect);
    Bind(wxEVT_MENU, &GuiDevice::OnMenuSettingsRename, this, kMenuRename);
    Bind(wxEVT_MENU, &GuiDevice::OnMenuSettingsConfiguration, this, kMenuConfiguration);
    Bind(wxEVT_MENU, &GuiDevice::OnMenuSettingsResetFactory, this, kMenuResetFactory);
    Bind(wxEVT_MENU, &GuiDevice::OnMenuSettingsSetTime, this, kMenuSetTime);
    Bind(wxEVT_MENU, &GuiDevice::OnMenuSettingsCalibrateCurrent, this, kMenuCalibrateCurrent);
    Bind(wxEVT_MENU, &GuiDevice::OnMenuAbout, this, kMenuAbout);
}

bool GuiDevice::confirm(wxString const& question) {
    return showMessage(question, "Confirmation", kQuestionStyle) == wxID_OK;
}

Zelmor::DoneCallback GuiDevice::replyHandler(std::function<void(GuiDevice&)> success) {
    return [self = anchor_.handle(*this), success = std::move(success)](Zelmor::ResponseCode code) {
        postToWindow(self, [code, success](GuiDevice& window) {
            if (window.report(code) && success) success(window);
        });
    };
}

void GuiDevice::confirmAndSend(wxString const& question, void (Zelmor::*request)(Zelmor::DoneCallback)) {
    if (confirm(question)) (device_.get()->*request)(replyHandler());
}

void GuiDevice::OnMenuDeviceViewStats(wxCommandEvent&) {
    GuiStats dialog(this, *device_);
    showModal(dialog);
}

void GuiDevice::OnMenuDeviceViewFgStats(wxCommandEvent&) {
    auto const self = anchor_.handle(*this);
    device_->requestGetFgStatistics([self](Zelmor::ResponseCode code, Zelmor::FuelgaugeStatistics const& statistics) {
        postToWindow(self, [code, statistics](GuiDevice& window) {
            if (!window.report(code)) return;
            GuiFgStats dialog(&window, statistics);
            window.showModal(dialog);
        });
    });
}

void GuiDevice::OnMenuDeviceDataLog(wxCommandEvent&) {
    // A year of log takes a second or two to read.
    wxBusyCursor busy;
    localStore().setCurrentDevice(serial());
    localStore().loadLocalLog(info_.hardwareRevision);
    (new GuiChart(this, "Zelmor Data Log", info_.hardwareRevision))->Show();
}

void GuiDevice::OnMenuDeviceClearLocalLog(wxCommandEvent&) {
    // The copy may hold files the device has dropped since: ask first.
    if (!confirm(kClearLocalLogQuestion)) return;
    stopSync();
    localStore().setCurrentDevice(serial());
    localStore().clearLocalLog();
}

void GuiDevice::OnMenuDeviceTimers(wxCommandEvent&) {
    auto const self = anchor_.handle(*this);
    device_->requestGetSchedules([self](Zelmor::ResponseCode code, std::vector<ZelmorSchedule> const& timers) {
        postToWindow(self, [code, timers](GuiDevice& window) {
            if (!window.report(code)) return;
            GuiTimersDialog dialog(&window, timers);
            if (window.showModal(dialog) != wxID_OK) return;
            writeSchedules(*window.device_, timers, dialog.timers(), window.replyHandler());
        });
    });
}

void GuiDevice::OnMenuSettingsWifiSetup(wxCommandEvent&) {
    if (keepsKnownWifiNetworks(info_)) {
        GuiMultipleWifiSetup dialog(this, *device_);
        showModal(dialog);
    } else {
        GuiWifiSetup dialog(this, *device_);
        showModal(dialog);
    }
}

void GuiDevice::OnMenuDevicePowerControl(wxCommandEvent&) {
    wxMessageDialog box(this, "Turn the device power ...", "Device Power", wxOK | wxCANCEL | wxCENTRE | wxSTAY_ON_TOP);
    box.SetOKCancelLabels("ON", "OFF");
    int const answer = showModal(box);
    if (guard_.closeWaiting()) return;
    device_->requestSetPowerState(answer == wxID_OK, replyHandler());
}

void GuiDevice::OnMenuSettingsSetPassword(PasswordLock lock) {
    PasswordTexts const& texts = passwordTexts(lock);
    GuiEnterString dialog(this, wxID_ANY, texts.title, true, true);
    dialog.setPrompt(texts.newPrompt);
    dialog.setConfirmationPrompt(texts.confirmPrompt);
    if (showModal(dialog) != wxID_OK) return;
    // An empty password removes the lock.
    std::string const password = dialog.value();
    sendPasswordChange(lock, password.empty() ? std::nullopt : std::optional(password));
}

void GuiDevice::sendPasswordChange(PasswordLock lock, std::optional<std::string> const& password) {
    auto done = [self = anchor_.handle(*this), lock, password](Zelmor::ResponseCode code) {
        postToWindow(self, [lock, password, code](GuiDevice& window) {
            if (currentPasswordPrompt(code) != nullptr) {
                window.unlockAndRetry(lock, password, code);
                return;
            }
            if (!window.report(code) || password) return;
            window.showMessage(passwordTexts(lock).resetText, "Confirmation");
        });
    };
    if (lock == PasswordLock::User) {
        if (password)
            device_->requestSetUserPasswordLock(makeAuthKey(*password), done);
        else
            device_->requestClearUserPasswordLock(done);
    } else {
        if (password)
            device_->requestSetMasterPasswordLock(makeAuthKey(*password), done);
        else
            device_->requestClearMasterPasswordLock(done);
    }
}

void GuiDevice::unlockAndRetry(PasswordLock lock, std::optional<std::string> const& password,
                               Zelmor::ResponseCode lockedBy) {
    GuiEnterString dialog(this, wxID_ANY, passwordTexts(lock).title, true, false);
    dialog.setPrompt(currentPasswordPrompt(lockedBy));
    if (showModal(dialog) != wxID_OK) return;
    auto const self = anchor_.handle(*this);
    device_->requestUnlock(makeAuthKey(dialog.value()), [self, lock, password](Zelmor::ResponseCode code) {
        postToWindow(self, [lock, password, code](GuiDevice& window) {
            if (code == Zelmor::ResponseCode::PasswordRejected) {
                window.showMessage("Invalid password.", "Error", kErrorStyle);
            } else if (window.report(code)) {
                window.sendPasswordChange(lock, password);
            }
        });
    });
}

void GuiDevice::OnMenuSettingsRename(wxCommandEvent&) {
    GuiEnterString dialog(this, wxID_ANY, "Enter New Name", false, false);
    dialog.setPrompt("Device name");
    dialog.setMaxLength(deviceNameMaxLength(info_.hardwareRevision));
    if (showModal(dialog) != wxID_OK) return;
    std::string const name = dialog.value();
    device_->requestRename(name, replyHandler([](GuiDevice& window) { window.refreshInfo(); }));
}

void GuiDevice::OnMenuSettingsConfiguration(wxCommandEvent&) {
    auto const self = anchor_.handle(*this);
    device_->requestGetConfig([self](Zelmor::ResponseCode code, ZelmorConfig const& config) {
        postToWindow(self, [code, config](GuiDevice& window) {
            // A read cancelled by the link's end brings no image to edit.
            if (!window.report(code) || code != Zelmor::ResponseCode::Success) return;
            // The dialog writes the configuration itself, and stays open
            // until the device has taken it.
            GuiDeviceConfig dialog(&window, *window.device_, config, window.info_.hardwareRevision);
            if (window.showModal(dialog) == wxID_OK) window.setTimeZone(dialog.written().timeZone());
        });
    });
}

void GuiDevice::OnMenuDevicePair(wxCommandEvent&) {
    auto const self = anchor_.handle(*this);
    device_->requestGetAccessKeys([self](Zelmor::ResponseCode code, Zelmor::WifiAccessKey const& key) {
        postToWindow(self, [code, key](GuiDevice& window) {
            if (!window.report(code)) return;
            localStore().addRemoteDevice(pairedDevice(window.info_, key));
            window.showMessage(wxString::FromUTF8(pairingInstructions(window.info_.name)), "Instructions");
        });
    });
}

void GuiDevice::OnMenuSettingsResetFactory(wxCommandEvent&) {
    if (!confirm(kFactoryResetQuestion)) return;
    device_->requestResetConfig(replyHandler([](GuiDevice& window) {
        window.showMessage("The device has been reset to factory defaults.", "Info");
        // The name is the factory's again.
        window.refreshInfo();
    }));
}

void GuiDevice::OnMenuSettingsSetTime(wxCommandEvent&) {
    std::time_t const now = std::time(nullptr);
    if (!confirm(wxString::FromUTF8(clockQuestion(now)))) return;
    device_->requestSetTime(static_cast<uint32_t>(now), replyHandler());
}

void GuiDevice::OnMenuSettingsCalibrateCurrent(wxCommandEvent&) {
    GuiCalibrateDialog dialog(this, wxID_ANY, "Calibrate Current");
    if (showModal(dialog) != wxID_OK) return;
    device_->requestCalibrateCurrent(dialog.current(), replyHandler());
}

void GuiDevice::OnMenuAbout(wxCommandEvent&) {
    GuiAbout about(this, "About", *device_);
    showModal(about);
    // Its own answer, not the guard's: a device that took a new firmware
    // restarts at once, and the link's end may already have reached the
    // window. The user is told all the same not to cut the power.
    if (about.GetReturnCode() != wxID_OK) return;
    showMessage(kFirmwareReceived, "Info");
    // The ordinary end of a link follows, which closes the window.
    device_->disconnect();
}
