#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "output.h"
#include "zelmor.h"
#include "zelmor_scanner.h"

// How the device's records are shown: the JSON object of each (keys are part
// of the program's interface, see docs/zelmorctl.md) and its text form.

/// "YYYY-MM-DD HH:MM:SS" in the local time zone.
std::string localTimeText(uint32_t seconds);

Json infoJson(Zelmor::DeviceInfo const& info);
std::vector<std::string> infoText(Zelmor::DeviceInfo const& info);

Json monitorJson(Zelmor::MonitorData const& data);
std::string monitorText(Zelmor::MonitorData const& data);

Json statisticsJson(Zelmor::MonitorStatistics const& statistics);
std::vector<std::string> statisticsText(Zelmor::MonitorStatistics const& statistics);

Json fuelgaugeJson(Zelmor::FuelgaugeStatistics const& statistics);
std::vector<std::string> fuelgaugeText(Zelmor::FuelgaugeStatistics const& statistics);

Json advertisementJson(ZelmorScanner::Advertisement const& advertisement);
std::string advertisementText(ZelmorScanner::Advertisement const& advertisement);
