// The two small entry dialogs on screen: the text entry with its length limit
// and password confirmation, and the calibration current; what they tell the
// user on every change and how they end when shown modally.
#include <gtest/gtest.h>

#include <wx/button.h>
#include <wx/dialog.h>
#include <wx/image.h>
#include <wx/stattext.h>
#include <wx/testing.h>
#include <wx/textctrl.h>
#include <wx/uiaction.h>

#include <cstddef>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>

#include "dialog_user.h"
#include "gui_calibrate_dialog.h"
#include "gui_enter_string.h"
#include "gui_wait.h"
#include "screenshot.h"

namespace {

constexpr int kTimeoutMs = 10000;
constexpr wxWindowID kEntry = GuiEnterString::kEntryId;
constexpr wxWindowID kConfirmation = GuiEnterString::kConfirmationId;
constexpr char const* kTooLong = "string is too long";
constexpr char const* kMismatch = "passwords do not match";
constexpr char const* kRange = "must be between -2000 A and 2000 A, not 0";

// Characters of two bytes each in UTF-8, to tell characters from bytes.
wxString const kUmlauts = wxString::FromUTF8("\xC3\xA4\xC3\xB6\xC3\xBC\xC3\x9F");

std::string message(wxWindow& dialog) {
    auto* line = dynamic_cast<wxStaticText*>(wxWindow::FindWindowByName("message", &dialog));
    if (!line) throw std::runtime_error("no message line");
    return line->GetLabel().utf8_string();
}

std::set<std::string> staticTexts(wxWindow& dialog) {
    std::set<std::string> texts;
    for (wxWindow* child : dialog.GetChildren())
        if (auto* text = dynamic_cast<wxStaticText*>(child)) texts.insert(text->GetLabel().utf8_string());
    return texts;
}

/// Shows the dialog modelessly and waits until it has drawn itself once.
bool showOnScreen(wxDialog& dialog) {
    auto const painted = std::make_shared<bool>(false);
    dialog.Bind(wxEVT_PAINT, [painted](wxPaintEvent& event) {
        *painted = true;
        event.Skip();
    });
    dialog.Show();
    return waitFor([painted] { return *painted; }, kTimeoutMs);
}

/// Checks that a saved screenshot shows a window of that size with
/// something drawn in it rather than one flat colour.
void expectDrawnScreenshot(wxWindow& window, std::string const& name) {
    auto const file = saveScreenshot(window, name);
    ASSERT_FALSE(file.empty()) << "screenshot " << name << " not saved";
    wxImage image;
    ASSERT_TRUE(image.LoadFile(file.string(), wxBITMAP_TYPE_PNG)) << file;
    EXPECT_EQ(image.GetSize(), window.GetClientSize());
    std::set<unsigned long> colours;
    unsigned char const* pixel = image.GetData();
    for (int i = 0; i < image.GetWidth() * image.GetHeight() && colours.size() < 3; ++i, pixel += 3)
        colours.insert(static_cast<unsigned long>(pixel[0]) << 16 | pixel[1] << 8 | pixel[2]);
    EXPECT_GE(colours.size(), 3u) << file << " is blank";
}

/// A user who types a current into a modal GuiCalibrateDialog and presses
/// Continue, or Cancel when Continue is disabled.
class ExpectCalibration : public wxExpectModalBase<GuiCalibrateDialog, ExpectCalibration> {
public:
    explicit ExpectCalibration(wxString current) : current_(std::move(current)) {}

protected:
    int OnInvoked(GuiCalibrateDialog* dialog) const override {
        type(*dialog, GuiCalibrateDialog::kEntryId, current_);
        return continueEnabled(*dialog) ? wxID_OK : wxID_CANCEL;
    }

private:
    wxString current_;
};

TEST(EnterStringDialogTest, StartsEmptyWithItsFieldsAndPrompts) {
    for (bool const confirm : {false, true}) {
        SCOPED_TRACE(confirm ? "with confirmation" : "without confirmation");
        GuiEnterString dialog(nullptr, wxID_ANY, "Password", confirm, confirm);
        EXPECT_EQ(textField(dialog, kEntry).GetValue(), "");
        EXPECT_EQ(message(dialog), "");
        EXPECT_TRUE(continueEnabled(dialog));
        EXPECT_EQ(textField(dialog, kEntry).HasFlag(wxTE_PASSWORD), confirm);
        EXPECT_EQ(dynamic_cast<wxTextCtrl*>(dialog.FindWindow(kConfirmation)) != nullptr, confirm);
    }
    GuiEnterString dialog(nullptr, wxID_ANY, "Password", true, true);
    dialog.setPrompt("New password");
    dialog.setConfirmationPrompt("The same password again");
    auto const texts = staticTexts(dialog);
    EXPECT_TRUE(texts.count("New password"));
    EXPECT_TRUE(texts.count("The same password again"));
    EXPECT_TRUE(textField(dialog, kConfirmation).HasFlag(wxTE_PASSWORD));
    type(dialog, kEntry, "secret");
    type(dialog, kConfirmation, "secre");
    ASSERT_TRUE(showOnScreen(dialog));
    expectDrawnScreenshot(dialog, "enter_string");
}

TEST(EnterStringDialogTest, RefusesOneCharacterPastTheMaximum) {
    GuiEnterString dialog(nullptr, wxID_ANY, "Device name", false, false);
    ASSERT_TRUE(showOnScreen(dialog));
    dialog.setMaxLength(4);
    struct Case {
        wxString text;
        std::string problem;
    };
    Case const cases[] = {
        {"abcd", ""}, {"abcde", kTooLong}, {"abc", ""}, {kUmlauts, ""}, {kUmlauts + "x", kTooLong}, {"", ""},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.text.utf8_string());
        type(dialog, kEntry, c.text);
        EXPECT_EQ(message(dialog), c.problem);
        EXPECT_EQ(continueEnabled(dialog), c.problem.empty());
    }

