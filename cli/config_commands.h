#pragma once

#include <CLI/CLI.hpp>

#include "command_context.h"

/// "config get", "config set" and "config diff".
void addConfigCommands(CLI::App& app, CommandContext& context);
