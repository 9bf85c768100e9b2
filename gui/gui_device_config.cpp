#include "gui_device_config.h"

#include <wx/button.h>
#include <wx/checkbox.h>
#include <wx/choice.h>
#include <wx/msgdlg.h>
#include <wx/notebook.h>
#include <wx/panel.h>
#include <wx/sizer.h>
#include <wx/stattext.h>
#include <wx/textctrl.h>

#include <algorithm>

#include "config_choices.h"
#include "config_dialog_rules.h"
#include "config_validation.h"
#include "report_response_code.h"
#include "time_zone.h"

namespace {

constexpr char kGeneratorWarning[] =
    "Enabling the Generator Control will disable all the other disconnect features."
    "Please consult the user manual for details on the Generator Control feature.";

// Wide enough for "65535.000" and for the longest choice texts.
constexpr int kNumberWidth = 110;

wxArrayString choiceItems(ConfigKey key, std::vector<std::string> const& zones) {
    wxArrayString items;
    if (key == ConfigKey::timeZone) {
        for (std::string const& zone : zones) items.Add(wxString::FromUTF8(zone));
    } else if (key == ConfigKey::shunt) {
        for (ShuntSpecification const& shunt : shuntSpecifications()) items.Add(wxString::FromUTF8(shuntText(shunt)));
    } else {
        for (std::string_view text : configChoices(key)) items.Add(wxString::FromUTF8(text.data(), text.size()));
    }
    return items;
}

/// The item a choice field selects; none for a value the list has no item
/// for (an unknown zone, no shunt, a value of newer firmware).
int choiceSelection(ZelmorConfig const& config, ConfigKey key, std::vector<std::string> const& zones) {
    if (key == ConfigKey::timeZone) {
        auto const zone = std::find(zones.begin(), zones.end(), config.timeZone());
        return zone == zones.end() ? wxNOT_FOUND : static_cast<int>(zone - zones.begin());
    }
    size_t const count = key == ConfigKey::shunt ? shuntSpecifications().size() : configChoices(key).size();
    auto const value = static_cast<size_t>(config.raw(key));
    return value < count ? static_cast<int>(value) : wxNOT_FOUND;
}

wxString text(std::string_view utf8) { return wxString::FromUTF8(utf8.data(), utf8.size()); }

}  // namespace

GuiDeviceConfig::GuiDeviceConfig(wxWindow* parent, Zelmor& device, ZelmorConfig const& config, uint8_t revision)
    : wxDialog(parent, wxID_ANY, "Zelmor Configuration"),
      device_(device),
      config_(config),
      revision_(revision),
      zones_(timeZoneNames()) {
    // A device that kept a disconnect feature on beside Generator Control
    // gets it cleared with the next save, as a user who checks the box does.
    applyGeneratorControl(config_);
    pages_ = new wxNotebook(this, kPagesId);
    for (ConfigPage const& page : configPages())
        if (configPageShown(page, revision_)) addPage(page);

    auto* buttons = new wxBoxSizer(wxHORIZONTAL);
    cancel_ = new wxButton(this, wxID_CANCEL, "Cancel");
    save_ = new wxButton(this, kSaveId, "Save Configuration");
    save_->SetDefault();
    buttons->AddStretchSpacer();
    buttons->Add(cancel_);
    buttons->Add(save_, wxSizerFlags().Border(wxLEFT));
    auto* column = new wxBoxSizer(wxVERTICAL);
    column->Add(pages_, wxSizerFlags(1).Expand().Border());
    column->Add(buttons, wxSizerFlags().Expand().Border(wxLEFT | wxRIGHT | wxBOTTOM));
    showStates();
    SetSizerAndFit(column);

    save_->Bind(wxEVT_BUTTON, [this](wxCommandEvent&) { save(); });
    // The write under way is the user's last word on it: its answer decides
    // whether the dialog closes, so the dialog waits for it.
    Bind(wxEVT_CLOSE_WINDOW, [this](wxCloseEvent& event) {
        if (writing_ && event.CanVeto())
            event.Veto();
        else
            event.Skip();
    });
}

void GuiDeviceConfig::addPage(ConfigPage const& page) {
    auto* panel = new wxPanel(pages_);
    auto* grid = new wxFlexGridSizer(2, wxSize(FromDIP(12), FromDIP(6)));
    grid->AddGrowableCol(1);
    for (ConfigRow const& row : page.rows) {
        if (!row.heading.empty()) {
            // Bold by markup: GTK sizes a label for a font set through wx
            // only after the size has been taken, which cuts the text.
            auto* heading = new wxStaticText(panel, wxID_ANY, wxString());
            heading->SetLabelMarkup("<b>" + text(row.heading) + "</b>");
            grid->Add(heading, wxSizerFlags().Border(wxTOP));
            grid->AddSpacer(0);
        }
        auto* label = new wxStaticText(panel, wxID_ANY, text(row.label));
        wxWindow* const control = makeControl(panel, row.key);
        grid->Add(label, wxSizerFlags().CenterVertical());
        grid->Add(control, wxSizerFlags().CenterVertical());
        rows_.push_back({&row, &page, pages_->GetPageCount(), label, control});
        controls_[static_cast<size_t>(row.key)] = control;
    }
    auto* border = new wxBoxSizer(wxVERTICAL);
    border->Add(grid, wxSizerFlags(1).Expand().DoubleBorder());
    panel->SetSizer(border);
    pages_->AddPage(panel, text(page.title));
}

