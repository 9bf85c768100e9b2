#pragma once

#include <string>
#include <utility>
#include <vector>

class wxListCtrl;
class wxSizer;
class wxWindow;

/// One column of a network list: its title and width in pixels at 96 DPI.
using NetworkListColumn = std::pair<char const*, int>;

/// The network lists of the WiFi setup dialogs: a report list (window name
/// "networks", one row selectable at a time) in a box titled `title`, added
/// to `column` and growing with it.
wxListCtrl* addNetworkList(wxWindow& parent, wxSizer* column, char const* title,
                           std::vector<NetworkListColumn> const& columns);

/// Writes a row's cells (UTF-8), appending the row when `row` is the count.
void setNetworkRow(wxListCtrl* list, long row, std::vector<std::string> const& cells);
