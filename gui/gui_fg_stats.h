#pragma once

#include <wx/dialog.h>

#include "zelmor.h"

/// The fuel gauge's history of a battery, one line per figure, as read once
/// from the device: it asks for nothing itself.
class GuiFgStats : public wxDialog {
public:
    GuiFgStats(wxWindow* parent, Zelmor::FuelgaugeStatistics const& statistics);
};
