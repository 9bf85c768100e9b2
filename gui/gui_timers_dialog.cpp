#include "gui_timers_dialog.h"

#include <wx/button.h>
#include <wx/checkbox.h>
#include <wx/choice.h>
#include <wx/listbox.h>
#include <wx/msgdlg.h>
#include <wx/sizer.h>
#include <wx/statbox.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>

#include <initializer_list>
#include <string>

namespace {

// Room for fifteen wide characters of a name, and for a few rows of names.
constexpr int kNameWidth = 180;
constexpr int kListWidth = 180;
constexpr int kListHeight = 260;

wxArrayString choiceItems(std::vector<std::string> const& items) {
    wxArrayString out;
    for (std::string const& item : items) out.Add(wxString::FromUTF8(item));
    return out;
}

// Names this program writes are UTF-8. A name some other program left in
// another 8-bit encoding is shown byte by byte rather than as nothing.
wxString nameText(std::string const& name) {
    wxString text = wxString::FromUTF8(name);
    if (text.empty() && !name.empty()) text = wxString(name.data(), wxConvISO8859_1, name.size());
    return text;
}

/// An "Hour" and a "Minute" choice in a box labelled `title`.
wxStaticBoxSizer* timeBox(wxWindow* parent, wxString const& title, wxChoice*& hour, wxWindowID hourId,
                          wxChoice*& minute, wxWindowID minuteId) {
    auto* box = new wxStaticBoxSizer(wxVERTICAL, parent, title);
    wxWindow* inside = box->GetStaticBox();
    auto* grid = new wxFlexGridSizer(4, wxSize(parent->FromDIP(8), parent->FromDIP(4)));
    hour = new wxChoice(inside, hourId, wxDefaultPosition, wxDefaultSize, choiceItems(hourItems()));
    minute = new wxChoice(inside, minuteId, wxDefaultPosition, wxDefaultSize, choiceItems(minuteItems()));
    grid->Add(new wxStaticText(inside, wxID_ANY, "Hour"), wxSizerFlags().CenterVertical());
    grid->Add(hour);
    grid->Add(new wxStaticText(inside, wxID_ANY, "Minute"), wxSizerFlags().CenterVertical());
    grid->Add(minute);
    box->Add(grid, wxSizerFlags().Border());
    return box;
}

}  // namespace

GuiTimersDialog::GuiTimersDialog(wxWindow* parent, std::vector<ZelmorSchedule> timers)
    : wxDialog(parent, wxID_ANY, "Zelmor Timers"), timers_(std::move(timers)) {
    buildControls();
    for (ZelmorSchedule const& timer : timers_) list_->Append(nameText(timer.getName()));
    if (!timers_.empty()) list_->SetSelection(0);
    select(timers_.empty() ? -1 : 0);
}

