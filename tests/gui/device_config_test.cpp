// The configuration dialog against zelmor-sim, from the device window's menu
// and on its own; what reached the device is read back over a second link.
#include <gtest/gtest.h>

#include <wx/checkbox.h>
#include <wx/choice.h>
#include <wx/menu.h>
#include <wx/notebook.h>

#include <ctime>
#include <string>

#include "config_dialog_rules.h"
#include "connected_device.h"
#include "gui_device_config.h"
#include "gui_user.h"
#include "live_panel_rows.h"
#include "zelmorctl_fleet.h"

namespace {

using Dialog = GuiDeviceConfig;
using Code = Zelmor::ResponseCode;
using K = ConfigKey;

/// A 12 V LiFePO4 bank with a 500 A shunt: what the dialog's checks accept.
ZelmorConfig known() {
    ZelmorConfig config;
    config.timeZone("Europe/Berlin");
    config.shunt(0);
    config.maxShuntCurrent(500);
    config.dataLoggingMode(7);
    config.lvdEnable(true);
    config.lvdDisconnectThreshold(11.5);
    config.lvdConnectThreshold(12.8);
    config.fuelGaugeEnable(true);
    config.batteryChemistry(2);
    for (K voltage : {K::fuelGaugeBatteryVoltage, K::chargeManagerBatteryVoltage}) config.setRaw(voltage, 1);
    for (K cells : {K::fuelGaugeCellCount, K::chargeManagerCellCount}) config.setValue(cells, 4);
    for (K capacity : {K::fuelGaugeCapacity, K::chargeManagerCapacity}) config.setValue(capacity, 200);
    config.disconnectSocThreshold(20);
    config.reconnectSocThreshold(80);
    return config;
}

/// Whether the window's "Device Clock" row shows the time now in `zone`.
bool clockShownIn(GuiDevice const& window, char const* zone) {
    Zelmor::MonitorData now{};
    now.time = static_cast<uint32_t>(std::time(nullptr));
    std::string expected;
    for (PanelRow const& row : livePanelRows(now, true, zone))
        if (row.label == "Device Clock") expected = row.value;
    for (PanelRow const& row : window.shownRows())
        if (row.label == "Device Clock") return row.value == expected;
    return false;
}

ZelmorConfig readConfig(Zelmor& device) {
    CallbackResult<Code, ZelmorConfig> read;
    device.requestGetConfig(read.callback());
    auto const result = read.get();
    EXPECT_EQ(std::get<0>(result), Code::Success);
    return std::get<1>(result);
}

Code writeConfig(Zelmor& device, ZelmorConfig const& config) {
    CallbackResult<Code> written;
    device.requestSetConfig(config, written.callback());
    return std::get<0>(written.get());
}

template <class Control>
Control& control(wxWindow& dialog, K key) {
    return dynamic_cast<Control&>(*dialog.FindWindow(Dialog::controlId(key)));
}

void click(wxWindow& dialog, wxWindowID id) {
    ASSERT_TRUE(dialog.FindWindow(id)->IsEnabled());
    wxCommandEvent event(wxEVT_BUTTON, id);
    dialog.FindWindow(id)->GetEventHandler()->ProcessEvent(event);
}

void tick(wxWindow& dialog, K key, bool checked) {
    control<wxCheckBox>(dialog, key).SetValue(checked);
    wxCommandEvent event(wxEVT_CHECKBOX, Dialog::controlId(key));
    event.SetInt(checked);
    control<wxCheckBox>(dialog, key).GetEventHandler()->ProcessEvent(event);
}

/// The Generator Control enables: "X" checked and "-" not when shown, "h"
/// when hidden.
std::string replacedEnables(wxWindow& dialog) {
    std::string marks;
    for (K key : generatorReplacedEnables()) {
        wxCheckBox const& box = control<wxCheckBox>(dialog, key);
        marks += !box.IsShown() ? 'h' : box.GetValue() ? 'X' : '-';
    }
    return marks;
}

// The first save's write fails (0x21@2: the seeding write is the first): the
// dialog tells it and keeps the edits, and the second save writes them.
TEST(DeviceConfigTest, MenuCommandWritesTheEditsOnceTheDeviceTakesThem) {
    SimFleet fleet({"--no-announce", "--device", "V,fail=0x21@2"});
    ConnectedDevice link(fleet.device(0).address);
    ASSERT_EQ(writeConfig(link.device, known()), Code::Success);
    GuiDevice& window = *openLanDevice(fleet.device(0));
    ASSERT_TRUE(waitFor([&] { return ready(window); })) << statusOf(window);
    EXPECT_TRUE(waitFor([&] { return clockShownIn(window, "Europe/Berlin"); }));
    wxMenu* settings = nullptr;
    ASSERT_NE(window.GetMenuBar()->FindItem(GuiDevice::kMenuConfiguration, &settings), nullptr);
    EXPECT_EQ(settings->FindItemByPosition(1)->GetItemLabel(), "Device Configuration");

    auto const edit = [](Dialog& dialog) {
        EXPECT_EQ(control<wxChoice>(dialog, K::timeZone).GetStringSelection(), "Europe/Berlin");
        EXPECT_EQ(textField(dialog, Dialog::controlId(K::lvdDisconnectThreshold)).GetValue(), "11.500");
        control<wxChoice>(dialog, K::dataLoggingMode).SetSelection(3);
        control<wxChoice>(dialog, K::timeZone).SetStringSelection("Asia/Kolkata");
        type(dialog, Dialog::controlId(K::lvdDisconnectThreshold), "11.25");
        int const answered = ExpectMessage::answered();
        click(dialog, Dialog::kSaveId);
        EXPECT_TRUE(waitForMessage(answered));
        EXPECT_NE(dialog.GetReturnCode(), wxID_OK);
        EXPECT_EQ(control<wxChoice>(dialog, K::dataLoggingMode).GetStringSelection(), "Every 5 seconds");
        EXPECT_EQ(textField(dialog, Dialog::controlId(K::lvdDisconnectThreshold)).GetValue(), "11.25");
        click(dialog, Dialog::kSaveId);
        EXPECT_TRUE(waitFor([&] { return dialog.GetReturnCode() == wxID_OK; }));
    };
    wxTEST_DIALOG(
        {
            window.ProcessCommand(GuiDevice::kMenuConfiguration);
            EXPECT_TRUE(waitFor([] { return ExpectDialog<Dialog>::shown == 1; }));
        },
        ExpectDialog<Dialog>(wxID_OK, edit), ExpectMessage("Error", "Request failed."));
    ZelmorConfig expected = known();
    expected.dataLoggingMode(3);
    expected.lvdDisconnectThreshold(11.25);
    expected.timeZone("Asia/Kolkata");
    EXPECT_EQ(readConfig(link.device), expected);
    auto const fields = jsonResult(zelmorctl({"--lan", fleet.device(0).address, "--json", "config", "get"}))["fields"];
    EXPECT_EQ(fields["dataLoggingMode"], "Every 5 seconds");
    EXPECT_EQ(fields["lvdDisconnectThreshold"], 11.25);
    EXPECT_TRUE(waitFor([&] { return clockShownIn(window, "Asia/Kolkata"); }));
    window.Close(true);
    EXPECT_TRUE(allWindowsGone());
}

TEST(DeviceConfigTest, EntriesTheDeviceWouldRefuseAreToldAndNothingIsWritten) {
    SimFleet fleet({"--no-announce", "--device", "K"});
    ConnectedDevice link(fleet.device(0).address);
    ASSERT_EQ(writeConfig(link.device, known()), Code::Success);
    struct Case {
        K key;
        char const* typed;  // null: the choice is left without a selection
        std::string message;
    };
    Case const cases[] = {
        {K::timeZone, nullptr, "Timezone not selected"},
        {K::shunt, nullptr, "Shunt not selected"},
        {K::maxShuntCurrent, "600", "Max. Shunt Current cannot be higher than the shunt nominal current"},
        {K::fuelGaugeCellCount, "7", "Battery Cell Count should be between 1 and 6"},
        {K::fuelGaugeCapacity, "20001", "Battery Capacity should be between 1.0Ah and 20,000Ah"},
        {K::disconnectSocThreshold, "100", "Battery Disconnect Threshold should be under 100%"},
        {K::reconnectSocThreshold, "100", "Battery Connect Threshold should be under 100%"},
        {K::lvdDisconnectThreshold, "11.5 V",
         "\"LVD Disconnect Threshold (V)\" on page \"Low Voltage Disconnect\" should be a number from 0 to 65.535"},
        {K::autoOnMinutes, "60", "\"Minutes\" on page \"Auto-OFF / Auto-ON Timer\" should be a number from 0 to 59"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.message);
        Dialog dialog(nullptr, link.device, known(), fleet.device(0).revision);
        dialog.Show();
        if (c.typed)
            type(dialog, Dialog::controlId(c.key), c.typed);
        else
            control<wxChoice>(dialog, c.key).SetSelection(wxNOT_FOUND);
        wxTEST_DIALOG(click(dialog, Dialog::kSaveId), ExpectMessage("Error", c.message));
        EXPECT_TRUE(dialog.IsShown());
    }
    // A zone the system does not know is shown as none chosen.
    ZelmorConfig elsewhere = known();
    elsewhere.timeZone("Mars/Olympus_Mons");
    Dialog dialog(nullptr, link.device, elsewhere, fleet.device(0).revision);
    EXPECT_EQ(control<wxChoice>(dialog, K::timeZone).GetSelection(), wxNOT_FOUND);
    EXPECT_EQ(readConfig(link.device), known());
}

TEST(DeviceConfigTest, GeneratorControlTakesOverTheOtherDisconnectFeatures) {
    SimFleet fleet({"--no-announce", "--device", "V"});
    ConnectedDevice link(fleet.device(0).address);
    ZelmorConfig config = known();
    for (K key : generatorReplacedEnables()) config.setRaw(key, 1);
    {
        Dialog dialog(nullptr, link.device, config, fleet.device(0).revision);
        dialog.Show();
        wxNotebook& pages = dynamic_cast<wxNotebook&>(*dialog.FindWindow(Dialog::kPagesId));
        char const* const names[] = {"general",      "network",   "low_voltage",     "high_voltage",
                                     "over_current", "timers",    "low_temperature", "high_temperature",
                                     "fuel_gauge",   "generator", "charge_manager"};
        ASSERT_EQ(pages.GetPageCount(), std::size(names));
        for (size_t page = 0; page < pages.GetPageCount(); ++page) {
            pages.SetSelection(page);
            // The page just chosen, and its tab scrolled into view, are drawn
            // over the next few turns of the event loop.
            dialog.Refresh();
            waitFor([] { return false; }, 200);
            saveScreenshot(dialog, std::string("device_config_") + names[page]);
        }

        EXPECT_EQ(replacedEnables(dialog), "XXXXX");
        wxTEST_DIALOG(
            tick(dialog, K::generatorEnable, true),
            ExpectMessage("Warning",
                          "Enabling the Generator Control will disable all the other disconnect features.Please "
                          "consult the user manual for details on the Generator Control feature."));
        EXPECT_EQ(replacedEnables(dialog), "hhhhh");
        EXPECT_FALSE(textField(dialog, Dialog::controlId(K::lvdDisconnectThreshold)).IsEnabled());
        tick(dialog, K::generatorEnable, false);
        EXPECT_EQ(replacedEnables(dialog), "-----");
    }

    // A device with both on opens without the warning, and the save clears
    // the features Generator Control replaces.
    config.generatorEnable(true);
    Dialog opened(nullptr, link.device, config, fleet.device(0).revision);
    opened.Show();
    EXPECT_EQ(replacedEnables(opened), "hhhhh");
    click(opened, Dialog::kSaveId);
    ASSERT_TRUE(waitFor([&] { return opened.GetReturnCode() == wxID_OK; }));
    ZelmorConfig const saved = readConfig(link.device);
    EXPECT_TRUE(saved.generatorEnable());
    for (K key : generatorReplacedEnables()) EXPECT_FALSE(saved.raw(key)) << configField(key).name;
}

}  // namespace
