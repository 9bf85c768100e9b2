#pragma once

#include "zelmor.h"

// What the lock status byte of a device's information says. The network
// models keep the session's lock in bit 4 and whether a master password is
// set in bit 5; the Bluetooth LE models use bits 0 and 1.

/// Whether the session is below the level the user password asks for.
bool deviceLocked(Zelmor::DeviceInfo const& info);

/// Whether the device has a master password set.
bool masterPasswordSet(Zelmor::DeviceInfo const& info);
