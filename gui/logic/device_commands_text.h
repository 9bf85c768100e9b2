#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

#include "zelmor.h"

// What the device window's commands ask and tell, apart from any display.

/// The two password locks of a device, and what their menu commands say.
enum class PasswordLock { User, Master };

struct PasswordTexts {
    char const* title;          // the menu item's text
    char const* newPrompt;      // the new password, typed twice; empty removes the lock
    char const* confirmPrompt;  // the second field
    char const* resetText;      // the lock was removed
};

PasswordTexts const& passwordTexts(PasswordLock lock);

/// A change refused by a lock (code 4 or 5) asks for the password of the lock
/// that refused, unlocks with it and is sent again: the prompt for `code`, or
/// nullptr when the code is no lock's.
char const* currentPasswordPrompt(Zelmor::ResponseCode code);

/// Most characters of a device name: 32 on the network models, 8 on the
/// Bluetooth LE models.
size_t deviceNameMaxLength(uint8_t hardwareRevision);

inline constexpr char kFactoryResetQuestion[] =
    "You are about to reset your device to factory settings.\n"
    "The WiFi configuration, timers, and calibration will also be reset.\n"
    "The name will be reset to 'Zelmor-V'. All data logs will be removed!\n\n\n\n"
    "This cannot be undone!\n\n";

/// "The device clock will be set to:\n10:42 AM - Nov 24, 2026", in the local
/// time zone.
std::string clockQuestion(std::time_t now);

/// What the user is told after pairing.
std::string pairingInstructions(std::string const& name);