    // Unlimited until the caller sets a maximum, which applies at once.
    GuiEnterString unlimited(nullptr, wxID_ANY, "Device name", false, false);
    type(unlimited, kEntry, wxString('x', 1000));
    EXPECT_TRUE(continueEnabled(unlimited));
    unlimited.setMaxLength(999);
    EXPECT_EQ(message(unlimited), kTooLong);
    EXPECT_FALSE(continueEnabled(unlimited));
}

TEST(EnterStringDialogTest, KeysTypedIntoTheEntryAreValidated) {
    GuiEnterString dialog(nullptr, wxID_ANY, "Device name", false, false);
    dialog.setMaxLength(4);
    ASSERT_TRUE(showOnScreen(dialog));
    wxTextCtrl& entry = textField(dialog, kEntry);
    entry.SetFocus();
    ASSERT_TRUE(waitFor([&entry] { return wxWindow::FindFocus() == &entry; }, kTimeoutMs));
    wxUIActionSimulator keyboard;
    ASSERT_TRUE(keyboard.Text("abcd"));
    ASSERT_TRUE(waitFor([&entry] { return entry.GetValue() == "abcd"; }, kTimeoutMs)) << entry.GetValue();
    EXPECT_EQ(message(dialog), "");
    EXPECT_TRUE(continueEnabled(dialog));
    ASSERT_TRUE(keyboard.Char('e'));
    ASSERT_TRUE(waitFor([&entry] { return entry.GetValue() == "abcde"; }, kTimeoutMs)) << entry.GetValue();
    EXPECT_EQ(message(dialog), kTooLong);
    EXPECT_FALSE(continueEnabled(dialog));
    ASSERT_TRUE(keyboard.Char(WXK_BACK));
    ASSERT_TRUE(waitFor([&entry] { return entry.GetValue() == "abcd"; }, kTimeoutMs)) << entry.GetValue();
    EXPECT_EQ(message(dialog), "");
    EXPECT_TRUE(continueEnabled(dialog));
}

TEST(EnterStringDialogTest, ConfirmationMustMatchTheEntry) {
    GuiEnterString dialog(nullptr, wxID_ANY, "Password", true, true);
    ASSERT_TRUE(showOnScreen(dialog));
    struct Step {
        wxWindowID field;
        wxString text;
        std::string problem;
    };
    Step const steps[] = {
        {kEntry, "secret", kMismatch}, {kConfirmation, "secre", kMismatch},
        {kConfirmation, "secret", ""}, {kEntry, "Secret", kMismatch},
        {kEntry, "secret", ""},        {kEntry, "", kMismatch},
        {kConfirmation, "", ""},       {kConfirmation, kUmlauts, kMismatch},
        {kEntry, kUmlauts, ""},
    };
    for (auto const& step : steps) {
        SCOPED_TRACE((step.field == kEntry ? "entry " : "confirmation ") + step.text.utf8_string());
        type(dialog, step.field, step.text);
        EXPECT_EQ(message(dialog), step.problem);
        EXPECT_EQ(continueEnabled(dialog), step.problem.empty());
    }

    // A text too long is told before a mismatch.
    dialog.setMaxLength(4);
    type(dialog, kConfirmation, "abcde");
    type(dialog, kEntry, "abcdef");
    EXPECT_EQ(message(dialog), kTooLong);
    type(dialog, kEntry, "abcd");
    EXPECT_EQ(message(dialog), kMismatch);
}

