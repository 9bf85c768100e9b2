#include "report_response_code.h"

#include <wx/msgdlg.h>

#include "response_code.h"

bool reportResponseCode(wxWindow* parent, Zelmor::ResponseCode code) {
    char const* const message = responseCodeMessage(code);
    if (message == nullptr) return true;
    wxMessageDialog(parent, message, "Error", wxOK | wxICON_ERROR | wxCENTRE | wxSTAY_ON_TOP).ShowModal();
    return false;
}
