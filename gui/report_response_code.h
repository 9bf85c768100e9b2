#pragma once

#include "zelmor.h"

class wxWindow;

/// Tells the user about a failed request in a modal error box over `parent`,
/// with the sentence of responseCodeMessage. True when the code has no
/// sentence (success, cancellation, a refused password step, unknown values)
/// and so no box was shown: the caller goes on; false after a box.
bool reportResponseCode(wxWindow* parent, Zelmor::ResponseCode code);
