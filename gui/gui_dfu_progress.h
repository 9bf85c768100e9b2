#pragma once

#include <wx/dialog.h>

#include <atomic>
#include <memory>
#include <vector>

#include "window_handle.h"
#include "zelmor.h"

class wxButton;
class wxGauge;
class wxStaticText;

/// Sends a firmware image to the device and shows how far it got. The
/// transfer starts with the dialog; ShowModal returns a FirmwareTransferEnd
/// (gui/logic/firmware_update_text.h): 0 the device took the image, 1 the
/// transfer failed, 2 it stopped on the user's request, 3 the dialog was
/// closed before the transfer was running.
class GuiDFUProgress : public wxDialog {
public:
    /// The image is copied: the transfer reads it on the link's thread until
    /// its completion, which may come after the caller's copy is gone.
    GuiDFUProgress(wxWindow* parent, wxString const& title, Zelmor& device, std::vector<unsigned char> const& image);
    ~GuiDFUProgress() override;

private:
    /// What the link's thread reads while the transfer runs; it outlives the
    /// dialog for as long as the link holds the transfer's callbacks.
    struct Transfer {
        std::vector<unsigned char> image;
        std::atomic<bool> dialogOpen{true};
        std::atomic<bool> cancelRequested{false};
    };

    void startTransfer(Zelmor& device);
    // On the GUI thread, through postToWindow.
    void showProgress(uint32_t done, uint32_t total);
    void transferEnded(Zelmor::ResponseCode code);

    /// Cancel and the close box: stop a running transfer and wait for its end.
    void OnCancel(wxEvent& event);
    /// Ends the dialog modal or modeless, as wx's own buttons do.
    void end(int result);

    std::shared_ptr<Transfer> transfer_;
    // Only the GUI thread reads and writes these two; what the link's thread
    // reads is in Transfer. Running: from the transfer's start until its
    // completion has reached the dialog. Finished: the dialog has ended.
    bool transferRunning_ = false;
    bool finished_ = false;

    wxStaticText* status_ = nullptr;
    wxGauge* gauge_ = nullptr;
    wxButton* cancel_ = nullptr;
    WindowAnchor anchor_{*this};
};
