#pragma once

#include "zelmor.h"

/// The sentence shown to the user for a request result, e.g. "Request
/// timeout.", or nullptr for a code that has none (success, cancellation, the
/// second unlock step's refusal, and any raw value the device invents).
char const* responseCodeMessage(Zelmor::ResponseCode code);
