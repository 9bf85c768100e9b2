// The timers dialog driven as a user drives it, and its list written back to
// zelmor-sim and read from there by zelmorctl, also when a request of the
// write fails.
#include <gtest/gtest.h>

#include <wx/button.h>
#include <wx/checkbox.h>
#include <wx/choice.h>
#include <wx/listbox.h>

#include <string>
#include <utility>
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
    return *wxStaticCast(dialog.FindWindow(id), Control);
}

/// Sends what a user's change of a control sends; a disabled control takes none.
template <class Control>
void use(wxWindow& dialog, wxWindowID id, wxEventType type, int value) {
    Control& c = control<Control>(dialog, id);
    ASSERT_TRUE(c.IsEnabled()) << id;
    wxCommandEvent event(type, id);
    event.SetEventObject(&c);
    event.SetInt(value);
    c.GetEventHandler()->ProcessEvent(event);
}

void choose(wxWindow& dialog, wxWindowID id, int item) {
    control<wxChoice>(dialog, id).SetSelection(item);
    use<wxChoice>(dialog, id, wxEVT_CHOICE, item);
}

void tick(wxWindow& dialog, wxWindowID id, bool checked) {
    control<wxCheckBox>(dialog, id).SetValue(checked);
    use<wxCheckBox>(dialog, id, wxEVT_CHECKBOX, checked);
}

void pickRow(wxWindow& dialog, int row) {
    control<wxListBox>(dialog, Dialog::kTimerListId).SetSelection(row);
    use<wxListBox>(dialog, Dialog::kTimerListId, wxEVT_LISTBOX, row);
}

void click(wxWindow& dialog, wxWindowID id) { use<wxButton>(dialog, id, wxEVT_BUTTON, 0); }

int selection(wxWindow& dialog, wxWindowID id) { return control<wxChoice>(dialog, id).GetSelection(); }

/// The weekday boxes as "checked/enabled" marks, Monday first: "x" checked,
/// "-" not, upper case when enabled.
std::string weekdays(wxWindow& dialog) {
    std::string marks;
    for (wxWindowID id = Dialog::kMondayId; id < Dialog::kMondayId + 7; ++id) {
        wxCheckBox const& box = control<wxCheckBox>(dialog, id);
        marks += box.IsEnabled() ? (box.GetValue() ? 'X' : '-') : (box.GetValue() ? 'x' : '_');
    }
    return marks;
}

ZelmorSchedule schedule(std::string const& name, unsigned startHour, unsigned endHour, uint32_t repeat) {
    ZelmorSchedule s;
    s.setName(name);
    s.setStartHour(startHour);
    s.setEndHour(endHour);
    s.setRepeatValue(repeat);
    return s;
}

TEST(TimersDialogTest, EditsAddsAndDeletesTimersAndRefusesDuplicates) {
    ZelmorSchedule pump = schedule("Morning pump", 6, 7, 31);
    pump.setStartMinute(30);
    pump.setTiming(pump.getTiming() | uint64_t{0x155} << 54);
    ZelmorSchedule monthly = schedule("Monthly", 0, 1, 15);
    monthly.setDayOfMonthMode();
    Dialog dialog(nullptr, {pump, monthly});
    dialog.Show();
    wxListBox& list = control<wxListBox>(dialog, Dialog::kTimerListId);
    EXPECT_EQ(dialog.GetTitle(), "Zelmor Timers");
    EXPECT_EQ(textField(dialog, Dialog::kNameId).GetValue(), "Morning pump");
    EXPECT_EQ(control<wxChoice>(dialog, Dialog::kStartHourId).GetStringSelection(), "6 AM");
    EXPECT_EQ(weekdays(dialog), "XXXXX--");
    saveScreenshot(dialog, "timers");
    pickRow(dialog, 1);
    EXPECT_EQ(weekdays(dialog), "_______");
    EXPECT_EQ(selection(dialog, Dialog::kDayOfMonthId), 14);
    EXPECT_FALSE(control<wxChoice>(dialog, Dialog::kStartHourId).IsEnabled());

    // A new timer, named, timed and switched between the repeat modes.
    click(dialog, Dialog::kAddTimerId);
    type(dialog, Dialog::kNameId, "Garden lights at dusk");
    EXPECT_EQ(list.GetString(2), "Garden lights a");
    tick(dialog, Dialog::kEnableStartTimeId, true);
    choose(dialog, Dialog::kStartHourId, 18);
    choose(dialog, Dialog::kEndMinuteId, 45);
    tick(dialog, Dialog::kMondayId, false);
    choose(dialog, Dialog::kRepeatModeId, 1);
    EXPECT_EQ(weekdays(dialog), "_______");
    EXPECT_EQ(dialog.timers().back().getRepeatValue(), 1u);
    choose(dialog, Dialog::kDayOfMonthId, 19);
    EXPECT_EQ(dialog.timers().back().getRepeatValue(), 20u);
    choose(dialog, Dialog::kRepeatModeId, 0);
    EXPECT_EQ(weekdays(dialog), "XXXXXXX");
    EXPECT_EQ(selection(dialog, Dialog::kDayOfMonthId), wxNOT_FOUND);
    EXPECT_EQ(dialog.timers().back().getRepeatValue(), 0u);
    tick(dialog, Dialog::kMondayId + 6, false);

    // Two new timers that differ only in name are refused; the user stays.
    click(dialog, Dialog::kAddTimerId);
    click(dialog, Dialog::kAddTimerId);
    type(dialog, Dialog::kNameId, "Spare");
    wxTEST_DIALOG(click(dialog, wxID_OK), ExpectMessage("Error", "Duplicate timer"));
    EXPECT_TRUE(dialog.IsShown());
    EXPECT_EQ(list.GetSelection(), 4);
    click(dialog, Dialog::kDeleteTimerId);
    EXPECT_EQ(list.GetSelection(), 3);
    click(dialog, wxID_OK);
    EXPECT_FALSE(dialog.IsShown());
    EXPECT_EQ(dialog.GetReturnCode(), wxID_OK);

    ZelmorSchedule lights = schedule("Garden lights a", 18, 0, 63);
    lights.setEndMinute(45);
    std::vector<ZelmorSchedule::Bytes> saved;
    for (ZelmorSchedule const& s : dialog.timers()) saved.push_back(s.bytes());
    EXPECT_EQ(saved, (std::vector{pump.bytes(), monthly.bytes(), lights.bytes(), ZelmorSchedule().bytes()}));
}

