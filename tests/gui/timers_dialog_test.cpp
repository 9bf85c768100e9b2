// The timers dialog driven as a user drives it, and its list written back to
// zelmor-sim and read from there by zelmorctl.
#include <gtest/gtest.h>

#include <wx/button.h>
#include <wx/checkbox.h>
#include <wx/choice.h>
#include <wx/listbox.h>

#include <string>
#include <vector>

#include <fmt/format.h>

#include "connected_device.h"
#include "gui_timers_dialog.h"
#include "gui_user.h"
#include "schedule_writer.h"
#include "zelmorctl_fleet.h"

namespace {

using Dialog = GuiTimersDialog;
using Code = Zelmor::ResponseCode;

template <class Control>
Control& control(wxWindow& dialog, wxWindowID id) {
    return dynamic_cast<Control&>(*dialog.FindWindow(id));
}

/// Sends the event of a user's change of a control; a disabled control takes none.
void use(wxControl& c, wxEventType type) {
    ASSERT_TRUE(c.IsEnabled()) << c.GetId();
    wxCommandEvent event(type, c.GetId());
    c.GetEventHandler()->ProcessEvent(event);
}

/// Picks an item of a choice, or a row of the timer list.
void choose(wxWindow& dialog, wxWindowID id, int item) {
    control<wxControlWithItems>(dialog, id).SetSelection(item);
    use(control<wxControlWithItems>(dialog, id), id == Dialog::kTimerListId ? wxEVT_LISTBOX : wxEVT_CHOICE);
}

void tick(wxWindow& dialog, wxWindowID id, bool checked) {
    control<wxCheckBox>(dialog, id).SetValue(checked);
    use(control<wxCheckBox>(dialog, id), wxEVT_CHECKBOX);
}

void click(wxWindow& dialog, wxWindowID id) { use(control<wxButton>(dialog, id), wxEVT_BUTTON); }

/// The repeat controls: the weekday boxes, Monday first, "X" checked and "-"
/// not when enabled, "x" and "_" when disabled; then the day of the month.
std::string repeat(wxWindow& dialog) {
    std::string marks;
    for (wxWindowID id = Dialog::kMondayId; id < Dialog::kMondayId + 7; ++id) {
        wxCheckBox const& box = control<wxCheckBox>(dialog, id);
        marks += box.IsEnabled() ? (box.GetValue() ? 'X' : '-') : (box.GetValue() ? 'x' : '_');
    }
    return marks + " " + control<wxChoice>(dialog, Dialog::kDayOfMonthId).GetStringSelection().utf8_string();
}

Code write(Zelmor& device, std::vector<ZelmorSchedule> const& before, std::vector<ZelmorSchedule> const& after) {
    CallbackResult<Code> done;
    writeSchedules(device, before, after, done.callback());
    return std::get<0>(done.get());
}

/// Timers as zelmorctl lists them: timing word and name.
std::vector<std::string> listing(std::vector<ZelmorSchedule> const& timers) {
    std::vector<std::string> out;
    for (ZelmorSchedule const& s : timers) out.push_back(fmt::format("{:016x} {}", s.getTiming(), s.getName()));
    return out;
}

std::vector<std::string> listed(std::string const& address) {
    std::vector<std::string> out;
    for (nlohmann::json const& line : jsonLines(zelmorctl({"--lan", address, "schedules", "--json"})))
        out.push_back(line["timing"].get<std::string>() + " " + line["name"].get<std::string>());
    return out;
}

// Edited on screen and saved: zelmorctl lists the old timers while the write's
// commit fails (0x55@2: the seeding write commits first), then the dialog's.
TEST(TimersDialogTest, EditedTimersReachTheDeviceOnlyWithTheCommit) {
    SimFleet fleet({"--device", "K", "--fail", "0x55@2"});
    ConnectedDevice link(fleet.device(0).address);
    ZelmorSchedule monthly;
    monthly.setName("Monthly");
    monthly.setTiming(uint64_t{15} << 23 | 1u << 22);  // 00:00 to 00:00 on day 15 of the month
    ASSERT_EQ(write(link.device, {}, {monthly}), Code::Success);

    Dialog dialog(nullptr, {monthly});
    dialog.Show();
    saveScreenshot(dialog, "timers");
    EXPECT_EQ(repeat(dialog), "_______ 15");
    EXPECT_FALSE(control<wxChoice>(dialog, Dialog::kStartHourId).IsEnabled());

    click(dialog, Dialog::kAddTimerId);
    type(dialog, Dialog::kNameId, "Garden lights at dusk");
    EXPECT_EQ(control<wxListBox>(dialog, Dialog::kTimerListId).GetString(1), "Garden lights a");
    tick(dialog, Dialog::kEnableStartTimeId, true);
    choose(dialog, Dialog::kStartHourId, 18);
    choose(dialog, Dialog::kEndMinuteId, 45);
    choose(dialog, Dialog::kRepeatModeId, 1);
    EXPECT_EQ(repeat(dialog), "_______ 1");
    choose(dialog, Dialog::kRepeatModeId, 0);
    EXPECT_EQ(repeat(dialog), "XXXXXXX ");
    tick(dialog, Dialog::kMondayId + 6, false);

    // Two new timers that differ only in name are refused, the later shown.
    click(dialog, Dialog::kAddTimerId);
    click(dialog, Dialog::kAddTimerId);
    type(dialog, Dialog::kNameId, "Spare");
    choose(dialog, Dialog::kTimerListId, 2);
    wxTEST_DIALOG(click(dialog, wxID_OK), ExpectMessage("Error", "Duplicate timer"));
    EXPECT_TRUE(dialog.IsShown());
    EXPECT_EQ(textField(dialog, Dialog::kNameId).GetValue(), "Spare");
    click(dialog, Dialog::kDeleteTimerId);
    click(dialog, wxID_OK);
    EXPECT_FALSE(dialog.IsShown());
    EXPECT_EQ(dialog.GetReturnCode(), wxID_OK);

    EXPECT_EQ(write(link.device, {monthly}, dialog.timers()), Code::RequestFailed);
    EXPECT_EQ(listed(fleet.device(0).address), listing({monthly}));
    EXPECT_EQ(write(link.device, {monthly}, dialog.timers()), Code::Success);
    ZelmorSchedule lights;
    lights.setName("Garden lights a");
    lights.setTiming(uint64_t{63} << 23 | 45u << 11 | 18u << 6);  // 18:00 to 00:45, Monday to Saturday
    EXPECT_EQ(listed(fleet.device(0).address), listing({monthly, lights, ZelmorSchedule()}));
}

TEST(TimersDialogTest, HoldsUpToThirtyTwoTimers) {
    Dialog dialog(nullptr, {});
    for (int added = 0; added < 32; ++added) click(dialog, Dialog::kAddTimerId);
    EXPECT_FALSE(control<wxButton>(dialog, Dialog::kAddTimerId).IsEnabled());
    for (int deleted = 0; deleted < 32; ++deleted) click(dialog, Dialog::kDeleteTimerId);
    EXPECT_TRUE(control<wxButton>(dialog, Dialog::kAddTimerId).IsEnabled());
    EXPECT_FALSE(control<wxButton>(dialog, Dialog::kDeleteTimerId).IsEnabled());
    EXPECT_FALSE(textField(dialog, Dialog::kNameId).IsEnabled());
}

}  // namespace
