#include "gui_about.h"

#include <wx/button.h>
#include <wx/msgdlg.h>
#include <wx/mstream.h>
#include <wx/protocol/http.h>
#include <wx/sizer.h>
#include <wx/socket.h>
#include <wx/stattext.h>
#include <wx/uri.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <thread>
#include <utility>

#include "firmware_download.h"
#include "firmware_image.h"
#include "firmware_server.h"
#include "firmware_update_text.h"
#include "gui_dfu_progress.h"

namespace {

constexpr int kMargin = 10;
constexpr long kErrorStyle = wxOK | wxICON_ERROR | wxCENTRE | wxSTAY_ON_TOP;
constexpr long kQuestionStyle = wxOK | wxCANCEL | wxICON_QUESTION | wxCENTRE | wxSTAY_ON_TOP;

/// The whole file at `url`, or nothing when it could not be read to the
/// length its headers announce. Runs on the check's own thread: wx's sockets
/// may be used off the GUI thread once wxSocketBase is initialised (the
/// dialog sees to it on the GUI thread), and wxHTTP makes its socket a
/// blocking one there, which waits on the socket itself instead of on the
/// GUI's event loop. Every wx object here is made and destroyed on this
/// thread.
std::vector<unsigned char> download(std::string const& url, unsigned timeoutSeconds) {
    wxURI const uri(wxString::FromUTF8(url));
    unsigned long port = 0;
    if (uri.HasPort() && !uri.GetPort().ToULong(&port)) return {};
    wxHTTP http;
    http.SetHeader("Content-type", "text/html; charset=utf-8");
    http.SetDefaultTimeout(timeoutSeconds);
    // Port 0: the one of the scheme.
    if (!http.Connect(uri.GetServer(), static_cast<unsigned short>(port))) return {};
    // No stream for a status other than 1xx, 2xx or 3xx.
    std::unique_ptr<wxInputStream> const body(http.GetInputStream(uri.GetPath()));
    if (!body) return {};
    // The body is read from the socket itself, with a bounded wait before
    // each read and no more taken than is there: the stream's reads wait for
    // more for as long as the server keeps the connection open, time-out or
    // not.
    http.SetFlags(wxSOCKET_BLOCK);
    size_t const announced = body->GetSize();
    wxMemoryOutputStream file;
    size_t length = 0;
    unsigned char chunk[4096];
    while (length < announced && http.WaitForRead(timeoutSeconds) && http.Read(chunk, sizeof chunk).LastCount() > 0) {
        file.Write(chunk, http.LastCount());
        length += http.LastCount();
    }
    // A stalled server leaves the file short.
    if (length == 0 || length != announced) return {};
    std::vector<unsigned char> image(length);
    file.CopyTo(image.data(), length);
    return image;
}

}  // namespace

GuiAbout::GuiAbout(wxWindow* parent, wxString const& title, Zelmor& device)
    : wxDialog(parent, wxID_ANY, title, wxDefaultPosition, wxDefaultSize, wxCAPTION | wxSYSTEM_MENU | wxCLOSE_BOX),
      device_(device),
      info_(device.getDeviceInfo()) {
    AboutIdentity const identity = aboutIdentity(info_);
    auto* column = new wxBoxSizer(wxVERTICAL);
    auto const addGroup = [&](std::vector<std::string> const& lines) {
        auto* group = new wxBoxSizer(wxVERTICAL);
        // Label texts, not labels: a '&' in the device's name is no mnemonic.
        for (std::string const& line : lines)
            group->Add(new wxStaticText(this, wxID_ANY, wxControl::EscapeMnemonics(wxString::FromUTF8(line))));
        column->Add(group, wxSizerFlags().Border(wxLEFT | wxRIGHT | wxTOP, kMargin));
    };
    addGroup({identity.program});
    addGroup(identity.device);
    addGroup({identity.address});
    result_ = new wxStaticText(this, wxID_ANY, kCheckingForUpdate, wxDefaultPosition, wxDefaultSize, 0, "result");
    column->Add(result_, wxSizerFlags().Border(wxLEFT | wxRIGHT | wxTOP, kMargin));
    update_ = new wxButton(this, kUpdateId, "Update");
    update_->Disable();
    column->Add(update_, wxSizerFlags().Centre().Border(wxALL, kMargin));
    SetSizerAndFit(column);
    Centre();
    Bind(wxEVT_BUTTON, &GuiAbout::OnUpdate, this, kUpdateId);
    startCheck();
}

void GuiAbout::startCheck() {
    std::string const url =
        firmwareFileUrl(firmwareServerSetting().server, info_.hardwareRevision, info_.firmwareVersion);
    if (url.empty()) {
        checkEnded({}, 0);
        return;
    }
    // Once, and on the GUI thread, as wx asks when sockets are first used
    // from another thread.
    if (!wxSocketBase::IsInitialized()) wxSocketBase::Initialize();
    unsigned const timeout = firmwareCheckTimeoutSeconds(std::getenv(kFirmwareTimeoutVariable));
    // The thread has its own copies of what it needs and never touches the
    // dialog: it hands the file over through the anchor, which drops it when
    // the dialog has gone meanwhile.
    std::thread([self = anchor_.handle(*this), url, revision = info_.hardwareRevision, timeout] {
        std::vector<unsigned char> image = download(url, timeout);
        uint16_t const version = image.empty() ? 0 : checkFirmwareImage(image.data(), image.size(), revision);
        postToWindow(self, [image = std::move(image), version](GuiAbout& about) mutable {
            about.checkEnded(std::move(image), version);
        });
    }).detach();
}

void GuiAbout::checkEnded(std::vector<unsigned char> image, uint16_t version) {
    firmwareImage_ = std::move(image);
    availableVersion_ = version;
    result_->SetLabelText(updateCheckText(info_.firmwareVersion, availableVersion_));
    update_->Enable(updateOffered(info_.firmwareVersion, availableVersion_));
    // The result is longer than the text it replaces.
    Fit();
    Layout();
}

void GuiAbout::OnUpdate(wxCommandEvent&) {
    wxMessageDialog question(this, kFirmwareUpdateQuestion, "Confirmation", kQuestionStyle);
    if (question.ShowModal() != wxID_OK) return;
    int result = 0;
    {
        GuiDFUProgress progress(this, "Updating firmware ...", device_, firmwareImage_);
        result = progress.ShowModal();
    }
    AfterFirmwareTransfer const after = afterFirmwareTransfer(result);
    if (after.showError) wxMessageDialog(this, kFirmwareUpdateError, "Error", kErrorStyle).ShowModal();
    if (after.close) end(after.updated ? wxID_OK : wxID_CANCEL);
}

void GuiAbout::end(int result) {
    SetReturnCode(result);
    EndDialog(result);
}
