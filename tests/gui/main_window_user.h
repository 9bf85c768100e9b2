// A user at the main window, for GUI tests: the window over a local store of
// its own, and the lists' cells as text.
#pragma once

#include <gtest/gtest.h>

#include <wx/listctrl.h>

#include <filesystem>
#include <string>

#include "gui_main.h"
#include "gui_wait.h"
#include "local_store.h"
#include "zelmor_scanner_impl.h"

inline std::string cell(wxListCtrl* list, long row, int column) {
    return list->GetItemText(row, column).utf8_string();
}

inline long rowNamed(wxListCtrl* list, std::string const& name) {
    for (long row = 0; row < list->GetItemCount(); ++row)
        if (cell(list, row, 0) == name) return row;
    return -1;
}

/// Opens the main window over a fresh data directory; closing it waits until
/// every window is gone, since its scanner holds the announcement port until
/// then.
class MainWindowUser {
public:
    explicit MainWindowUser(std::string const& name)
        : dataDir_(freshDirectory(name)), store_(dataDir_), window_(new GuiMain(store_, std::make_unique<ZelmorScannerImpl>())) {
        window_->Show();
    }
    ~MainWindowUser() {
        close();
        std::filesystem::remove_all(dataDir_);
    }
    MainWindowUser(MainWindowUser const&) = delete;
    MainWindowUser& operator=(MainWindowUser const&) = delete;

    GuiMain& window() { return *window_; }
    LocalStore& store() { return store_; }
    std::filesystem::path const& dataDir() const { return dataDir_; }

    /// Destroys the window, as quitting does.
    void close() {
        if (!window_) return;
        window_->Destroy();
        window_ = nullptr;
        EXPECT_TRUE(waitFor([] { return wxTopLevelWindows.IsEmpty(); }, 10000));
    }

    /// Double-clicks a row of one of the lists.
    void activate(wxListCtrl* list, long row) {
        wxListEvent event(wxEVT_LIST_ITEM_ACTIVATED, list->GetId());
        event.SetEventObject(list);
        event.SetIndex(row);
        list->GetEventHandler()->ProcessEvent(event);
    }
    /// Selects a row as a click does.
    void select(wxListCtrl* list, long row) { list->SetItemState(row, wxLIST_STATE_SELECTED, wxLIST_STATE_SELECTED); }
    /// Chooses an item of a pop-up menu of the window: its command goes to
    /// the window as the menu would send it.
    void choosePopupItem(int id) {
        wxCommandEvent event(wxEVT_MENU, id);
        event.SetEventObject(window_);
        window_->ProcessWindowEvent(event);
    }

private:
    static std::filesystem::path freshDirectory(std::string const& name) {
        std::filesystem::path const path = std::filesystem::temp_directory_path() / name;
        std::filesystem::remove_all(path);
        return path;
    }

    std::filesystem::path dataDir_;
    LocalStore store_;
    GuiMain* window_;
};
