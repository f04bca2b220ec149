#pragma once

#include <CLI/CLI.hpp>
#include <functional>

#include "station/exit_codes.h"
#include "station/stop_signal.h"

namespace station {

/// What the chosen subcommand does; throws CommandError for what the user must be told.
using Command = std::function<ExitCode(StopSignal&)>;

/// Each adds one subcommand and, when that is chosen, sets `chosen`.
void addRunCommand(CLI::App& app, Command& chosen);
void addConvertCommand(CLI::App& app, Command& chosen);
void addDumpCommand(CLI::App& app, Command& chosen);
void addGuiCommand(CLI::App& app, Command& chosen);
void addPluginsCommand(CLI::App& app, Command& chosen);
void addSetupCommand(CLI::App& app, Command& chosen);

}  // namespace station
