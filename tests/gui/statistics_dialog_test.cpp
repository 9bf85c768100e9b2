// The statistics dialogs against zelmor-sim, checked with zelmorctl; their
// texts and rows are proven in tests/unit/gui_statistics_text_test.cpp.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <tuple>

#include "connected_device.h"
#include "gui_fg_stats.h"
#include "gui_stats.h"
#include "gui_user.h"
#include "zelmorctl_fleet.h"

namespace {

constexpr char const* kQuestion = "Reset the power meter statistics ?";

void press(wxWindow& dialog, wxWindowID id) {
    wxCommandEvent click(wxEVT_BUTTON, id);
    dialog.FindWindow(id)->GetEventHandler()->ProcessEvent(click);
}

// The rows that move only with a new extreme, zelmorctl's key for each, and
// how far apart the two may be: half a unit of either's last digit.
std::tuple<std::string, std::string, double> const kRows[] = {
    {"Minimum Voltage 1:", "min_voltage1", 0.0011},
    {"Maximum Voltage 1:", "max_voltage1", 0.0011},
    {"Minimum Voltage 2:", "min_voltage2", 0.0011},
    {"Maximum Voltage 2:", "max_voltage2", 0.0011},
    {"Peak Discharge Current:", "peak_discharge_current", 0.0056},
    {"Peak Charge Current:", "peak_charge_current", 0.0056},
    {"Minimum Temperature:", "min_temperature", 0.51},
    {"Maximum Temperature:", "max_temperature", 0.51},
};

double spread(nlohmann::json const& statistics) {
    return statistics["max_voltage1"].get<double>() - statistics["min_voltage1"].get<double>();
}

/// Waits until the dialog shows what zelmorctl reads; returns that reading.
nlohmann::json expectAgreement(wxWindow& dialog, SimFleet::Device const& device) {
    nlohmann::json statistics;
    EXPECT_TRUE(waitFor([&] {
        statistics = jsonResult(zelmorctl({"--lan", device.address, "--json", "stats"}));
        for (auto const& [label, key, tolerance] : kRows) {
            std::string const text = wxWindow::FindWindowByName(label, &dialog)->GetLabel().utf8_string();
            if (text.empty() || !(std::abs(std::stod(text) - statistics[key].get<double>()) <= tolerance)) return false;
        }
        return true;
    })) << statistics.dump();
    return statistics;
}

TEST(StatisticsDialogTest, ShowsTheDevicesStatisticsAndResetsThemOnlyWhenConfirmed) {
    SimFleet fleet({});
    ConnectedDevice connected(fleet.device(0).address);
    GuiStats dialog(nullptr, connected.device);
    dialog.Show();
    nlohmann::json const before = expectAgreement(dialog, fleet.device(0));  // two days of extremes
    saveScreenshot(dialog, "statistics");
    wxTEST_DIALOG(press(dialog, wxID_RESET), ExpectMessage("Confirmation", kQuestion, wxID_CANCEL));
    waitFor([] { return false; }, 1000);  // time for a wrongly sent reset to land
    EXPECT_GE(spread(expectAgreement(dialog, fleet.device(0))), spread(before));
    // A reset starts the extremes afresh, and the open dialog follows.
    wxTEST_DIALOG(press(dialog, wxID_RESET), ExpectMessage("Confirmation", kQuestion));
    EXPECT_TRUE(waitFor([&] { return spread(expectAgreement(dialog, fleet.device(0))) < spread(before) - 0.01; }));
    press(dialog, wxID_CLOSE);
    EXPECT_FALSE(dialog.IsShown());
}

TEST(StatisticsDialogTest, LockedDeviceIsToldOnceAndOnReset) {
    SimFleet fleet({});
    ConnectedDevice connected(fleet.device(2).address);  // locked, and no password given
    GuiStats dialog(nullptr, connected.device);
    wxTEST_DIALOG(
        {
            dialog.Show();
            waitFor([] { return false; }, 3000);  // refresh periods: a refusal stops them, one more box fails
            press(dialog, wxID_RESET);
            waitFor([] { return false; }, 1000);
        },
        ExpectMessage("Error", "Feature is locked by user password."), ExpectMessage("Confirmation", kQuestion),
        ExpectMessage("Error", "Feature is locked by user password."));
}

TEST(StatisticsDialogTest, FuelGaugeDialogShowsTheRecordReadFromTheDevice) {
    SimFleet fleet({});
    ConnectedDevice connected(fleet.device(1).address);
    CallbackResult<Zelmor::ResponseCode, Zelmor::FuelgaugeStatistics> read;
    connected.device.requestGetFgStatistics(read.callback());
    GuiFgStats dialog(nullptr, std::get<1>(read.get()));
    dialog.Show();
    saveScreenshot(dialog, "fuel_gauge_statistics");
    // The lowest voltage moves only with a new extreme: both readings agree.
    std::string const caption = "Minimum battery voltage: ";
    double figure = NAN;
    for (wxWindow const* child : dialog.GetChildren())
        if (child->GetLabel().StartsWith(caption))
            figure = std::stod(child->GetLabel().utf8_string().substr(caption.size()));
    nlohmann::json const gauge = jsonResult(zelmorctl({"--lan", fleet.device(1).address, "--json", "fgstats"}));
    EXPECT_NEAR(figure, gauge["min_battery_voltage"].get<double>(), 0.0011);
    press(dialog, wxID_CLOSE);
    EXPECT_FALSE(dialog.IsShown());
}

}  // namespace
