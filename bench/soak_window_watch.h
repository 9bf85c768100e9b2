// The device windows of the long run, watched as a user at the screen watches
// them: each one is live (connected, its readings changing) or shows why it is
// not, and a window that closed after telling why is opened again, as the user
// double-clicks the device once more.
#pragma once

#include <arpa/inet.h>

#include <wx/dialog.h>
#include <wx/modalhook.h>
#include <wx/msgdlg.h>
#include <wx/statusbr.h>
#include <wx/weakref.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "device_link.h"
#include "gui_device.h"
#include "simulator_process.h"

using SoakClock = std::chrono::steady_clock;

/// Answers every modal dialog at once, as a user who reads it and presses OK,
/// and hands what it said to `shown` with the top-level window that showed it,
/// while that window still lives.
class DialogWatch : public wxModalDialogHook {
public:
    using Shown = std::function<void(wxWindow* window, std::string caption, std::string message)>;

    explicit DialogWatch(Shown shown) : shown_(std::move(shown)) { Register(); }
    ~DialogWatch() override { Unregister(); }
    DialogWatch(DialogWatch const&) = delete;
    DialogWatch& operator=(DialogWatch const&) = delete;

protected:
    int Enter(wxDialog* dialog) override {
        std::string message;
        if (auto* box = dynamic_cast<wxMessageDialog*>(dialog)) message = box->GetMessage().utf8_string();
        shown_(wxGetTopLevelParent(dialog->GetParent()), dialog->GetTitle().utf8_string(), message);
        return wxID_OK;
    }
    void Exit(wxDialog*) override {}

private:
    Shown shown_;
};

/// One device and the window the run keeps open on it.
class WindowWatch {
public:
    /// Readings that stay the same this long mean the window no longer gets
    /// any: the device clock's row changes every minute whatever the battery
    /// does, and a poll comes every one or two seconds.
    static constexpr std::chrono::seconds kFreshFor{70};
    /// How long a window may say "Connecting ..." or show a reason before it
    /// must be live again.
    static constexpr std::chrono::seconds kRecoverWithin{45};

    enum class State { Live, Recovering, Failing };

    struct Counts {
        int linkEnds = 0;         // "Device disconnected" shown
        int connectFailures = 0;  // "Device failed to connect" shown
        int errors = 0;           // boxes captioned "Error"
        int cutsMade = 0;         // cuts of the simulator that found the window's link open
        int cutsSeen = 0;         // of those, the window showed the link's end
        int reopens = 0;
        int reconnects = 0;  // reopened windows that were live again
        double worstStaleSeconds = 0;
    };

    WindowWatch(SimDevice device, bool throughHub) : device_(std::move(device)), throughHub_(throughHub) {}
    WindowWatch(WindowWatch const&) = delete;
    WindowWatch& operator=(WindowWatch const&) = delete;
    ~WindowWatch() {
        if (window_) window_->Destroy();
    }

    /// Opens the window as the main window does on a double-click: by address
    /// for a device seen on the LAN, by its device link through the hub.
    void open(SoakClock::time_point now) {
        Zelmor::DeviceIdentifier id;
        if (throughHub_) {
            id = parseDeviceLink(device_.link).identifier.value_or(id);
        } else {
            id.name = device_.name;
            id.hardwareRevision = static_cast<uint8_t>(device_.revision);
            id.serial = std::stoull(device_.serial, nullptr, 16);
            id.ipAddress = inet_addr(device_.address.c_str());
        }
        window_ = new GuiDevice(nullptr, id, nullptr);
        window_->Show();
        openedAt_ = freshAt_ = now;
        shownValues_.clear();
        live_ = false;
        reason_.clear();
    }

    /// A dialog the hook answered: kept when this window showed it.
    bool shown(wxWindow* window, std::string const& caption, std::string const& message, SoakClock::time_point now) {
        if (window == nullptr || window != window_.get()) return false;
        reason_ = caption + ": " + message;
        reasonAt_ = now;
        live_ = false;
        if (message == "Device disconnected") {
            ++counts_.linkEnds;
            linkEndAt_ = now;
            if (cutPending_) ++counts_.cutsSeen;
            cutPending_ = false;
        }
        if (message == "Device failed to connect") ++counts_.connectFailures;
        if (caption == "Error") {
            ++counts_.errors;
            // Shown before the device was ready, the window stays as it is;
            // the user closes it and opens it again.
            closeStuck_ = !statusText().starts_with("Connected");
        }
        return true;
    }

    /// The simulator hung up `connections` links of this device on a signal
    /// sent at `signalled`. The window may have shown the end already: the
    /// simulator's line is read a moment after the cut.
    void cut(size_t connections, SoakClock::time_point signalled) {
        if (connections == 0) return;
        ++counts_.cutsMade;
        cutPending_ = !linkEndAt_ || *linkEndAt_ < signalled;
        if (!cutPending_) ++counts_.cutsSeen;
    }

    /// Looks at the window once: reopens a window that closed, closes one
    /// left stuck, and tells what it shows. `problem` says why a window is
    /// failing.
    State check(SoakClock::time_point now, std::string& problem) {
        if (!window_) {
            bool const told = !reason_.empty();
            if (!told) problem = "closed without telling why";
            ++counts_.reopens;
            open(now);
            reopened_ = true;
            return told ? State::Recovering : State::Failing;
        }
        if (closeStuck_) {
            closeStuck_ = false;
            window_->Close(true);
            return State::Recovering;
        }
        std::vector<std::string> values;
        for (PanelRow const& row : window_->shownRows()) values.push_back(row.label + " " + row.value);
        if (values != shownValues_) {
            shownValues_ = std::move(values);
            freshAt_ = now;
        }
        double const stale = std::chrono::duration<double>(now - freshAt_).count();
        bool const connected = statusText().starts_with("Connected") && !shownValues_.empty();
        if (connected && now - freshAt_ <= kFreshFor) {
            if (reopened_) ++counts_.reconnects;
            reopened_ = false;
            live_ = true;
            counts_.worstStaleSeconds = std::max(counts_.worstStaleSeconds, stale);
            return State::Live;
        }
        bool const reasonRecent = !reason_.empty() && now - reasonAt_ <= kRecoverWithin;
        if (!live_ && (reasonRecent || now - openedAt_ <= kRecoverWithin)) return State::Recovering;
        problem = "\"" + statusText() + "\", readings unchanged for " + std::to_string(static_cast<int>(stale)) + " s";
        return State::Failing;
    }

    bool live() const { return window_ && live_; }
    GuiDevice* window() const { return window_.get(); }
    SimDevice const& device() const { return device_; }
    bool throughHub() const { return throughHub_; }
    Counts const& counts() const { return counts_; }

private:
    std::string statusText() const { return window_->GetStatusBar()->GetStatusText().utf8_string(); }

    SimDevice const device_;
    bool const throughHub_;
    wxWeakRef<GuiDevice> window_;
    SoakClock::time_point openedAt_;
    SoakClock::time_point freshAt_;
    std::vector<std::string> shownValues_;  // what the live panel showed at the last look
    bool live_ = false;
    bool reopened_ = false;
    std::string reason_;
    SoakClock::time_point reasonAt_;
    bool closeStuck_ = false;
    bool cutPending_ = false;
    std::optional<SoakClock::time_point> linkEndAt_;
    Counts counts_;
};
