#pragma once

#include <stdexcept>
#include <string>

namespace station {

/// What the programs answer to the shell.
enum class ExitCode : int {
    Good = 0,
    Failed = 1,      ///< a failure while running, or messages lost
    WrongUse = 2,    ///< options that make no sense
    Unreadable = 3,  ///< an input file that can't be read, or not to its end
    NotAllowed = 4,  ///< no permission to capture
};

/// Ends a command with a text for the user and an exit code.
class CommandError : public std::runtime_error {
  public:
    CommandError(ExitCode exitCode, const std::string& text)
        : std::runtime_error(text), code(exitCode) {}
    ExitCode getCode() const { return code; }

  private:
    ExitCode code;
};

}  // namespace station
