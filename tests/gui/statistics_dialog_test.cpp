// The statistics dialogs against zelmor-sim: what they show is what zelmorctl
// reads from the same device, and "Reset" resets the device only when the
// user confirms. The texts' formats are gui_statistics_text_test.cpp's.
#include <gtest/gtest.h>

#include <wx/sizer.h>
#include <wx/stattext.h>

#include <cmath>
#include <sstream>
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

/// A user who reads the reset question and answers it with `answer`.
class ExpectResetQuestion : public wxExpectModalBase<wxMessageDialog, ExpectResetQuestion> {
public:
    explicit ExpectResetQuestion(int answer) : answer_(answer) {}

protected:
    int OnInvoked(wxMessageDialog* dialog) const override {
        EXPECT_EQ(dialog->GetTitle(), "Confirmation");
        EXPECT_EQ(dialog->GetMessage(), "Reset the power meter statistics ?");
        long const style = wxOK | wxCANCEL | wxICON_QUESTION | wxCENTRE | wxSTAY_ON_TOP;
        EXPECT_EQ(dialog->GetMessageDialogStyle() & style, style);
        return answer_;
    }

private:
    int answer_;
};

void press(wxWindow& dialog, wxWindowID id) {
    wxCommandEvent click(wxEVT_BUTTON, id);
    click.SetEventObject(dialog.FindWindow(id));
    dialog.FindWindow(id)->GetEventHandler()->ProcessEvent(click);
}

/// The number a value shows: "12.994 V" is 12.994, a duration ("2d 0h 1m")
/// its seconds; NaN for a value not shown or not read yet.
double shownNumber(wxWindow& dialog, std::string const& label) {
    wxWindow const* value = wxWindow::FindWindowByName(label, &dialog);
    std::istringstream text(value->IsShown() ? value->GetLabel().utf8_string() : std::string());
    double number = NAN;
    char unit = 0;
    if (!(text >> number >> unit)) return NAN;
    if (unit != 'd' && unit != 'h' && unit != 'm') return number;
    double seconds = 0;
    do seconds += number * (unit == 'd' ? 86400 : unit == 'h' ? 3600 : unit == 'm' ? 60 : 1);
    while (text >> number >> unit);
    return seconds;
}

// Each row, the key zelmorctl reads it with, and how far the two may be apart:
// half a unit of what the dialog shows and of what zelmorctl prints.
std::tuple<std::string, std::string, double> const kRows[] = {
    {"Time Since Powered On:", "seconds_since_power_on", 61},
    {"Minimum Voltage 1:", "min_voltage1", 0.0011},
    {"Maximum Voltage 1:", "max_voltage1", 0.0011},
    {"Minimum Voltage 2:", "min_voltage2", 0.0011},
    {"Maximum Voltage 2:", "max_voltage2", 0.0011},
    {"Peak Discharge Current:", "peak_discharge_current", 0.0056},
    {"Peak Charge Current:", "peak_charge_current", 0.0056},
    {"Minimum Temperature:", "min_temperature", 0.51},
    {"Maximum Temperature:", "max_temperature", 0.51},
};

nlohmann::json deviceStatistics(SimFleet::Device const& device) {
    return jsonResult(zelmorctl({"--lan", device.address, "--json", "stats"}));
}

bool agrees(wxWindow& dialog, nlohmann::json const& statistics) {
    for (auto const& [label, key, tolerance] : kRows)
        if (!(std::abs(shownNumber(dialog, label) - statistics[key].get<double>()) <= tolerance)) return false;
    return true;
}

/// Waits until the dialog shows what zelmorctl reads, reading again in case a
/// new extreme came between the two; returns the reading it agrees with.
nlohmann::json expectAgreement(wxWindow& dialog, SimFleet::Device const& device) {
    nlohmann::json statistics;
    for (int attempt = 0; attempt < 3; ++attempt) {
        statistics = deviceStatistics(device);
        if (waitFor([&] { return agrees(dialog, statistics); }, 5000)) return statistics;
    }
    ADD_FAILURE() << "the dialog never showed " << statistics.dump();
    return statistics;
}

