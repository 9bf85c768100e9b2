#include "gui_chart.h"

#include <wx/msgdlg.h>
#include <wx/progdlg.h>
#include <wx/sizer.h>

#include <unistd.h>

#include "hardware_revision.h"
#include "local_store_instance.h"
#include "log_csv.h"

namespace {

constexpr uint64_t kSecond = 1000000;
constexpr uint64_t kMinute = 60 * kSecond;
constexpr uint64_t kHour = 60 * kMinute;
constexpr uint64_t kDay = 24 * kHour;

// Microseconds per division, from 30 s to 5 days; the chart opens at 30 min.
std::vector<uint64_t> const kTimeSteps{30 * kSecond, kMinute,      2 * kMinute, 5 * kMinute, 10 * kMinute,
                                       20 * kMinute, 30 * kMinute, kHour,       2 * kHour,   6 * kHour,
                                       12 * kHour,   kDay,         2 * kDay,    5 * kDay};
constexpr size_t kInitialStep = 6;

struct TraceRow {
    char const* name;
    char const* scale;
    int exponent;
    int maxDecimals;
    bool siPrefix;
};

}  // namespace

GuiChart::GuiChart(wxWindow* parent, wxString const& title, unsigned char model)
    : wxFrame(parent, wxID_ANY, title), model_(model), records_(localStore().takeLogRecords()) {
    bool const secondVoltage = hasSecondVoltage(model_);
    index_ = std::make_unique<LogChartIndex>(records_, secondVoltage);

    auto* sizer = new wxBoxSizer(wxVERTICAL);
    display_ = new ScopeDisplay(this, wxID_ANY, wxDefaultPosition, wxSize(800, 600), GetWindowStyle());
    sizer->Add(display_, 1, wxEXPAND | wxALL, 6);
    sizer->Add(display_->buttonPanel(), 0, wxEXPAND | wxLEFT | wxRIGHT | wxBOTTOM, 6);

    // Temperature and state of charge ask for less than their finest
    // resolution: the scale takes 5 °C and 10 % per division.
    display_->addVerticalScale({"V", "V", -1, 1, 0, false, 5, 0.005F, 50});
    display_->addVerticalScale({"I", "A", -1, 1, 0, true, 10, 0.05F, 100});
    display_->addVerticalScale({"P", "W", 0, 1, 0, true, 50, 1, 1000});
    display_->addVerticalScale({"T", wxString::FromUTF8("°C"), 0, 0, -1, false, 1, 5, 20});
    display_->addVerticalScale({"%", "%", 0, 0, -1, false, 10, 10, 50});

    std::vector<TraceRow> traces;
    if (secondVoltage)
        traces = {{"Voltage 1", "V", -3, 3, true}, {"Voltage 2", "V", -3, 3, true}};
    else
        traces = {{"Voltage", "V", -3, 3, true}};
    traces.insert(traces.end(), {{"Current", "I", -3, 3, true},
                                 {"Power", "P", -2, 3, true},
                                 {"Temperature", "T", -1, 0, false},
                                 {"SoC", "%", 0, 0, false}});
    for (TraceRow const& trace : traces)
        display_->addTrace(trace.name, trace.scale, trace.exponent, trace.maxDecimals, trace.siPrefix);

    display_->setTimeSteps(kTimeSteps, kInitialStep);
    display_->setListener(this);
    display_->setExportCallback(
        [this](FILE* file, unsigned long first, unsigned long last) { exportCsv(file, first, last); });
    if (!records_.empty()) display_->setDataRange(records_.front().time * kSecond, records_.back().time * kSecond);

    SetSizerAndFit(sizer);
    Bind(wxEVT_CLOSE_WINDOW, &GuiChart::OnClose, this);
}

void GuiChart::requestSamples(uint64_t start, uint64_t end, size_t columns, std::vector<std::vector<float>>& samples) {
    index_->averages(start, end, columns, samples);
}

void GuiChart::requestExtremes(uint64_t start, uint64_t end, size_t columns, std::vector<std::vector<float>>& lows,
                               std::vector<std::vector<float>>& highs) {
    index_->extremes(start, end, columns, lows, highs);
}

void GuiChart::exportCsv(FILE* file, unsigned long firstSecond, unsigned long lastSecond) {
    // A long export shows its progress and can be cancelled; the dialog's
    // updates keep the windows answering meanwhile.
    std::unique_ptr<wxProgressDialog> progress;
    LogCsvResult const result = writeLogCsv(
        file, records_, static_cast<int64_t>(firstSecond), static_cast<int64_t>(lastSecond),
        [&](uint64_t done, uint64_t total) {
            if (total < kProgressRows) return true;
            if (!progress)
                progress = std::make_unique<wxProgressDialog>(
                    "Export Data", "Writing the CSV file ...", 1000, this,
                    wxPD_APP_MODAL | wxPD_CAN_ABORT | wxPD_AUTO_HIDE | wxPD_ELAPSED_TIME | wxPD_REMAINING_TIME);
            return progress->Update(static_cast<int>(done * 1000 / total));
        });
    progress.reset();
    if (result == LogCsvResult::cancelled) {
        // The rows so far are an arbitrary cut of the export: leave no file
        // that could pass for a whole one.
        std::fflush(file);
        if (::ftruncate(::fileno(file), 0) == 0) std::rewind(file);
    } else if (result == LogCsvResult::writeFailed) {
        wxMessageBox("The CSV file could not be written.", "Error", wxOK | wxICON_ERROR | wxCENTRE, this);
    }
}

void GuiChart::OnClose(wxCloseEvent& event) {
    // The display calls back into this frame while it paints.
    display_->setListener(nullptr);
    event.Skip();
}
