#pragma once

#include <span>
#include <string>
#include <vector>

#include "zelmor_scanner.h"

/// One column of a list: its header, its width in pixels, and whether its
/// cells line up on the right (numbers) or on the left.
struct ListColumn {
    char const* title;
    int width;
    bool rightAligned;
};

/// The columns of the "Local Devices" list, in display order: Name, Model,
/// Serial Number, FW, V1, V2, I, P, Wh, Ah, Temp, SoC, Runtime, PS, Address, RSSI.
std::span<ListColumn const> localDeviceColumns();

/// The row of one sighting, a cell for each column of localDeviceColumns().
/// Readings the device does not report (second voltage, state of charge,
/// runtime, signal strength) leave their cells empty.
std::vector<std::string> localDeviceCells(ZelmorScanner::Advertisement const& advertisement);

/// A device's IPv4 address, as the records carry it (network byte order), in
/// dotted text: "192.168.1.20".
std::string ipv4Text(uint32_t networkOrder);
