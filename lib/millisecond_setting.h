#pragma once

/// A time-out the user may set through an environment variable: a whole
/// number of milliseconds from 1. Anything else (unset, empty, 0, negative, a
/// number with text behind it) leaves `fallback`.
long millisecondSetting(char const* text, long fallback);
