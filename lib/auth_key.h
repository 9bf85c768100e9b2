#pragma once

#include <string_view>

#include "zelmor.h"

/// The key that stands for a password: SHA-256 of the password's bytes, without
/// terminator. The password itself is never kept or sent.
Zelmor::AuthKey makeAuthKey(std::string_view password);
