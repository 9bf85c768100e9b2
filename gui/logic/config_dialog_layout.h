#pragma once

#include <span>
#include <string_view>

#include "zelmor_config.h"

// What the configuration dialog shows, page by page: one row per field of
// ZelmorConfig, labelled as the user knows it. The control follows from the
// field's kind: a check box for a flag, a choice for a choice field (and for
// the time zone, the one text field), a text field for a number.

struct ConfigRow {
    ConfigKey key;
    std::string_view label;
    /// The heading of the group of rows this row starts; empty for none.
    std::string_view heading = {};
};

struct ConfigPage {
    std::string_view title;
    std::span<ConfigRow const> rows;
};

/// The dialog's pages in display order, each with its rows in display order.
std::span<ConfigPage const> configPages();
