#pragma once

#include <wx/dialog.h>

#include <array>
#include <string>
#include <vector>

#include "config_dialog_layout.h"
#include "window_handle.h"
#include "zelmor.h"

class wxButton;
class wxCheckBox;
class wxNotebook;

/// Edits a copy of a device's configuration, one notebook page per feature
/// (pages and rows in config_dialog_layout.h, rules in config_dialog_rules.h).
/// "Save Configuration" checks the entries, writes the whole image once and
/// ends the dialog with wxID_OK when the device has taken it; a refused write
/// is told in an "Error" box and leaves the dialog open with the user's
/// edits. "Cancel" ends it with wxID_CANCEL and writes nothing.
class GuiDeviceConfig : public wxDialog {
public:
    static constexpr wxWindowID kPagesId = 6200;
    static constexpr wxWindowID kSaveId = wxID_OK;

    /// `device` is connected and must outlive the dialog; `revision` is the
    /// device's hardware revision, which decides the fields shown.
    GuiDeviceConfig(wxWindow* parent, Zelmor& device, ZelmorConfig const& config, uint8_t revision);

    /// The configuration the device took, once the dialog ended with wxID_OK.
    ZelmorConfig const& written() const { return written_; }

    /// The window id of the control that edits the field.
    static wxWindowID controlId(ConfigKey key) { return kFirstControlId + static_cast<wxWindowID>(key); }

private:
    static constexpr wxWindowID kFirstControlId = 6210;

    struct Row {
        ConfigRow const* row;
        ConfigPage const* page;
        size_t pageIndex;
        wxWindow* label;
        wxWindow* control;
    };

    void addPage(ConfigPage const& page);
    wxWindow* makeControl(wxWindow* parent, ConfigKey key);
    void boxChanged(ConfigKey key, bool checked);
    /// Shows, hides, enables and disables the rows as the rules say for the
    /// boxes as they are now.
    void showStates();
    void save();
    /// Sets the choices' fields of `config` from their selections.
    void readChoices(ZelmorConfig& config) const;
    void showProblem(std::string const& problem);
    void write(ZelmorConfig const& config);
    void written(Zelmor::ResponseCode code);
    void setWriting(bool writing);

    Zelmor& device_;
    // The image as read, with the boxes as checked now; numbers and choices
    // are taken from their controls when saving.
    ZelmorConfig config_;
    ZelmorConfig written_;
    uint8_t const revision_;
    std::vector<std::string> const zones_;
    bool writing_ = false;
    wxNotebook* pages_;
    std::vector<Row> rows_;
    std::array<wxWindow*, kConfigFieldCount> controls_{};
    wxButton* save_;
    wxButton* cancel_;
    WindowAnchor anchor_{*this};
};
