#pragma once

class wxDialog;
class wxSizer;
class wxStaticText;

/// The lower part the small entry dialogs share: a message line (window name
/// "message") that tells what is wrong with the entry, then Cancel and the
/// default button Continue (wxID_OK). Makes `column` the dialog's sizer and
/// fits the dialog to it. Returns the message line.
wxStaticText* addDialogFooter(wxDialog& dialog, wxSizer* column);
