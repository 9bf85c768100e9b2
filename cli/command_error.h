#pragma once

#include <stdexcept>
#include <string>

/// Exit statuses of zelmorctl.
inline constexpr int kExitSuccess = 0;
/// The device refused or failed a request, or a local file could not be used.
inline constexpr int kExitFailure = 1;
/// The command line or an argument value is wrong (an invalid link, a bad file).
inline constexpr int kExitUsage = 2;
/// The link could not be made, or it ended before the command was done.
inline constexpr int kExitLink = 3;
/// Ctrl-C cancelled an operation that is not finished (a firmware update).
inline constexpr int kExitInterrupted = 130;

/// Ends a command: main prints the message on standard error and exits with
/// the status.
class CommandError : public std::runtime_error {
public:
    CommandError(std::string const& message, int status) : std::runtime_error(message), status_(status) {}
    int status() const { return status_; }

private:
    int status_;
};

/// A wrong command line or argument value.
inline CommandError usageError(std::string const& message) { return CommandError(message, kExitUsage); }
