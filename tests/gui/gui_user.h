// A user at the program's windows for the GUI tests: waiting on the event loop,
// the main window, the modal dialogs, and screenshots of what is on display.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <wx/app.h>
#include <wx/dcclient.h>
#include <wx/dcmemory.h>
#include <wx/image.h>
#include <wx/listctrl.h>
#include <wx/msgdlg.h>
#include <wx/stdpaths.h>
#include <wx/testing.h>
#include <wx/textctrl.h>
#include <wx/utils.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <utility>

#include "gui_enter_string.h"
#include "gui_main.h"
#include "local_store.h"
#include "zelmor_scanner_impl.h"

/// Lets the event loop run until `predicate` holds; false if it still does not
/// after `timeoutMs`. Windows appear, connect and draw only through events, so
/// tests wait for the outcome instead of for a guessed time.
inline bool waitFor(std::function<bool()> const& predicate, int timeoutMs = 20000) {
    auto const deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!predicate()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        wxTheApp->Yield(true);
        wxMilliSleep(5);
    }
    return true;
}

inline bool allWindowsGone() {
    return waitFor([] { return wxTopLevelWindows.IsEmpty(); });
}

inline std::string cell(wxListCtrl* list, long row, int column) { return list->GetItemText(row, column).utf8_string(); }

/// Double-clicks a row of a list.
inline void activate(wxListCtrl* list, long row) {
    wxListEvent event(wxEVT_LIST_ITEM_ACTIVATED, list->GetId());
    event.SetEventObject(list);
    event.SetIndex(row);
    list->GetEventHandler()->ProcessEvent(event);
}

/// The main window over a fresh data directory under the run's HOME. It is
/// destroyed at the end as quitting does, and its scanner holds the
/// announcement port until every window is gone.
struct MainWindowUser {
    std::string dataDir = std::string(::getenv("HOME")) + "/store-XXXXXX";
    LocalStore store{::mkdtemp(dataDir.data())};
    GuiMain& window = *new GuiMain(store, std::make_unique<ZelmorScannerImpl>());

    MainWindowUser() { window.Show(); }
    ~MainWindowUser() {
        window.Destroy();
        EXPECT_TRUE(allWindowsGone());
    }
};

inline wxTextCtrl& textField(wxWindow& dialog, wxWindowID id) {
    return *wxStaticCast(dialog.FindWindow(id), wxTextCtrl);
}
/// Replaces the text as typing would, with the text-changed event it causes.
inline void type(wxWindow& dialog, wxWindowID id, wxString const& text) { textField(dialog, id).SetValue(text); }
inline bool continueEnabled(wxWindow& dialog) { return dialog.FindWindow(wxID_OK)->IsEnabled(); }

/// A user who types into a modal GuiEnterString and presses Continue, or
/// Cancel when Continue is disabled.
class ExpectEnterString : public wxExpectModalBase<GuiEnterString, ExpectEnterString> {
public:
    explicit ExpectEnterString(wxString entry) : entry_(std::move(entry)) {}

protected:
    int OnInvoked(GuiEnterString* dialog) const override {
        type(*dialog, GuiEnterString::kEntryId, entry_);
        return continueEnabled(*dialog) ? wxID_OK : wxID_CANCEL;
    }

private:
    wxString entry_;
};

/// A user who reads a message box, which must say `message` under `caption`,
/// and presses OK.
class ExpectMessage : public wxExpectModalBase<wxMessageDialog, ExpectMessage> {
public:
    ExpectMessage(std::string caption, std::string message)
        : caption_(std::move(caption)), message_(std::move(message)) {}

protected:
    int OnInvoked(wxMessageDialog* dialog) const override {
        EXPECT_EQ(dialog->GetTitle().utf8_string(), caption_);
        EXPECT_EQ(dialog->GetMessage().utf8_string(), message_);
        return wxID_OK;
    }

private:
    std::string caption_;
    std::string message_;
};

/// Saves what a shown window displays as NAME.png in "screenshots" next to
/// the test program, for a person to look at after a run, once something is
/// drawn there rather than one flat colour.
inline void saveScreenshot(wxWindow& window, std::string const& name) {
    wxBitmap bitmap;
    auto const drawn = [&] {
        bitmap.Create(window.GetClientSize());
        wxMemoryDC copy(bitmap);
        wxClientDC shown(&window);
        copy.Blit(0, 0, bitmap.GetWidth(), bitmap.GetHeight(), &shown, 0, 0);
        copy.SelectObject(wxNullBitmap);
        wxImage const image = bitmap.ConvertToImage();
        std::set<unsigned> colours;
        unsigned char const* pixel = image.GetData();
        for (int i = 0; i < image.GetWidth() * image.GetHeight() && colours.size() < 3; ++i, pixel += 3)
            colours.insert(unsigned{pixel[0]} << 16 | unsigned{pixel[1]} << 8 | pixel[2]);
        return colours.size() >= 3;
    };
    EXPECT_TRUE(waitFor(drawn)) << name << " stays blank";
    std::filesystem::path const program(wxStandardPaths::Get().GetExecutablePath().utf8_string());
    std::filesystem::create_directories(program.parent_path() / "screenshots");
    EXPECT_TRUE(bitmap.SaveFile((program.parent_path() / "screenshots" / (name + ".png")).string(), wxBITMAP_TYPE_PNG));
}
