// The device window's About against zelmor-sim and its firmware file server:
// the check for an update, the update and how it ends. What the device runs
// afterwards is read back with zelmorctl.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <wx/button.h>
#include <wx/stattext.h>

#include <functional>
#include <string>
#include <tuple>
#include <utility>

#include "connected_device.h"
#include "firmware_update_text.h"
#include "gui_about.h"
#include "gui_dfu_progress.h"
#include "gui_user.h"

namespace {

// Every simulated device runs 1.32; the server's newer image is 1.33.
constexpr char kUpdateAvailable[] = "Firmware update to version 1.33 is available";
constexpr char kNoUpdate[] = "No firmware update is available at the moment";

/// The test process looks for updates on the fleet's firmware file server,
/// and gives up on a silent one after a second.
struct UpdateCheckSetting {
    UpdateCheckSetting() {
        ::setenv("ZELMOR_FIRMWARE_SERVER", "127.0.0.1:7210", 1);
        ::setenv("ZELMOR_FIRMWARE_TIMEOUT_MS", "1000", 1);
    }
    ~UpdateCheckSetting() {
        ::unsetenv("ZELMOR_FIRMWARE_SERVER");
        ::unsetenv("ZELMOR_FIRMWARE_TIMEOUT_MS");
    }
};

std::string label(wxWindow& dialog, char const* name) {
    return wxStaticCast(wxWindow::FindWindowByName(name, &dialog), wxStaticText)->GetLabel().utf8_string();
}

/// The screenshot of a dialog whose labels just changed: GTK gives the
/// labels their new size and draws them in its own time.
void screenshot(wxWindow& dialog, std::string const& name) {
    waitFor([] { return false; }, 300);
    saveScreenshot(dialog, name);
}

bool checked(GuiAbout& about) {
    return waitFor([&] { return label(about, "result") != kCheckingForUpdate; });
}

void click(wxWindow& dialog, int id) {
    wxCommandEvent event(wxEVT_BUTTON, id);
    event.SetEventObject(dialog.FindWindow(id));
    dialog.ProcessWindowEvent(event);
}

std::string firmwareOf(SimFleet const& fleet) {
    return jsonResult(zelmorctl({"--json", "--lan", fleet.device(0).address, "info"}))["firmware"];
}

/// A user at a dialog that ends itself. The test's hook stands in for the
/// modal loop: the dialog is shown, `use` does what the user does, and the
/// dialog's own end (modeless, it hides) gives the answer.
template <class D>
class RunDialog : public wxExpectModalBase<D, RunDialog<D>> {
public:
    explicit RunDialog(std::function<void(D&)> use = {}) : use_(std::move(use)) {}

protected:
    int OnInvoked(D* dialog) const override {
        dialog->Show();
        if (use_) use_(*dialog);
        EXPECT_TRUE(waitFor([dialog] { return !dialog->IsShown(); }, 60000));
        return dialog->GetReturnCode();
    }

private:
    std::function<void(D&)> use_;
};

/// "Device disconnected" where it may come: the device drops its link as
/// soon as it has taken the image, and the window may hear of that before or
/// after the transfer's end, or not at all once it has disconnected itself.
class MaybeLinkEndMessage : public wxExpectModalBase<wxMessageDialog, MaybeLinkEndMessage> {
protected:
    int OnInvoked(wxMessageDialog* dialog) const override {
        return dialog->GetMessage() == "Device disconnected" ? wxID_OK : wxID_NONE;
    }
};

/// "Update", confirmed, and the transfer that follows until it ends as
/// `during` lets it.
void update(GuiAbout& about, std::function<void(GuiDFUProgress&)> during = {}) {
    ASSERT_TRUE(about.FindWindow(GuiAbout::kUpdateId)->IsEnabled());
    wxTEST_DIALOG(click(about, GuiAbout::kUpdateId), ExpectMessage("Confirmation", kFirmwareUpdateQuestion),
                  RunDialog<GuiDFUProgress>(during));
}

TEST(FirmwareUpdateTest, CheckOffersOnlyASoundNewerImage) {
    UpdateCheckSetting setting;
    std::tuple<char const*, char const*> const cases[] = {
        {"newer", kUpdateAvailable}, {"slow", kUpdateAvailable}, {"none", kNoUpdate},  {"404", kNoUpdate},
        {"corrupt", kNoUpdate},      {"stall", kNoUpdate},       {"equal", kNoUpdate}, {"older", kNoUpdate},
    };
    for (auto const& [offer, text] : cases) {
        SCOPED_TRACE(offer);
        SimFleet fleet({"--device", "K", "--firmware", offer});
        ConnectedDevice device(fleet.device(0).address);
        GuiAbout about(nullptr, "About", device.device);
        about.Show();
        ASSERT_TRUE(checked(about));
        EXPECT_EQ(label(about, "result"), text);
        EXPECT_EQ(about.FindWindow(GuiAbout::kUpdateId)->IsEnabled(), text == kUpdateAvailable);
        if (offer == std::string("newer")) screenshot(about, "about_update_available");
    }
}

TEST(FirmwareUpdateTest, UpdateFromTheDeviceWindowBringsTheDeviceBackWithTheNewFirmware) {
    UpdateCheckSetting setting;
    SimFleet fleet({"--device", "K"});
    MainWindowUser user;
    wxListCtrl* const list = user.window.localDevicesList();
    ASSERT_TRUE(waitFor([&] { return list->GetItemCount() == 1; }));
    EXPECT_EQ(cell(list, 0, 3), "1.32");
    activate(list, 0);
    GuiDevice& window = *user.window.deviceWindows().front();
    ASSERT_TRUE(waitFor([&] { return ready(window); })) << statusOf(window);
    auto const updateAtOnce = [](GuiAbout& about) {
        ASSERT_TRUE(checked(about));
        click(about, GuiAbout::kUpdateId);
    };
    wxTEST_DIALOG(window.ProcessCommand(GuiDevice::kMenuAbout), RunDialog<GuiAbout>(updateAtOnce),
                  ExpectMessage("Confirmation", kFirmwareUpdateQuestion), RunDialog<GuiDFUProgress>(),
                  MaybeLinkEndMessage().Optional(), ExpectMessage("Info", kFirmwareReceived),
                  MaybeLinkEndMessage().Optional());
    EXPECT_TRUE(waitFor([&] { return user.window.deviceWindows().empty(); }));
    EXPECT_TRUE(waitFor([&] { return list->GetItemCount() == 1 && cell(list, 0, 3) == "1.33"; }));
    EXPECT_EQ(firmwareOf(fleet), "1.33");
}

TEST(FirmwareUpdateTest, CancelStopsTheTransferAndTheDeviceGoesOnWithItsFirmware) {
    UpdateCheckSetting setting;
    // Every answer comes a quarter of a second late: the transfer takes a few
    // seconds, long enough to be cancelled.
    SimFleet fleet({"--device", "K,delay-ms=250"});
    ConnectedDevice device(fleet.device(0).address);
    GuiAbout about(nullptr, "About", device.device);
    about.Show();
    ASSERT_TRUE(checked(about));
    update(about, [](GuiDFUProgress& progress) {
        ASSERT_TRUE(waitFor([&] { return label(progress, "status") != "Starting ..."; }));
        screenshot(progress, "firmware_progress");
        click(progress, wxID_CANCEL);
    });
    // No error box (the hook fails on any), and About ends as cancelled.
    EXPECT_FALSE(about.IsShown());
    EXPECT_EQ(about.GetReturnCode(), wxID_CANCEL);
    EXPECT_EQ(firmwareOf(fleet), "1.32");
}

TEST(FirmwareUpdateTest, LinkCutMidTransferTellsTheErrorAndTheDeviceKeepsItsFirmware) {
    UpdateCheckSetting setting;
    // The connection closes once the device has sent the information record
    // and the answers to about two thirds of the image's 17 blocks (some ten
    // bytes each); zelmorctl's own connection stays below the limit.
    SimFleet fleet({"--device", "K,close-after=170"});
    ConnectedDevice device(fleet.device(0).address);
    GuiAbout about(nullptr, "About", device.device);
    about.Show();
    ASSERT_TRUE(checked(about));
    wxTEST_DIALOG(click(about, GuiAbout::kUpdateId), ExpectMessage("Confirmation", kFirmwareUpdateQuestion),
                  RunDialog<GuiDFUProgress>([](GuiDFUProgress& progress) {
                      EXPECT_TRUE(waitFor([&] { return label(progress, "status") != "Starting ..."; }));
                  }),
                  ExpectMessage("Error", kFirmwareUpdateError));
    EXPECT_EQ(about.GetReturnCode(), wxID_CANCEL);
    EXPECT_EQ(firmwareOf(fleet), "1.32");
}

TEST(FirmwareUpdateTest, ClosingAboutWhileTheCheckWaitsShowsNothing) {
    UpdateCheckSetting setting;
    SimFleet fleet({"--device", "K", "--firmware", "stall"});
    ConnectedDevice device(fleet.device(0).address);
    {
        GuiAbout about(nullptr, "About", device.device);
        about.Show();
        waitFor([] { return false; }, 200);
        EXPECT_EQ(label(about, "result"), kCheckingForUpdate);
    }
    // Time for the check to give up and post its result to no one; the
    // test's hook fails on any box shown.
    waitFor([] { return false; }, 2500);
}

}  // namespace
