#include "gui_fg_stats.h"

#include <wx/button.h>
#include <wx/sizer.h>
#include <wx/stattext.h>

#include <string>

#include "statistics_text.h"

GuiFgStats::GuiFgStats(wxWindow* parent, Zelmor::FuelgaugeStatistics const& statistics)
    : wxDialog(parent, wxID_ANY, "Fuel Gauge Statistics") {
    auto* lines = new wxBoxSizer(wxVERTICAL);
    for (std::string const& line : fuelGaugeLines(statistics))
        lines->Add(new wxStaticText(this, wxID_ANY, wxString::FromUTF8(line)),
                   wxSizerFlags().Border(wxBOTTOM, FromDIP(4)));
    auto* close = new wxButton(this, wxID_CLOSE, "Close");
    close->SetDefault();
    auto* column = new wxBoxSizer(wxVERTICAL);
    column->Add(lines, wxSizerFlags().Border(wxALL, FromDIP(12)));
    column->Add(close, wxSizerFlags().Right().Border(wxLEFT | wxRIGHT | wxBOTTOM, FromDIP(12)));
    SetSizerAndFit(column);
    // Close and Escape both end the dialog.
    SetEscapeId(wxID_CLOSE);
}
