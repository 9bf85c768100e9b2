#include "gui_stats.h"

#include <wx/button.h>
#include <wx/msgdlg.h>
#include <wx/sizer.h>
#include <wx/stattext.h>

#include <algorithm>
#include <string>

#include "report_response_code.h"
#include "statistics_text.h"

namespace {

// The widest value there is: the longest time since power on that the
// device's 32-bit count of seconds holds. The values keep this width, so the
// dialog does not jump as they change.
constexpr char const* kWidestValue = "49710d 23h 59m";

}  // namespace

GuiStats::GuiStats(wxWindow* parent, Zelmor& device)
    : wxDialog(parent, wxID_ANY, "Device Statistics"), device_(device), timer_(this) {
    auto* grid = new wxFlexGridSizer(2, wxSize(FromDIP(12), FromDIP(4)));
    for (char const* label : kStatisticsLabels) {
        auto* caption = new wxStaticText(this, wxID_ANY, label);
        auto* value =
            new wxStaticText(this, wxID_ANY, wxString(), wxDefaultPosition, wxDefaultSize, wxST_NO_AUTORESIZE, label);
        value->SetMinSize(value->GetTextExtent(kWidestValue));
        grid->Add(caption);
        grid->Add(value);
        rows_.emplace_back(caption, value);
    }
    auto* buttons = new wxBoxSizer(wxHORIZONTAL);
    buttons->Add(new wxButton(this, wxID_RESET, "Reset"));
    buttons->AddStretchSpacer();
    auto* close = new wxButton(this, wxID_CLOSE, "Close");
    close->SetDefault();
    buttons->Add(close);
    auto* column = new wxBoxSizer(wxVERTICAL);
    column->Add(grid, wxSizerFlags().Border(wxALL, FromDIP(12)));
    column->Add(buttons, wxSizerFlags().Expand().Border(wxLEFT | wxRIGHT | wxBOTTOM, FromDIP(12)));
    SetSizerAndFit(column);
    // Close and Escape both end the dialog.
    SetEscapeId(wxID_CLOSE);
    Bind(wxEVT_BUTTON, &GuiStats::OnReset, this, wxID_RESET);
    Bind(wxEVT_TIMER, [this](wxTimerEvent&) { requestStatistics(); });
}

bool GuiStats::Show(bool show) {
    if (!wxDialog::Show(show)) return false;
    if (show) {
        requestStatistics();
        timer_.Start(kRefreshIntervalMs);
    } else {
        timer_.Stop();
    }
    return true;
}

void GuiStats::requestStatistics() {
    if (awaitingReply_) return;
    awaitingReply_ = true;
    device_.requestGetStatistics(
        [handle = anchor_.handle(*this)](Zelmor::ResponseCode code, Zelmor::MonitorStatistics const& statistics) {
            postToWindow(handle, [code, statistics](GuiStats& dialog) { dialog.statisticsReceived(code, statistics); });
        });
}

void GuiStats::statisticsReceived(Zelmor::ResponseCode code, Zelmor::MonitorStatistics const& statistics) {
    awaitingReply_ = false;
    if (code != Zelmor::ResponseCode::Success) {
        // A link that went away fails every request: one box says so, and the
        // values stay as last read until the dialog is shown again.
        timer_.Stop();
        reportResponseCode(this, code);
        return;
    }
    std::vector<StatisticsRow> const shown = statisticsRows(statistics);
    bool rowsChanged = false;
    for (size_t i = 0; i < rows_.size(); ++i) {
        std::string const label = kStatisticsLabels[i];
        auto const row =
            std::find_if(shown.begin(), shown.end(), [&](StatisticsRow const& r) { return r.label == label; });
        auto const [caption, value] = rows_[i];
        bool const present = row != shown.end();
        if (present && value->GetLabel() != wxString::FromUTF8(row->value))
            value->SetLabel(wxString::FromUTF8(row->value));
        if (value->IsShown() == present) continue;
        caption->Show(present);
        value->Show(present);
        rowsChanged = true;
    }
    if (!rowsChanged) return;
    // Shrinks as well: the size the dialog first had is its minimum until now.
    GetSizer()->SetSizeHints(this);
    Layout();
}

void GuiStats::OnReset(wxCommandEvent&) {
    wxMessageDialog confirmation(this, "Reset the power meter statistics ?", "Confirmation",
                                 wxOK | wxCANCEL | wxICON_QUESTION | wxCENTRE | wxSTAY_ON_TOP);
    if (confirmation.ShowModal() != wxID_OK) return;
    // The next refresh shows the statistics started afresh.
    device_.requestResetStatistics([handle = anchor_.handle(*this)](Zelmor::ResponseCode code) {
        postToWindow(handle, [code](GuiStats& dialog) { reportResponseCode(&dialog, code); });
    });
}