TEST(TimersDialogTest, AddsUpToThirtyTwoTimers) {
    std::vector<ZelmorSchedule> timers;
    for (unsigned i = 0; i < 31; ++i) timers.push_back(schedule(fmt::format("Timer {}", i), i % 24, 0, i + 1));
    Dialog dialog(nullptr, timers);
    click(dialog, Dialog::kAddTimerId);
    EXPECT_FALSE(control<wxButton>(dialog, Dialog::kAddTimerId).IsEnabled());
    for (int row = 31; row >= 0; --row) click(dialog, Dialog::kDeleteTimerId);
    EXPECT_TRUE(control<wxButton>(dialog, Dialog::kAddTimerId).IsEnabled());
    EXPECT_FALSE(control<wxButton>(dialog, Dialog::kDeleteTimerId).IsEnabled());
    EXPECT_FALSE(textField(dialog, Dialog::kNameId).IsEnabled());
}

Code write(Zelmor& device, std::vector<ZelmorSchedule> const& before, std::vector<ZelmorSchedule> const& after) {
    CallbackResult<Code> done;
    writeSchedules(device, before, after, done.callback());
    return std::get<0>(done.get());
}

/// The timers as zelmorctl lists them: timing word and name.
std::vector<std::string> listed(std::string const& address) {
    std::vector<std::string> out;
    for (nlohmann::json const& line : jsonLines(zelmorctl({"--lan", address, "schedules", "--json"})))
        out.push_back(line["timing"].get<std::string>() + " " + line["name"].get<std::string>());
    return out;
}

std::vector<std::string> listing(std::vector<ZelmorSchedule> const& timers) {
    std::vector<std::string> out;
    for (ZelmorSchedule const& s : timers) out.push_back(fmt::format("{:016x} {}", s.getTiming(), s.getName()));
    return out;
}

// Read from the device, edited on screen, written back: zelmorctl then lists
// what the dialog saved, or, when a request of the write fails, the list as
// it was before.
TEST(TimersDialogTest, SavedTimersAreWrittenToTheDeviceOrNotAtAll) {
    struct Case {
        char const* fail;
        Code result;
    };
    // The seeding write adds and commits once; the second add or commit fails.
    for (Case const c :
         {Case{nullptr, Code::Success}, Case{"0x51@2", Code::RequestFailed}, Case{"0x55@2", Code::RequestFailed}}) {
        SCOPED_TRACE(c.fail ? c.fail : "no failure");
        std::vector<std::string> options = {"--device", "K", "--history", "0", "--no-hub", "--no-announce"};
        if (c.fail) options.insert(options.end(), {"--fail", c.fail});
        SimFleet fleet(options);
        ASSERT_EQ(fleet.size(), 1u);
        std::string const address = fleet.device(0).address;
        ConnectedDevice link(address);
        ASSERT_EQ(write(link.device, {}, {schedule("Pump", 6, 7, 127), schedule("Heater", 5, 8, 96)}), Code::Success);
        CallbackResult<Code, std::vector<ZelmorSchedule>> read;
        link.device.requestGetSchedules(read.callback());
        auto const [code, before] = read.get();
        ASSERT_EQ(code, Code::Success);

        Dialog dialog(nullptr, before);
        dialog.Show();
        pickRow(dialog, 1);
        choose(dialog, Dialog::kEndHourId, 9);
        click(dialog, Dialog::kAddTimerId);
        type(dialog, Dialog::kNameId, "Night");
        tick(dialog, Dialog::kEnableStartTimeId, true);
        choose(dialog, Dialog::kStartHourId, 22);
        choose(dialog, Dialog::kRepeatModeId, 1);
        choose(dialog, Dialog::kDayOfMonthId, 2);
        click(dialog, wxID_OK);
        ASSERT_FALSE(dialog.IsShown());

        EXPECT_EQ(write(link.device, before, dialog.timers()), c.result);
        EXPECT_EQ(listed(address), listing(c.result == Code::Success ? dialog.timers() : before));
    }
}

}  // namespace
