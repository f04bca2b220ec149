#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "station/session/session.h"

namespace station {

/// The file of a setup that is open for hours, while other programs may change it: the commands on
/// setups, an editor, a second desktop.
class SharedSetupFile {
  public:
    /// A setup that has no file yet.
    SharedSetupFile() = default;
    /// To be made before the setup is read, so that no change goes unseen.
    explicit SharedSetupFile(std::filesystem::path file);

    /// Empty without one.
    const std::filesystem::path& getPath() const { return path; }
    /// Saves the session's setup there, which is its file from then on. False, and nothing is
    /// written, if that was its file already and somebody else has changed it since it was read or
    /// saved here; the next call writes over what this one has found there. Throws as
    /// `Session::save`, and `UserError` if another program keeps the setup locked for longer than
    /// half a second, for which this waits.
    bool save(Session& session, const std::filesystem::path& to);

  private:
    std::filesystem::path path;
    std::optional<std::string> seen;  ///< what was last found in the file
};

}  // namespace station
