#pragma once

#include <optional>
#include <string>

#include "zelmor_config.h"

/// The first reason the configuration may not be written, as the message the
/// user is shown ("Shunt not selected", "Battery Cell Count should be between
/// 1 and 6", ...), in the order of the dialog's pages; nothing when it may.
/// Every field is checked whether its feature is enabled or not, so that a
/// device never holds a value it would refuse once the feature is switched on.
std::optional<std::string> configProblem(ZelmorConfig const& config);
