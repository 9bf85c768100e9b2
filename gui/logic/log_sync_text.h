#pragma once

#include <cstdint>
#include <string>

// What the device window says about the data log sync, apart from any display.

/// The status line of a ready device window: "Connected" or, while a sync
/// copies files, "Connected - Downloading data log ... 42%" (done * 100 /
/// total, rounded down; 0% while the total is unknown).
std::string syncStatusText(bool syncing, uint64_t done, uint64_t total);

/// Asked before "Clear Local Data Log" deletes the local copy: it may hold
/// files that the device has dropped since, which no sync brings back.
inline constexpr char kClearLocalLogQuestion[] =
    "Delete the local copy of the data log ?\n"
    "Log files the device no longer keeps will be lost.";
