// The statistics dialogs against zelmor-sim, checked with zelmorctl. A
// scripted device stands in for what the simulator has not: a model without a
// second voltage and a link that stops answering.
#include <gtest/gtest.h>

#include <wx/sizer.h>
#include <wx/stattext.h>

#include <cmath>
#include <string>
#include <tuple>
#include <vector>

#include "byte_io.h"
#include "connected_device.h"
#include "gui_fg_stats.h"
#include "gui_stats.h"
#include "gui_user.h"
#include "scripted_zelmor.h"
#include "zelmorctl_fleet.h"

namespace {

constexpr char const* kLocked = "Feature is locked by user password.";
constexpr char const* kQuestion = "Reset the power meter statistics ?";
using ExpectAnswer = wxExpectModal<wxMessageDialog>;

void press(wxWindow& dialog, wxWindowID id) {
    wxCommandEvent click(wxEVT_BUTTON, id);
    dialog.FindWindow(id)->GetEventHandler()->ProcessEvent(click);
}

wxWindow& valueOf(wxWindow& dialog, std::string const& label) { return *wxWindow::FindWindowByName(label, &dialog); }

/// A value as a number ("12.994 V" is 12.994); NaN until it is read.
double shown(wxWindow& dialog, std::string const& label) {
    std::string const text = valueOf(dialog, label).GetLabel().utf8_string();
    return text.empty() ? NAN : std::stod(text);
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

nlohmann::json statisticsOf(SimFleet::Device const& device) {
    return jsonResult(zelmorctl({"--lan", device.address, "--json", "stats"}));
}

bool agrees(wxWindow& dialog, nlohmann::json const& statistics) {
    for (auto const& [label, key, tolerance] : kRows)
        if (!(std::abs(shown(dialog, label) - statistics[key].get<double>()) <= tolerance)) return false;
    return true;
}

/// Waits until the dialog shows what zelmorctl reads, reading again in case a
/// new extreme came in between; returns the reading it agrees with.
nlohmann::json expectAgreement(wxWindow& dialog, SimFleet::Device const& device) {
    nlohmann::json statistics;
    for (int attempt = 0; attempt < 3; ++attempt) {
        statistics = statisticsOf(device);
        if (waitFor([&] { return agrees(dialog, statistics); }, 5000)) return statistics;
    }
    ADD_FAILURE() << "the dialog never showed " << statistics.dump();
    return statistics;
}

double spread(nlohmann::json const& statistics) {
    return statistics["max_voltage1"].get<double>() - statistics["min_voltage1"].get<double>();
}

TEST(StatisticsDialogTest, ShowsTheDevicesStatisticsAndResetsThemOnlyWhenConfirmed) {
    SimFleet fleet({});
    ConnectedDevice connected(fleet.device(0).address);
    GuiStats dialog(nullptr, connected.device);
    dialog.Show();
    nlohmann::json const before = expectAgreement(dialog, fleet.device(0));  // two days of extremes
    wxTEST_DIALOG(press(dialog, wxID_RESET), ExpectAnswer(wxID_CANCEL));
    // Time for a request that should not have been sent to reach the device.
    waitFor([] { return false; }, 1000);
    saveScreenshot(dialog, "statistics");
    EXPECT_GE(spread(statisticsOf(fleet.device(0))), spread(before));
    // A reset starts the extremes afresh from the present reading.
    wxTEST_DIALOG(press(dialog, wxID_RESET), ExpectMessage("Confirmation", kQuestion));
    EXPECT_TRUE(waitFor([&] {
        return shown(dialog, "Maximum Voltage 1:") - shown(dialog, "Minimum Voltage 1:") < spread(before) - 0.01;
    }));
    EXPECT_LT(spread(expectAgreement(dialog, fleet.device(0))), spread(before));
}

TEST(StatisticsDialogTest, TimeSincePoweredOnMovesWhileTheDialogIsOpen) {
    SimFleet fleet({"--history", "0"});  // powered on just now: the time counts seconds
    ConnectedDevice connected(fleet.device(0).address);
    GuiStats dialog(nullptr, connected.device);
    dialog.Show();
    wxWindow& uptime = valueOf(dialog, "Time Since Powered On:");
    ASSERT_TRUE(waitFor([&] { return !uptime.GetLabel().empty(); }));
    wxString const first = uptime.GetLabel();
    EXPECT_TRUE(waitFor([&] { return uptime.GetLabel() != first; })) << first;
    press(dialog, wxID_CLOSE);
    EXPECT_FALSE(dialog.IsShown());
}

TEST(StatisticsDialogTest, LockedDeviceIsToldOncePerShowingAndOnReset) {
    SimFleet fleet({});
    ConnectedDevice connected(fleet.device(2).address);  // locked, and no password given
    GuiStats dialog(nullptr, connected.device);
    wxTEST_DIALOG(
        {
            dialog.Show();
            waitFor([] { return false; }, 3000);  // refresh periods: one more box fails the test
            press(dialog, wxID_RESET);
            waitFor([] { return false; }, 1000);
            dialog.Hide();
            dialog.Show();
            waitFor([] { return false; }, 1000);
        },
        ExpectMessage("Error", kLocked), ExpectMessage("Confirmation", kQuestion), ExpectMessage("Error", kLocked),
        ExpectMessage("Error", kLocked));
}

TEST(StatisticsDialogTest, ModelWithoutASecondVoltageShowsNoVoltage2Rows) {
    std::vector<uint8_t> answer(3);  // firmware and revision, which the record skips
    ByteWriter(answer).write<uint32_t>(90).write(12.5f).write(13.5f).write<float>(NAN).write<float>(NAN);
    ByteWriter(answer).write(2.0f).write(1.0f).write(20.0f).write(22.0f);
    ScriptedZelmor device([&](ScriptedZelmor& d, ScriptedZelmor::Sent const& s) { d.answer(0, s.sequence, answer); });
    GuiStats dialog(nullptr, device);
    dialog.Show();
    ASSERT_TRUE(waitFor([&] { return !std::isnan(shown(dialog, "Maximum Voltage 1:")); }));
    for (char const* label : {"Minimum Voltage 2:", "Maximum Voltage 2:"}) {
        EXPECT_FALSE(wxWindow::FindWindowByLabel(label, &dialog)->IsShown()) << label;
        EXPECT_FALSE(valueOf(dialog, label).IsShown()) << label;
    }
    EXPECT_EQ(dialog.GetClientSize().y, dialog.GetSizer()->GetMinSize().y);  // it shrinks to fit
}

TEST(StatisticsDialogTest, LinkThatStopsAnsweringIsToldOnce) {
    ScriptedZelmor device;  // it answers nothing
    GuiStats dialog(nullptr, device);
    wxTEST_DIALOG(
        {
            dialog.Show();
            waitFor([] { return false; }, 2500);  // ticks while the first request waits
            device.stopThread();                  // the link ends: every request still out fails
            waitFor([] { return false; }, 1000);
        },
        ExpectMessage("Error", "Request timeout."));
}

TEST(StatisticsDialogTest, FuelGaugeDialogShowsTheRecordReadFromTheDevice) {
    SimFleet fleet({});
    ConnectedDevice connected(fleet.device(1).address);
    CallbackResult<Zelmor::ResponseCode, Zelmor::FuelgaugeStatistics> read;
    connected.device.requestGetFgStatistics(read.callback());
    GuiFgStats dialog(nullptr, std::get<1>(read.get()));
    dialog.Show();
    saveScreenshot(dialog, "fuel_gauge_statistics");
    std::vector<std::string> lines;
    for (wxWindow const* child : dialog.GetChildren())
        if (auto const* line = dynamic_cast<wxStaticText const*>(child))
            lines.push_back(line->GetLabel().utf8_string());
    ASSERT_EQ(lines.size(), 13u);
    // The figures that move only with a new extreme, against zelmorctl's reading.
    nlohmann::json const gauge = jsonResult(zelmorctl({"--lan", fleet.device(1).address, "--json", "fgstats"}));
    auto const figure = [&](size_t i) { return std::stod(lines[i].substr(lines[i].find(':') + 1)); };
    EXPECT_NEAR(figure(6), gauge["min_battery_voltage"].get<double>(), 0.0011) << lines[6];
    EXPECT_EQ(figure(12), gauge["full_discharge_cycles"].get<double>()) << lines[12];
    press(dialog, wxID_CLOSE);
    EXPECT_FALSE(dialog.IsShown());
}

}  // namespace
