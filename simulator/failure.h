#pragma once

#include <stdexcept>
#include <string>

namespace sim {

/// What the program's exit code says.
enum class ExitCode {
    Good = 0,
    FailedWhileRunning = 1,
    WrongUse = 2,
    NotAllowed = 4,
};

/// Ends the program with its text and code. The text says what to do about it.
class Failure : public std::runtime_error {
  public:
    Failure(ExitCode exitCode, const std::string& text)
        : std::runtime_error(text), code(exitCode) {}

    const ExitCode code;
};

}  // namespace sim
