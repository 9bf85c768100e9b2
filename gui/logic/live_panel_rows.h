#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "zelmor.h"

/// One line of the device window's live panel.
struct PanelRow {
    std::string label;
    std::string value;
};

/// The live panel for one reading, top to bottom. Rows whose reading the
/// device does not report are left out: "Voltage 2" (then one "Voltage" row
/// stands for both), "Battery SoC", "Battery Runtime", and "Device RSSI" unless
/// the link measures a signal strength (`rssiAvailable`). The device clock is
/// shown in the device's time zone (its configuration's name of a zone,
/// daylight saving time included), or in UTC when none is set or known.
std::vector<PanelRow> livePanelRows(Zelmor::MonitorData const& data, bool rssiAvailable, std::string_view timeZone);
