#pragma once

#include <string>
#include <vector>

#include "simulator/module_settings.h"

namespace sim {

/// The command line, checked.
struct Options {
    std::string interface;  ///< empty when writing a file
    std::string file;
    std::vector<ModuleSettings> modules;
    TrafficSettings traffic;
    bool json = false;
    bool force = false;
    bool overwrite = false;  ///< the file, if it is there
    bool verbose = false;
};

/// What came of reading the command line: options, or a text to print and the program is done.
struct ParsedOptions {
    Options options;
    bool done = false;
    std::string text;
};

/// Throws `Failure` with `ExitCode::WrongUse`.
ParsedOptions parseOptions(int argc, const char* const* argv);

}  // namespace sim
