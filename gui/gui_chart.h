#pragma once

#include <wx/frame.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <vector>

#include "log_chart_index.h"
#include "log_record.h"
#include "scope_display.h"

/// The chart of a device's data log: the records loaded from the local copy,
/// on a ScopeDisplay with one trace per quantity, and their export as CSV. It
/// takes the records the store loaded last, so a chart keeps showing its own
/// device's log while another window loads another one.
class GuiChart : public wxFrame, public ScopeDisplay::Listener {
public:
    /// Rows of an export from which a progress dialog is shown.
    static constexpr uint64_t kProgressRows = 100000;

    /// `model`: the device's hardware revision, which decides whether it
    /// measures a second voltage.
    GuiChart(wxWindow* parent, wxString const& title, unsigned char model);

    ScopeDisplay& display() { return *display_; }
    std::vector<LogRecord> const& records() const { return records_; }

private:
    void requestSamples(uint64_t start, uint64_t end, size_t columns,
                        std::vector<std::vector<float>>& samples) override;
    void requestExtremes(uint64_t start, uint64_t end, size_t columns, std::vector<std::vector<float>>& lows,
                         std::vector<std::vector<float>>& highs) override;
    /// The display's export: the records of [first, last] seconds as CSV.
    void exportCsv(FILE* file, unsigned long firstSecond, unsigned long lastSecond);
    void OnClose(wxCloseEvent& event);

    unsigned char const model_;
    std::vector<LogRecord> records_;
    std::unique_ptr<LogChartIndex> index_;
    ScopeDisplay* display_ = nullptr;
};
