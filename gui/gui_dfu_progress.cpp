#include "gui_dfu_progress.h"

#include <wx/button.h>
#include <wx/gauge.h>
#include <wx/sizer.h>
#include <wx/stattext.h>

#include "firmware_update_text.h"

namespace {

constexpr int kMargin = 10;
constexpr int kGaugeWidth = 300;

}  // namespace

GuiDFUProgress::GuiDFUProgress(wxWindow* parent, wxString const& title, Zelmor& device,
                               std::vector<unsigned char> const& image)
    : wxDialog(parent, wxID_ANY, title, wxDefaultPosition, wxDefaultSize, wxCAPTION | wxSYSTEM_MENU | wxCLOSE_BOX),
      transfer_(std::make_shared<Transfer>()) {
    transfer_->image = image;
    auto* column = new wxBoxSizer(wxVERTICAL);
    status_ = new wxStaticText(this, wxID_ANY, "Starting ...", wxDefaultPosition, wxDefaultSize, 0, "status");
    column->Add(status_, wxSizerFlags().Border(wxALL, kMargin));
    gauge_ = new wxGauge(this, wxID_ANY, 100, wxDefaultPosition, wxSize(kGaugeWidth, -1), wxGA_HORIZONTAL);
    column->Add(gauge_, wxSizerFlags().Expand().Border(wxLEFT | wxRIGHT, kMargin));
    cancel_ = new wxButton(this, wxID_CANCEL, "Cancel");
    column->Add(cancel_, wxSizerFlags().Right().Border(wxALL, kMargin));
    SetSizerAndFit(column);
    Centre();
    // One handler for both: Escape and the close box do what Cancel does,
    // and never end the dialog under a running transfer.
    Bind(wxEVT_BUTTON, &GuiDFUProgress::OnCancel, this, wxID_CANCEL);
    Bind(wxEVT_CLOSE_WINDOW, &GuiDFUProgress::OnCancel, this);
    startTransfer(device);
}

GuiDFUProgress::~GuiDFUProgress() {
    // The link may still ask whether to go on; from now on the answer is no.
    transfer_->dialogOpen = false;
}

void GuiDFUProgress::startTransfer(Zelmor& device) {
    transferRunning_ = true;
    auto const self = anchor_.handle(*this);
    auto const progress = [self, transfer = transfer_](uint32_t done, uint32_t total) {
        if (!transfer->dialogOpen || transfer->cancelRequested) return false;
        postToWindow(self, [done, total](GuiDFUProgress& dialog) { dialog.showProgress(done, total); });
        return true;
    };
    // The completion holds the transfer, and with it the image, until the
    // link has sent its last block.
    auto const completion = [self, transfer = transfer_](Zelmor::ResponseCode code) {
        postToWindow(self, [code](GuiDFUProgress& dialog) { dialog.transferEnded(code); });
    };
    device.requestUpdateFirmware(transfer_->image.data(), static_cast<uint32_t>(transfer_->image.size()), progress,
                                 completion);
}

void GuiDFUProgress::showProgress(uint32_t done, uint32_t total) {
    if (finished_) return;
    TransferProgressShown const shown = transferProgressShown(done, total);
    status_->SetLabelText(shown.label);
    if (shown.gauge) gauge_->SetValue(*shown.gauge);
    Layout();
}

void GuiDFUProgress::transferEnded(Zelmor::ResponseCode code) {
    // Cleared here rather than on the link's thread: until the completion
    // has arrived, Cancel must wait for it, not end with 3.
    transferRunning_ = false;
    finished_ = true;
    end(static_cast<int>(firmwareTransferEnd(code)));
}

void GuiDFUProgress::OnCancel(wxEvent&) {
    cancel_->Disable();
    if (finished_) return;
    if (!transferRunning_) {
        finished_ = true;
        end(static_cast<int>(FirmwareTransferEnd::NotStarted));
        return;
    }
    // The link asks before each block whether to go on; the completion (code
    // 10) then ends the dialog.
    transfer_->cancelRequested = true;
}

void GuiDFUProgress::end(int result) {
    SetReturnCode(result);
    EndDialog(result);
}