wxWindow* GuiDeviceConfig::makeControl(wxWindow* parent, ConfigKey key) {
    wxWindowID const id = controlId(key);
    switch (configField(key).kind) {
        case ConfigFieldKind::Flag: {
            auto* box = new wxCheckBox(parent, id, wxString());
            box->SetValue(config_.raw(key) != 0);
            box->Bind(wxEVT_CHECKBOX, [this, key](wxCommandEvent& event) { boxChanged(key, event.IsChecked()); });
            return box;
        }
        case ConfigFieldKind::Choice:
        case ConfigFieldKind::Text: {
            auto* choice = new wxChoice(parent, id, wxDefaultPosition, wxDefaultSize, choiceItems(key, zones_));
            choice->SetSelection(choiceSelection(config_, key, zones_));
            return choice;
        }
        case ConfigFieldKind::U8:
        case ConfigFieldKind::I8:
        case ConfigFieldKind::U16:
            break;
    }
    return new wxTextCtrl(parent, id, configNumberText(config_, key), wxDefaultPosition,
                          wxSize(FromDIP(kNumberWidth), -1));
}

void GuiDeviceConfig::boxChanged(ConfigKey key, bool checked) {
    config_.setRaw(key, checked ? 1 : 0);
    if (key == ConfigKey::generatorEnable && checked) {
        wxMessageDialog(this, kGeneratorWarning, "Warning", wxOK | wxICON_WARNING | wxCENTRE).ShowModal();
        applyGeneratorControl(config_);
        for (ConfigKey replaced : generatorReplacedEnables())
            wxStaticCast(controls_[static_cast<size_t>(replaced)], wxCheckBox)->SetValue(false);
    }
    showStates();
}

void GuiDeviceConfig::showStates() {
    for (Row const& row : rows_) {
        ConfigKey const key = row.row->key;
        bool const shown = configFieldShown(key, revision_, config_);
        bool const enabled = configFieldEnabled(key, config_);
        row.label->Show(shown);
        row.control->Show(shown);
        row.label->Enable(enabled);
        row.control->Enable(enabled);
    }
    for (size_t page = 0; page < pages_->GetPageCount(); ++page) pages_->GetPage(page)->Layout();
}

void GuiDeviceConfig::save() {
    if (writing_) return;
    ZelmorConfig edited = config_;
    for (Row const& row : rows_) {
        auto* field = dynamic_cast<wxTextCtrl*>(row.control);
        if (field == nullptr) continue;
        if (auto const problem = setConfigNumber(edited, row.row->key, field->GetValue().utf8_string(), row.row->label,
                                                 row.page->title)) {
            // The field is put in front of the user, ready to be corrected.
            pages_->SetSelection(row.pageIndex);
            field->SetFocus();
            field->SelectAll();
            showProblem(*problem);
            return;
        }
    }
    readChoices(edited);
    if (auto const problem = configProblem(edited)) {
        showProblem(*problem);
        return;
    }
    write(edited);
}

void GuiDeviceConfig::readChoices(ZelmorConfig& config) const {
    for (Row const& row : rows_) {
        auto const* choice = dynamic_cast<wxChoice const*>(row.control);
        if (choice == nullptr) continue;
        ConfigKey const key = row.row->key;
        int const selected = choice->GetSelection();
        if (key == ConfigKey::timeZone)
            config.timeZone(selected == wxNOT_FOUND ? std::string() : zones_[static_cast<size_t>(selected)]);
        else if (key == ConfigKey::shunt)
            config.shunt(selected == wxNOT_FOUND ? kNoShunt : static_cast<uint8_t>(selected));
        else if (selected != wxNOT_FOUND)
            config.setRaw(key, selected);
        // A choice left without a selection keeps the device's value.
    }
}

void GuiDeviceConfig::showProblem(std::string const& problem) {
    wxMessageDialog(this, wxString::FromUTF8(problem), "Error", wxOK | wxICON_ERROR | wxCENTRE).ShowModal();
}

void GuiDeviceConfig::write(ZelmorConfig const& config) {
    setWriting(true);
    written_ = config;
    device_.requestSetConfig(config, [self = anchor_.handle(*this)](Zelmor::ResponseCode code) {
        postToWindow(self, [code](GuiDeviceConfig& dialog) { dialog.written(code); });
    });
}

void GuiDeviceConfig::written(Zelmor::ResponseCode code) {
    setWriting(false);
    if (code != Zelmor::ResponseCode::Success) {
        // The edits stay, so the user can try again or cancel.
        reportResponseCode(this, code);
        return;
    }
    // A modeless dialog only hides: its return code still tells how it ended.
    SetReturnCode(wxID_OK);
    EndDialog(wxID_OK);
}

void GuiDeviceConfig::setWriting(bool writing) {
    writing_ = writing;
    pages_->Enable(!writing);
    save_->Enable(!writing);
    cancel_->Enable(!writing);
}