void GuiTimersDialog::buildControls() {
    auto* listBox = new wxStaticBoxSizer(wxVERTICAL, this, "Timer List");
    wxWindow* listParent = listBox->GetStaticBox();
    list_ = new wxListBox(listParent, kTimerListId, wxDefaultPosition, FromDIP(wxSize(kListWidth, kListHeight)));
    listBox->Add(list_, wxSizerFlags(1).Expand().Border());
    addTimer_ = new wxButton(listParent, kAddTimerId, "Add New Timer");
    deleteTimer_ = new wxButton(listParent, kDeleteTimerId, "Delete Timer");
    auto* listButtons = new wxBoxSizer(wxHORIZONTAL);
    listButtons->Add(addTimer_);
    listButtons->Add(deleteTimer_, wxSizerFlags().Border(wxLEFT));
    listBox->Add(listButtons, wxSizerFlags().Border(wxLEFT | wxRIGHT | wxBOTTOM));

    auto* editor = new wxBoxSizer(wxVERTICAL);
    editor->Add(new wxStaticText(this, wxID_ANY, "Timer Name"));
    name_ = new wxTextCtrl(this, kNameId, wxString(), wxDefaultPosition, wxSize(FromDIP(kNameWidth), -1));
    editor->Add(name_, wxSizerFlags().Expand().Border(wxBOTTOM));
    wxStaticBoxSizer* start = timeBox(this, "Start Time", startHour_, kStartHourId, startMinute_, kStartMinuteId);
    enableStartTime_ = new wxCheckBox(start->GetStaticBox(), kEnableStartTimeId, "Enable start time");
    start->Add(enableStartTime_, wxSizerFlags().Border(wxLEFT | wxRIGHT | wxBOTTOM));
    editor->Add(start, wxSizerFlags().Expand().Border(wxBOTTOM));
    editor->Add(timeBox(this, "End Time", endHour_, kEndHourId, endMinute_, kEndMinuteId),
                wxSizerFlags().Expand().Border(wxBOTTOM));

    auto* repeat = new wxFlexGridSizer(2, wxSize(FromDIP(8), FromDIP(4)));
    wxString const modes[] = {"Day of Week", "Day of Month"};
    repeatMode_ = new wxChoice(this, kRepeatModeId, wxDefaultPosition, wxDefaultSize, 2, modes);
    repeat->Add(new wxStaticText(this, wxID_ANY, "Repeat Mode"), wxSizerFlags().CenterVertical());
    repeat->Add(repeatMode_);
    editor->Add(repeat, wxSizerFlags().Border(wxBOTTOM));
    auto* days = new wxGridSizer(4, wxSize(FromDIP(8), FromDIP(4)));
    for (size_t i = 0; i < weekdays_.size(); ++i) {
        weekdays_[i] = new wxCheckBox(this, kMondayId + static_cast<wxWindowID>(i), kWeekdayNames[i]);
        days->Add(weekdays_[i]);
    }
    editor->Add(days, wxSizerFlags().Border(wxBOTTOM));
    auto* month = new wxBoxSizer(wxHORIZONTAL);
    dayOfMonth_ = new wxChoice(this, kDayOfMonthId, wxDefaultPosition, wxDefaultSize, choiceItems(dayOfMonthItems()));
    month->Add(new wxStaticText(this, wxID_ANY, "Day Of Month"), wxSizerFlags().CenterVertical());
    month->Add(dayOfMonth_, wxSizerFlags().Border(wxLEFT));
    editor->Add(month);

    auto* body = new wxBoxSizer(wxHORIZONTAL);
    body->Add(listBox, wxSizerFlags(1).Expand().Border());
    body->Add(editor, wxSizerFlags().Border());
    auto* buttons = new wxStdDialogButtonSizer;
    buttons->AddButton(new wxButton(this, wxID_CANCEL, "Cancel"));
    auto* save = new wxButton(this, wxID_OK, "Save Timers");
    save->SetDefault();
    buttons->AddButton(save);
    buttons->Realize();
    auto* column = new wxBoxSizer(wxVERTICAL);
    column->Add(body, wxSizerFlags(1).Expand());
    column->Add(buttons, wxSizerFlags().Expand().Border());
    SetSizerAndFit(column);

    list_->Bind(wxEVT_LISTBOX, [this](wxCommandEvent&) { select(list_->GetSelection()); });
    name_->Bind(wxEVT_TEXT, [this](wxCommandEvent&) { onName(); });
    for (wxChoice* choice : {startHour_, startMinute_, endHour_, endMinute_, dayOfMonth_})
        choice->Bind(wxEVT_CHOICE, [this](wxCommandEvent&) { onEdit(); });
    enableStartTime_->Bind(wxEVT_CHECKBOX, [this](wxCommandEvent&) { onEdit(); });
    for (wxCheckBox* box : weekdays_) box->Bind(wxEVT_CHECKBOX, [this](wxCommandEvent&) { onEdit(); });
    repeatMode_->Bind(wxEVT_CHOICE, [this](wxCommandEvent&) { onRepeatMode(); });
    addTimer_->Bind(wxEVT_BUTTON, [this](wxCommandEvent&) { onAddTimer(); });
    deleteTimer_->Bind(wxEVT_BUTTON, [this](wxCommandEvent&) { onDeleteTimer(); });
    save->Bind(wxEVT_BUTTON, [this](wxCommandEvent&) { onSave(); });
}

void GuiTimersDialog::select(int index) {
    bool const selected = index >= 0;
    if (selected) {
        name_->ChangeValue(nameText(timers_[static_cast<size_t>(index)].getName()));
        showControls(timerControls(timers_[static_cast<size_t>(index)]));
    } else {
        // Without a timer the controls show nothing and take no input.
        name_->ChangeValue(wxString());
        showControls(TimerControls{-1, -1, -1, -1, false, false, {}, -1});
        repeatMode_->SetSelection(wxNOT_FOUND);
    }
    enableEditing(selected);
    addTimer_->Enable(timers_.size() < kMaxTimers);
    deleteTimer_->Enable(selected);
}

