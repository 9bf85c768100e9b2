#pragma once

#include <wx/dialog.h>

#include <array>
#include <vector>

#include "timer_list.h"
#include "zelmor_schedule.h"

class wxButton;
class wxCheckBox;
class wxChoice;
class wxListBox;
class wxTextCtrl;

/// Edits a copy of a device's timers: the list on the left chooses the timer
/// that the controls on the right edit (rules in timer_list.h). "Save Timers"
/// ends the dialog with wxID_OK unless two timers are equal in their timing,
/// which it tells as "Duplicate timer"; the device window then writes
/// timers() back (schedule_writer.h). The dialog sends no requests itself.
class GuiTimersDialog : public wxDialog {
public:
    // Window ids of the controls; "Save Timers" is wxID_OK and "Cancel"
    // wxID_CANCEL.
    static constexpr wxWindowID kTimerListId = 6100;
    static constexpr wxWindowID kNameId = 6101;
    static constexpr wxWindowID kStartHourId = 6102;
    static constexpr wxWindowID kStartMinuteId = 6103;
    static constexpr wxWindowID kEnableStartTimeId = 6104;
    static constexpr wxWindowID kEndHourId = 6105;
    static constexpr wxWindowID kEndMinuteId = 6106;
    static constexpr wxWindowID kRepeatModeId = 6107;
    static constexpr wxWindowID kDayOfMonthId = 6108;
    static constexpr wxWindowID kAddTimerId = 6109;
    static constexpr wxWindowID kDeleteTimerId = 6110;
    /// The weekday boxes, Monday first: kMondayId + 0 ... kMondayId + 6.
    static constexpr wxWindowID kMondayId = 6120;

    /// Opens with the first timer selected, if there is one.
    GuiTimersDialog(wxWindow* parent, std::vector<ZelmorSchedule> timers);

    /// The list as edited so far; what to write back once the dialog ended
    /// with wxID_OK.
    std::vector<ZelmorSchedule> const& timers() const { return timers_; }

private:
    void buildControls();
    void select(int index);
    TimerControls readControls() const;
    void showControls(TimerControls const& controls);
    void enableEditing(bool enable);
    void onEdit();
    void onRepeatMode();
    void onName();
    void onAddTimer();
    void onDeleteTimer();
    void onSave();

    std::vector<ZelmorSchedule> timers_;
    wxListBox* list_;
    wxTextCtrl* name_;
    wxChoice* startHour_;
    wxChoice* startMinute_;
    wxCheckBox* enableStartTime_;
    wxChoice* endHour_;
    wxChoice* endMinute_;
    wxChoice* repeatMode_;
    std::array<wxCheckBox*, kWeekdayNames.size()> weekdays_;
    wxChoice* dayOfMonth_;
    wxButton* addTimer_;
    wxButton* deleteTimer_;
};