double voltage1Spread(nlohmann::json const& statistics) {
    return statistics["max_voltage1"].get<double>() - statistics["min_voltage1"].get<double>();
}

TEST(StatisticsDialogTest, ShowsTheDevicesStatisticsAndResetsThemOnlyWhenConfirmed) {
    SimFleet fleet({});
    ConnectedDevice connected(fleet.device(0).address);
    GuiStats dialog(nullptr, connected.device);
    EXPECT_EQ(dialog.GetTitle(), "Device Statistics");
    dialog.Show();
    // Two days of extremes since power on.
    nlohmann::json const before = expectAgreement(dialog, fleet.device(0));

    wxTEST_DIALOG(press(dialog, wxID_RESET), ExpectResetQuestion(wxID_CANCEL));
    // Time for a request that should not have been sent to reach the device.
    waitFor([] { return false; }, 1000);
    saveScreenshot(dialog, "statistics");
    EXPECT_GE(voltage1Spread(deviceStatistics(fleet.device(0))), voltage1Spread(before));

    // A reset starts the extremes afresh from the present reading; the display
    // follows with its next refresh.
    wxTEST_DIALOG(press(dialog, wxID_RESET), ExpectResetQuestion(wxID_OK));
    EXPECT_TRUE(waitFor([&] { return voltage1Spread(deviceStatistics(fleet.device(0))) < voltage1Spread(before); }));
    nlohmann::json const after = expectAgreement(dialog, fleet.device(0));
    EXPECT_LT(voltage1Spread(after), voltage1Spread(before));
}

TEST(StatisticsDialogTest, TimeSincePoweredOnMovesWhileTheDialogIsOpen) {
    // Without history the device was powered on just now: the time counts seconds.
    SimFleet fleet({"--history", "0"});
    ConnectedDevice connected(fleet.device(0).address);
    GuiStats dialog(nullptr, connected.device);
    dialog.Show();
    ASSERT_TRUE(waitFor([&] { return !std::isnan(shownNumber(dialog, "Time Since Powered On:")); }));
    double const first = shownNumber(dialog, "Time Since Powered On:");
    EXPECT_TRUE(waitFor([&] { return shownNumber(dialog, "Time Since Powered On:") > first; }));
}

TEST(StatisticsDialogTest, LockedDeviceIsToldOncePerShowingAndOnReset) {
    SimFleet fleet({});
    // The third device of the default fleet is locked; no password is given.
    ConnectedDevice connected(fleet.device(2).address);
    GuiStats dialog(nullptr, connected.device);
    wxTEST_DIALOG(
        {
            dialog.Show();
            // Several refresh periods: one more box would fail the test.
            waitFor([] { return false; }, 3000);
            press(dialog, wxID_RESET);
            waitFor([] { return false; }, 1000);
            // Shown again, the dialog tries again, and tells again.
            dialog.Hide();
            dialog.Show();
            waitFor([] { return false; }, 1000);
        },
        ExpectMessage("Error", kLocked), ExpectResetQuestion(wxID_OK), ExpectMessage("Error", kLocked),
        ExpectMessage("Error", kLocked));
}

