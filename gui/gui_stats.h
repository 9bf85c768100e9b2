#pragma once

#include <wx/dialog.h>
#include <wx/timer.h>

#include <utility>
#include <vector>

#include "window_handle.h"
#include "zelmor.h"

class wxStaticText;

/// The power meter statistics of a device, asked for again every second while
/// the dialog is on screen, with "Reset" to start them afresh. Each value
/// label is named after its row's label ("Minimum Voltage 1:").
class GuiStats : public wxDialog {
public:
    static constexpr int kRefreshIntervalMs = 1000;

    GuiStats(wxWindow* parent, Zelmor& device);

    /// Showing starts the refresh, with a request at once; hiding stops it.
    bool Show(bool show = true) override;

private:
    void requestStatistics();
    // On the GUI thread, through postToWindow.
    void statisticsReceived(Zelmor::ResponseCode code, Zelmor::MonitorStatistics const& statistics);
    void OnReset(wxCommandEvent& event);

    Zelmor& device_;
    // Set while a request is out: a tick sends no other, so a link that
    // answers late or not at all never gets a queue of requests behind it.
    bool awaitingReply_ = false;
    // Label and value of every row of kStatisticsLabels.
    std::vector<std::pair<wxStaticText*, wxStaticText*>> rows_;
    wxTimer timer_;
    WindowAnchor anchor_{*this};
};
