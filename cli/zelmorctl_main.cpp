// zelmorctl: the command-line client of Zelmor battery monitors, for headless
// machines and scripts. Reads the command line, runs the one command chosen,
// and maps failures to messages on standard error and exit statuses.
#include <cstdio>
#include <exception>

#include <fmt/core.h>
#include <CLI/CLI.hpp>

#include "command_context.h"
#include "command_error.h"
#include "hub_host.h"
#include "secret_source.h"

int main(int argc, char** argv) {
    CommandContext context;
    bool json = false;

    CLI::App app{"zelmorctl: find, monitor and configure Zelmor battery monitors"};
    // Global options may also follow the command: "zelmorctl info --lan 10.0.0.5".
    app.fallthrough();
    app.require_subcommand(1);
    app.set_help_all_flag("--help-all", "Show the help of every command");
    char const* const group = "Device and output";
    CLI::Option* lan =
        app.add_option("--lan", context.target.lan, "Reach a LAN or WiFi device at this IPv4 address (port 7208)")
            ->group(group);
    CLI::Option* link =
        app.add_option("--link", context.target.link,
                       "Reach a paired device through the hub, by its device link. The link holds the "
                       "device's key, which other users of this machine can read in the process list: prefer "
                       "--link-file")
            ->excludes(lan)
            ->group(group);
    CLI::Option* linkFile = app.add_option("--link-file", context.target.linkFile,
                                           "Reach a paired device through the hub, by the device link on the first "
                                           "line of this file (out of sight of other users, unlike --link)")
                                ->excludes(lan, link)
                                ->group(group);
    app.add_option("--ble", context.target.ble,
                   "Reach a Bluetooth LE device at this address, e.g. C2:5A:4C:00:00:01 (needs an adapter)")
        ->excludes(lan, link, linkFile)
        ->group(group);
    app.add_option(
           "--hub", context.target.hub,
           fmt::format("Hub host for --link and --link-file (default: ${} or {})", kHubHostVariable, kDefaultHubHost))
        ->group(group);
    CLI::Option* password =
        app.add_option("--password", context.target.password,
                       "Unlock the device with this password first. Other users of this machine can read it in the "
                       "process list: prefer --password-file or $ZELMOR_PASSWORD")
            ->group(group);
    app.add_option("--password-file", context.target.passwordFile,
                   fmt::format("Unlock the device with the password on the first line of this file. Without "
                               "--password or --password-file: ${}, then a hidden prompt when the device is locked "
                               "and standard input is a terminal",
                               kPasswordVariable))
        ->excludes(password)
        ->group(group);
    app.add_flag("--json", json, "One JSON object per result and line")->group(group);

    addInfoCommands(app, context);
    addSettingsCommands(app, context);
    addLockCommands(app, context);
    addLogCommands(app, context);
    addFirmwareCommands(app, context);
    addLinkCommands(app, context);
    addWifiCommands(app, context);

    try {
        app.parse(argc, argv);
    } catch (CLI::ParseError const& error) {
        int const status = app.exit(error);
        return status == 0 ? kExitSuccess : kExitUsage;
    }

    context.output.setJson(json);
    try {
        context.action()();
    } catch (CommandError const& error) {
        std::fflush(stdout);
        fmt::print(stderr, "{}\n", error.what());
        return error.status();
    } catch (std::exception const& error) {
        std::fflush(stdout);
        fmt::print(stderr, "{}\n", error.what());
        return kExitFailure;
    }
    return kExitSuccess;
}
