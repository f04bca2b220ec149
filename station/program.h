#pragma once

#include <CLI/CLI.hpp>
#include <functional>

#include "station/errors.h"

namespace station {

/// What a program's `main` does: looks after its descriptors and rights, has `execute` do the rest,
/// and reports to the user what that throws. Returns the exit code.
int runProgram(const std::function<ExitCode()>& execute);

/// Reads the command line into the options of `app`. False if help was asked for, which is printed
/// then. Throws `UserError`, which names `help`, a command.
bool readCommandLine(CLI::App& app, int argc, char** argv, const char* help);

}  // namespace station
