#pragma once

#include <wx/dialog.h>

#include "zelmor.h"

class wxCheckBox;
class wxStaticText;
class wxTextCtrl;

/// Asks for a network to add to a device's list of known networks: its name,
/// its password (empty for an open network) and, under "Network Options",
/// whether it is metered. Continue is enabled only while the entry is
/// acceptable (wifiNetworkProblem); the reason it is not is shown above it.
class GuiWifiAdd : public wxDialog {
public:
    static constexpr wxWindowID kNameId = 6000;
    static constexpr wxWindowID kPasswordId = 6001;
    static constexpr wxWindowID kMeteredId = 6002;

    explicit GuiWifiAdd(wxWindow* parent);

    /// The network as entered: name, password and metered, open without a
    /// password; valid once the dialog ended with OK.
    Zelmor::WifiNetwork network() const;

private:
    void validate();

    wxTextCtrl* name_;
    wxTextCtrl* password_;
    wxCheckBox* metered_;
    wxStaticText* message_;
};
