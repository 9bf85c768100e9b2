// Runs the GUI tests in a wxWidgets application on the display in DISPLAY
// (Xvfb in CI); listing them needs none, so that CTest discovers them anywhere.
// HOME is a fresh directory for the run (or ZELMOR_GUI_TEST_HOME when set):
// the windows keep their data under it.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdlib>

#include <wx/app.h>
#include <wx/debug.h>
#include <wx/dialog.h>
#include <wx/image.h>
#include <wx/imagpng.h>
#include <wx/init.h>
#include <wx/log.h>
#include <wx/modalhook.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace {

/// Answers every modal dialog that no wxTEST_DIALOG expects: it would wait
/// for a user forever.
class UnexpectedDialogHook : public wxModalDialogHook {
protected:
    int Enter(wxDialog* dialog) override {
        ADD_FAILURE() << "unexpected modal dialog \"" << dialog->GetTitle().utf8_string() << "\"";
        return wxID_CANCEL;
    }
};

void failOnAssert(wxString const& file, int line, wxString const& function, wxString const& condition,
                  wxString const& message) {
    ADD_FAILURE_AT(file.utf8_string().c_str(), line) << "wxWidgets assertion in " << function.utf8_string() << ": "
                                                     << condition.utf8_string() << " " << message.utf8_string();
}

}  // namespace

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    if (GTEST_FLAG_GET(list_tests)) return RUN_ALL_TESTS();
    // A test that runs this program as its child may give it a home that
    // outlives the child.
    char const* sharedHome = std::getenv("ZELMOR_GUI_TEST_HOME");
    char home[] = "/tmp/zelmor-gui-home-XXXXXX";
    if (sharedHome == nullptr && !::mkdtemp(home)) {
        std::perror("mkdtemp");
        return 1;
    }
    ::setenv("HOME", sharedHome != nullptr ? sharedHome : home, 1);
    // Without the accessibility bridge GTK starts no accessibility bus, which
    // would outlive the test and be looked for under the next test's HOME.
    ::setenv("NO_AT_BRIDGE", "1", 1);
    wxApp::SetInstance(new wxApp);
    if (!wxEntryStart(argc, argv) || !wxTheApp->CallOnInit()) {
        std::fprintf(stderr, "The GUI tests need an X display; run them under Xvfb, e.g. xvfb-run -a %s\n", argv[0]);
        return 1;
    }
    wxImage::AddHandler(new wxPNGHandler);
    // wx's own error messages go to the test's output: shown in a box at
    // exit, no one would be there to close it.
    delete wxLog::SetActiveTarget(new wxLogStderr);
    wxSetAssertHandler(failOnAssert);
    UnexpectedDialogHook unexpectedDialogs;
    unexpectedDialogs.Register();
    int const result = RUN_ALL_TESTS();
    unexpectedDialogs.Unregister();
    wxTheApp->OnExit();
    wxEntryCleanup();
    if (sharedHome == nullptr) std::filesystem::remove_all(home);
    return result;
}
