#pragma once

#include <wx/dialog.h>

class wxStaticText;
class wxTextCtrl;

/// Asks for the current that flows through the sensor right now, against
/// which a device calibrates its current measurement. Continue is enabled
/// only for a current the device accepts (see readCalibrationCurrent).
class GuiCalibrateDialog : public wxDialog {
public:
    /// Window id of the current field.
    static constexpr wxWindowID kEntryId = 6000;

    GuiCalibrateDialog(wxWindow* parent, wxWindowID id, wxString const& title);

    /// The entered current in amperes; valid once the dialog ended with OK.
    float current() const;

private:
    void validate();

    wxTextCtrl* entry_;
    wxStaticText* message_;
};
