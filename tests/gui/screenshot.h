#pragma once

#include <filesystem>
#include <string>

class wxWindow;

/// Where screenshots go: "screenshots" next to the test program, inside the
/// build tree, so that a person can look at the windows after a run.
std::filesystem::path screenshotDirectory();

/// Saves what the client area of a shown `window` displays as NAME.png in
/// screenshotDirectory(); gives the file, or an empty path when it could not
/// be written.
std::filesystem::path saveScreenshot(wxWindow& window, std::string const& name);
