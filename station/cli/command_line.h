#pragma once

#include "station/errors.h"

namespace station {

/// Does what the command line says, or prints the help that it asks for. Throws `UserError` for
/// what the user must know.
ExitCode executeCommandLine(int argc, char** argv);

}  // namespace station