TimerControls GuiTimersDialog::readControls() const {
    TimerControls c;
    c.startHour = startHour_->GetSelection();
    c.startMinute = startMinute_->GetSelection();
    c.endHour = endHour_->GetSelection();
    c.endMinute = endMinute_->GetSelection();
    c.startTimeEnabled = enableStartTime_->GetValue();
    c.dayOfMonthMode = repeatMode_->GetSelection() == 1;
    for (size_t i = 0; i < weekdays_.size(); ++i) c.weekdays[i] = weekdays_[i]->GetValue();
    c.dayOfMonth = dayOfMonth_->GetSelection();
    return c;
}

void GuiTimersDialog::showControls(TimerControls const& c) {
    startHour_->SetSelection(c.startHour);
    startMinute_->SetSelection(c.startMinute);
    endHour_->SetSelection(c.endHour);
    endMinute_->SetSelection(c.endMinute);
    enableStartTime_->SetValue(c.startTimeEnabled);
    repeatMode_->SetSelection(c.dayOfMonthMode ? 1 : 0);
    for (size_t i = 0; i < weekdays_.size(); ++i) weekdays_[i]->SetValue(c.weekdays[i]);
    dayOfMonth_->SetSelection(c.dayOfMonth);
    startHour_->Enable(c.startTimeEnabled);
    startMinute_->Enable(c.startTimeEnabled);
    for (wxCheckBox* box : weekdays_) box->Enable(!c.dayOfMonthMode);
    dayOfMonth_->Enable(c.dayOfMonthMode);
}

void GuiTimersDialog::enableEditing(bool enable) {
    for (wxWindow* control :
         std::initializer_list<wxWindow*>{name_, enableStartTime_, endHour_, endMinute_, repeatMode_})
        control->Enable(enable);
    // With a timer selected, the start time, the weekdays and the day of the
    // month are enabled by their own rules (showControls).
    if (enable) return;
    for (wxWindow* control : std::initializer_list<wxWindow*>{startHour_, startMinute_, dayOfMonth_})
        control->Disable();
    for (wxCheckBox* box : weekdays_) box->Disable();
}

void GuiTimersDialog::onEdit() {
    int const index = list_->GetSelection();
    if (index < 0) return;
    showControls(editTimer(timers_[static_cast<size_t>(index)], readControls()));
}

void GuiTimersDialog::onRepeatMode() {
    int const index = list_->GetSelection();
    if (index < 0) return;
    showControls(switchRepeatMode(timers_[static_cast<size_t>(index)], readControls()));
}

void GuiTimersDialog::onName() {
    int const index = list_->GetSelection();
    if (index < 0) return;
    std::string const typed = name_->GetValue().utf8_string();
    std::string const name = fitTimerName(typed);
    // The field holds no more than the record keeps, as if it had a limit in bytes.
    if (name != typed) {
        name_->ChangeValue(wxString::FromUTF8(name));
        name_->SetInsertionPointEnd();
    }
    timers_[static_cast<size_t>(index)].setName(name);
    list_->SetString(static_cast<unsigned>(index), wxString::FromUTF8(name));
}

void GuiTimersDialog::onAddTimer() {
    if (timers_.size() >= kMaxTimers) return;
    timers_.emplace_back();
    list_->Append(nameText(timers_.back().getName()));
    int const index = static_cast<int>(timers_.size()) - 1;
    list_->SetSelection(index);
    select(index);
    // Ready to be named at once.
    name_->SetFocus();
    name_->SelectAll();
}

void GuiTimersDialog::onDeleteTimer() {
    int const index = list_->GetSelection();
    if (index < 0) return;
    timers_.erase(timers_.begin() + index);
    list_->Delete(static_cast<unsigned>(index));
    int const next = selectionAfterDelete(static_cast<size_t>(index), timers_.size());
    if (next >= 0) list_->SetSelection(next);
    select(next);
}

void GuiTimersDialog::onSave() {
    if (auto const duplicate = findDuplicateTimers(timers_)) {
        wxMessageDialog(this, "Duplicate timer", "Error", wxOK | wxICON_ERROR | wxCENTRE).ShowModal();
        // The later of the two is shown, ready to be changed.
        list_->SetSelection(static_cast<int>(duplicate->second));
        select(static_cast<int>(duplicate->second));
        return;
    }
    // A modeless dialog only hides: its return code still tells how it ended.
    SetReturnCode(wxID_OK);
    EndDialog(wxID_OK);
}
