#pragma once

#include <stdexcept>
#include <string>
#include <system_error>

namespace station {

/// What the programs answer to the shell.
enum class ExitCode : int {
    Good = 0,
    Failed = 1,      ///< a failure while running, or messages lost
    WrongUse = 2,    ///< options that make no sense
    Unreadable = 3,  ///< an input file that can't be read, or not to its end
    NotAllowed = 4,  ///< no permission to capture
};

/// What the system says of that `errno`.
inline std::string reasonOf(int errorNumber) {
    return std::generic_category().message(errorNumber);
}

/// What the user asked for can't be done, for a reason that he can mend: it isn't there, makes no
/// sense or isn't allowed. The text says what there is, or what to do.
class UserError : public std::runtime_error {
  public:
    explicit UserError(const std::string& text) : UserError(ExitCode::WrongUse, text) {}
    UserError(ExitCode exitCode, const std::string& text)
        : std::runtime_error(text), code(exitCode) {}
    ExitCode getCode() const { return code; }

  private:
    ExitCode code;
};

/// A file that can't be read or written. The text names the file, the place in it if its contents
/// are at fault, the reason and what to do.
class FileError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// The plug-in failed in one of the host's calls: by an exception of any type or by a negative
/// code. The text says in which and why, for the user.
class PluginError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace station