// The simulator's models all measure a second voltage: a scripted device
// stands in for one without, and for a link that stops answering.
TEST(StatisticsDialogTest, ModelWithoutASecondVoltageShowsNoVoltage2Rows) {
    std::vector<uint8_t> answer(3);  // firmware and revision, which the record skips
    ByteWriter(answer).write<uint32_t>(90).write(12.5f).write(13.5f).write<float>(NAN).write<float>(NAN);
    ByteWriter(answer).write(2.0f).write(1.0f).write(20.0f).write(22.0f);
    ScriptedZelmor device([&](ScriptedZelmor& d, ScriptedZelmor::Sent const& s) { d.answer(0, s.sequence, answer); });
    GuiStats dialog(nullptr, device);
    dialog.Show();
    ASSERT_TRUE(waitFor([&] { return !std::isnan(shownNumber(dialog, "Maximum Voltage 1:")); }));
    for (char const* label : {"Minimum Voltage 2:", "Maximum Voltage 2:"}) {
        SCOPED_TRACE(label);
        EXPECT_FALSE(wxWindow::FindWindowByLabel(label, &dialog)->IsShown());
        EXPECT_FALSE(wxWindow::FindWindowByName(label, &dialog)->IsShown());
    }
    // The rows around them close up, and the dialog shrinks to fit.
    EXPECT_EQ(dialog.GetClientSize().y, dialog.GetSizer()->GetMinSize().y);
    auto const top = [&](char const* label) { return wxWindow::FindWindowByLabel(label, &dialog)->GetPosition().y; };
    EXPECT_EQ(top("Peak Discharge Current:") - top("Maximum Voltage 1:"),
              top("Maximum Voltage 1:") - top("Minimum Voltage 1:"));
}

TEST(StatisticsDialogTest, LinkThatStopsAnsweringIsToldOnce) {
    ScriptedZelmor device;  // it answers nothing
    GuiStats dialog(nullptr, device);
    wxTEST_DIALOG(
        {
            dialog.Show();
            // Refresh periods pass while the first request waits for its answer.
            waitFor([] { return false; }, 2500);
            // The link ends: every request still out fails at once.
            device.stopThread();
            waitFor([] { return false; }, 1000);
        },
        ExpectMessage("Error", "Request timeout."));
}

std::vector<std::string> lines(wxWindow& dialog) {
    std::vector<std::string> shown;
    for (wxWindow const* child : dialog.GetChildren())
        if (auto const* line = dynamic_cast<wxStaticText const*>(child))
            shown.push_back(line->GetLabel().utf8_string());
    return shown;
}

double numberAfterCaption(std::string const& line) { return std::stod(line.substr(line.find(':') + 1)); }

TEST(StatisticsDialogTest, FuelGaugeDialogShowsTheRecordReadFromTheDevice) {
    SimFleet fleet({});
    ConnectedDevice connected(fleet.device(1).address);
    CallbackResult<Zelmor::ResponseCode, Zelmor::FuelgaugeStatistics> read;
    connected.device.requestGetFgStatistics(read.callback());
    auto const record = read.get();
    ASSERT_EQ(std::get<0>(record), Zelmor::ResponseCode::Success);
    GuiFgStats dialog(nullptr, std::get<1>(record));
    EXPECT_EQ(dialog.GetTitle(), "Fuel Gauge Statistics");
    dialog.Show();
    saveScreenshot(dialog, "fuel_gauge_statistics");

    std::vector<std::string> const shown = lines(dialog);
    ASSERT_EQ(shown.size(), 13u);
    EXPECT_EQ(shown.front().rfind("Time since last full charge: ", 0), 0u) << shown.front();
    // The figures that move only with a new extreme, against zelmorctl's reading.
    nlohmann::json const gauge = jsonResult(zelmorctl({"--lan", fleet.device(1).address, "--json", "fgstats"}));
    std::tuple<size_t, std::string, double> const figures[] = {
        {1, "full_charge_capacity_Ah", 0.5},  {6, "min_battery_voltage", 0.0011}, {7, "max_battery_voltage", 0.0011},
        {8, "max_discharge_current", 0.0056}, {9, "max_charge_current", 0.0056},  {12, "full_discharge_cycles", 0},
    };
    for (auto const& [line, key, tolerance] : figures) {
        SCOPED_TRACE(shown[line]);
        EXPECT_NEAR(numberAfterCaption(shown[line]), gauge[key].get<double>(), tolerance);
    }
}

}  // namespace
