#pragma once

#include <functional>
#include <string>
#include <utility>

#include <CLI/CLI.hpp>

#include "output.h"

/// How to reach the device: the global options of the command line.
struct TargetOptions {
    std::string lan;           // IPv4 address of a LAN or WiFi device
    std::string link;          // device link of a paired device, reached through the hub
    std::string linkFile;      // a file whose first line is that link
    std::string ble;           // Bluetooth LE address of a Bluetooth model, "C2:5A:4C:00:00:01"
    std::string hub;           // hub host; empty: hubHostSetting()
    std::string password;      // unlock with it after connecting
    std::string passwordFile;  // a file whose first line is that password
};

/// What every command shares: the global options and the action chosen on the
/// command line, which runs only once the whole line has been read.
class CommandContext {
public:
    TargetOptions target;
    Output output;

    void choose(std::function<void()> action) { action_ = std::move(action); }
    std::function<void()> const& action() const { return action_; }

private:
    std::function<void()> action_;
};

/// A subcommand whose action runs after parsing; the action throws
/// CommandError to fail.
inline CLI::App* addCommand(CLI::App& parent, std::string const& name, std::string const& description,
                            CommandContext& context, std::function<void()> action) {
    CLI::App* command = parent.add_subcommand(name, description);
    command->callback([&context, action = std::move(action)] { context.choose(action); });
    return command;
}

/// A subcommand that only groups others ("log", "config", "link", "firmware", "wifi").
inline CLI::App* addGroup(CLI::App& parent, std::string const& name, std::string const& description) {
    CLI::App* group = parent.add_subcommand(name, description);
    group->require_subcommand(1);
    return group;
}

// The command groups, one file each.
void addInfoCommands(CLI::App& app, CommandContext& context);
void addSettingsCommands(CLI::App& app, CommandContext& context);
void addLockCommands(CLI::App& app, CommandContext& context);
void addLogCommands(CLI::App& app, CommandContext& context);
void addFirmwareCommands(CLI::App& app, CommandContext& context);
void addLinkCommands(CLI::App& app, CommandContext& context);
void addWifiCommands(CLI::App& app, CommandContext& context);