TEST(EnterStringDialogTest, GivesTheTextAsUtf8) {
    GuiEnterString dialog(nullptr, wxID_ANY, "Device name", false, false);
    type(dialog, kEntry, kUmlauts + " 5");
    EXPECT_EQ(dialog.value(), "\xC3\xA4\xC3\xB6\xC3\xBC\xC3\x9F 5");
    EXPECT_EQ(dialog.wxValue(), kUmlauts + " 5");
}

TEST(EnterStringDialogTest, ModalDialogEndsAsTheUserAnswers) {
    struct Case {
        wxString entry;
        wxString confirmation;
        int result;
    };
    Case const cases[] = {
        {"secret", "secret", wxID_OK},
        {"", "", wxID_OK},
        {"secret", "other", wxID_CANCEL},
        {"far too long", "far too long", wxID_CANCEL},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.entry.utf8_string() + " / " + c.confirmation.utf8_string());
        GuiEnterString dialog(nullptr, wxID_ANY, "Password", true, true);
        dialog.setMaxLength(8);
        int result = wxID_NONE;
        wxTEST_DIALOG(result = dialog.ShowModal(), ExpectEnterString(c.entry, c.confirmation));
        EXPECT_EQ(result, c.result);
        EXPECT_EQ(dialog.wxValue(), c.entry);
    }
}

TEST(CalibrateDialogTest, StartsEmptyAndCannotContinue) {
    GuiCalibrateDialog dialog(nullptr, wxID_ANY, "Calibrate current");
    EXPECT_EQ(textField(dialog, GuiCalibrateDialog::kEntryId).GetValue(), "");
    EXPECT_EQ(message(dialog), "value is empty");
    EXPECT_FALSE(continueEnabled(dialog));
    EXPECT_TRUE(staticTexts(dialog).count("Calibration current"));
    type(dialog, GuiCalibrateDialog::kEntryId, "12,5 mA");
    ASSERT_TRUE(showOnScreen(dialog));
    expectDrawnScreenshot(dialog, "calibrate");
}

TEST(CalibrateDialogTest, ValidatesEveryChange) {
    GuiCalibrateDialog dialog(nullptr, wxID_ANY, "Calibrate current");
    ASSERT_TRUE(showOnScreen(dialog));
    struct Case {
        wxString text;
        std::string problem;
        float current;
    };
    Case const cases[] = {
        {"12.5", "", 12.5f},   {"abc", "not a number", 0}, {"-3,25 A", "", -3.25f},    {"0", kRange, 0},
        {"2000", "", 2000.0f}, {"2000.5", kRange, 0},      {"1e3", "not a number", 0}, {"", "value is empty", 0},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.text.utf8_string());
        type(dialog, GuiCalibrateDialog::kEntryId, c.text);
        EXPECT_EQ(message(dialog), c.problem);
        EXPECT_EQ(continueEnabled(dialog), c.problem.empty());
        if (c.problem.empty()) {
            EXPECT_FLOAT_EQ(dialog.current(), c.current);
        }
    }
}

TEST(CalibrateDialogTest, ModalDialogGivesTheCurrentOrCannotContinue) {
    GuiCalibrateDialog dialog(nullptr, wxID_ANY, "Calibrate current");
    int result = wxID_NONE;
    wxTEST_DIALOG(result = dialog.ShowModal(), ExpectCalibration("-7,5 A"));
    EXPECT_EQ(result, wxID_OK);
    EXPECT_FLOAT_EQ(dialog.current(), -7.5f);

    GuiCalibrateDialog refused(nullptr, wxID_ANY, "Calibrate current");
    wxTEST_DIALOG(result = refused.ShowModal(), ExpectCalibration("0"));
    EXPECT_EQ(result, wxID_CANCEL);
}

}  // namespace
