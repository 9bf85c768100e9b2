// The two small entry dialogs on screen: what they tell the user on every
// change of a field, and whether Continue may be pressed. Which texts are
// acceptable is input_validation_test.cpp's to say; these tables show that the
// fields reach those checks with the dialog's settings.
#include <gtest/gtest.h>

#include <wx/dialog.h>
#include <wx/stattext.h>

#include <string>

#include "gui_calibrate_dialog.h"
#include "gui_enter_string.h"
#include "gui_user.h"

namespace {

constexpr wxWindowID kEntry = GuiEnterString::kEntryId;
constexpr wxWindowID kConfirmation = GuiEnterString::kConfirmationId;
constexpr char const* kTooLong = "string is too long";
constexpr char const* kMismatch = "passwords do not match";

std::string message(wxWindow& dialog) {
    return wxStaticCast(wxWindow::FindWindowByName("message", &dialog), wxStaticText)->GetLabel().utf8_string();
}

TEST(EnterStringDialogTest, PasswordTypedTwiceTellsWhatIsWrongOnEveryChange) {
    GuiEnterString dialog(nullptr, wxID_ANY, "Password", true, true);
    dialog.setPrompt("New password");
    dialog.setConfirmationPrompt("The same password again");
    // A maximum applies at once.
    type(dialog, kEntry, "abcde");
    dialog.setMaxLength(4);
    EXPECT_EQ(message(dialog), kTooLong);
    struct Step {
        wxWindowID field;
        wxString text;
        std::string problem;
    };
    // A text too long is told before a mismatch. The umlauts are two bytes
    // each in UTF-8: the maximum counts characters.
    Step const steps[] = {
        {kConfirmation, "abcd", kTooLong},
        {kEntry, "abcd", ""},
        {kEntry, wxString::FromUTF8("äöüß"), kMismatch},
        {kConfirmation, wxString::FromUTF8("äöüß"), ""},
        {kEntry, "", kMismatch},
        {kConfirmation, "", ""},
        {kEntry, "abc", kMismatch},
    };
    for (auto const& step : steps) {
        SCOPED_TRACE(step.text.utf8_string());
        type(dialog, step.field, step.text);
        EXPECT_EQ(message(dialog), step.problem);
        EXPECT_EQ(continueEnabled(dialog), step.problem.empty());
    }
    dialog.Show();
    saveScreenshot(dialog, "enter_string");
}

TEST(CalibrateDialogTest, TellsWhatIsWrongOnEveryChange) {
    GuiCalibrateDialog dialog(nullptr, wxID_ANY, "Calibrate current");
    EXPECT_EQ(message(dialog), "value is empty");
    EXPECT_FALSE(continueEnabled(dialog));
    struct Case {
        wxString text;
        std::string problem;
        float current;
    };
    Case const cases[] = {
        {"-3,25 A", "", -3.25f},
        {"0", "must be between -2000 A and 2000 A, not 0", 0},
        {"", "value is empty", 0},
        {"12,5 mA", "not a number", 0},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.text.utf8_string());
        type(dialog, GuiCalibrateDialog::kEntryId, c.text);
        EXPECT_EQ(message(dialog), c.problem);
        EXPECT_EQ(continueEnabled(dialog), c.problem.empty());
        EXPECT_FLOAT_EQ(dialog.current(), c.current);
    }
    dialog.Show();
    saveScreenshot(dialog, "calibrate");
}

}  // namespace
