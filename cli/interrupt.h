#pragma once

#include <chrono>

// Ctrl-C (SIGINT) and SIGTERM as a polite request to stop, for the commands
// that can end cleanly: a monitor loop, a scan, a firmware transfer. Other
// commands keep the default, which ends the process at once; what they leave
// on disk is valid at every moment.

/// Installs the handler. Safe to call more than once.
void catchInterrupts();

/// True once Ctrl-C was pressed after catchInterrupts().
bool interruptRequested();

/// Waits for `duration` or until Ctrl-C; false when interrupted.
bool sleepUnlessInterrupted(std::chrono::milliseconds duration);
