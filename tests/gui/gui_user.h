// A user at the program's windows for the GUI tests: waiting on the event loop,
// the main window, the modal dialogs, and screenshots of what is on display.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <wx/app.h>
#include <wx/dcclient.h>
#include <wx/dcmemory.h>
#include <wx/image.h>
#include <wx/listctrl.h>
#include <wx/msgdlg.h>
#include <wx/statusbr.h>
#include <wx/stdpaths.h>
#include <wx/testing.h>
#include <wx/textctrl.h>
#include <wx/utils.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "gui_device.h"
#include "gui_enter_string.h"
#include "gui_main.h"
#include "local_store.h"
#include "zelmor_scanner_impl.h"
#include "zelmorctl_fleet.h"

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

/// A user who types `entry` into a modal GuiEnterString, and `confirmation`
/// into its second field when given, and presses Continue (or Cancel when it
/// is disabled).
class ExpectEnterString : public wxExpectModalBase<GuiEnterString, ExpectEnterString> {
public:
    explicit ExpectEnterString(wxString entry, std::optional<wxString> confirmation = std::nullopt)
        : entry_(std::move(entry)), confirmation_(std::move(confirmation)) {}

protected:
    int OnInvoked(GuiEnterString* dialog) const override {
        type(*dialog, GuiEnterString::kEntryId, entry_);
        if (confirmation_) type(*dialog, GuiEnterString::kConfirmationId, *confirmation_);
        return continueEnabled(*dialog) ? wxID_OK : wxID_CANCEL;
    }

private:
    wxString entry_;
    std::optional<wxString> confirmation_;
};

/// A user who looks at a dialog of type D and closes it with `answer`, after
/// `use` (if any) had its way with it.
template <class D>
class ExpectDialog : public wxExpectModalBase<D, ExpectDialog<D>> {
public:
    explicit ExpectDialog(int answer, std::function<void(D&)> use = {}) : answer_(answer), use_(std::move(use)) {}
    static inline int shown = 0;

protected:
    int OnInvoked(D* dialog) const override {
        if (use_) use_(*dialog);
        ++shown;
        return answer_;
    }

private:
    int answer_;
    std::function<void(D&)> use_;
};

/// A user who reads a message box, which must say `message` (or begin with
/// it, for a text that holds the time) under `caption`, and presses the
/// button that gives `answer`.
class ExpectMessage : public wxExpectModalBase<wxMessageDialog, ExpectMessage> {
public:
    enum Match { Whole, Beginning };

    ExpectMessage(std::string caption, std::string message, int answer = wxID_OK, Match match = Whole)
        : caption_(std::move(caption)), message_(std::move(message)), answer_(answer), match_(match) {}

    /// How many message boxes were answered so far: a test that expects one
    /// from a reply waits for this to grow.
    static int answered() { return answered_; }

protected:
    int OnInvoked(wxMessageDialog* dialog) const override {
        ++answered_;
        EXPECT_EQ(dialog->GetTitle().utf8_string(), caption_);
        std::string const shown = dialog->GetMessage().utf8_string();
        EXPECT_EQ(match_ == Whole ? shown : shown.substr(0, message_.size()), message_);
        return answer_;
    }

private:
    std::string caption_;
    std::string message_;
    int answer_;
    Match match_;
    static inline int answered_ = 0;
};

/// Lets the event loop run until a message box beyond the first `answered`
/// has been answered.
inline bool waitForMessage(int answered) {
    return waitFor([answered] { return ExpectMessage::answered() > answered; });
}

/// Whether the window shows more than two colours: drawn, not blank. What
/// it shows is left in `bitmap`.
inline bool showsSomething(wxWindow& window, wxBitmap& bitmap) {
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
}

/// Saves what a shown window displays as NAME.png in "screenshots" next to
/// the test program, for a person to look at after a run, once something is
/// drawn there rather than one flat colour.
inline void saveScreenshot(wxWindow& window, std::string const& name) {
    wxBitmap bitmap;
    auto const drawn = [&] { return showsSomething(window, bitmap); };
    EXPECT_TRUE(waitFor(drawn)) << name << " stays blank";
    std::filesystem::path const program(wxStandardPaths::Get().GetExecutablePath().utf8_string());
    std::filesystem::create_directories(program.parent_path() / "screenshots");
    EXPECT_TRUE(bitmap.SaveFile((program.parent_path() / "screenshots" / (name + ".png")).string(), wxBITMAP_TYPE_PNG));
}

inline std::string statusOf(GuiDevice& window) { return window.GetStatusBar()->GetStatusText().utf8_string(); }

inline bool ready(GuiDevice& window) { return statusOf(window) == "Connected" && !window.shownRows().empty(); }

/// A device window opened on a device of the simulator by its address.
inline GuiDevice* openLanDevice(SimFleet::Device const& device) {
    Zelmor::DeviceIdentifier id;
    id.name = device.name;
    id.hardwareRevision = static_cast<uint8_t>(device.revision);
    id.ipAddress = inet_addr(device.address.c_str());
    auto* window = new GuiDevice(nullptr, id, nullptr);
    window->Show();
    return window;
}
