#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>

#include "station/document/setup_document.h"
#include "station/errors.h"

namespace station {

/// Keeps other programs that edit setups in the same folder waiting as long as it lives, so that
/// none saves over another's changes. It waits itself until none of them is at work.
class SetupLock {
  public:
    /// `onWait` gets the folder before this waits. Throws FileError.
    explicit SetupLock(const std::filesystem::path& setup,
                       const std::function<void(const std::filesystem::path&)>& onWait = {});
    ~SetupLock();
    SetupLock(const SetupLock&) = delete;
    SetupLock& operator=(const SetupLock&) = delete;

  private:
    int folder = -1;
};

/// The name of the root of a setup: a file with another one is something else, even if its form is
/// that of a setup.
inline constexpr const wchar_t* setupRootName = L"Setup";

/// A setup document on the disk, in the form of setup_xml.h.
///
/// Invariant: at the path there is at any moment, through crash and power cut, a whole file or
/// none. And nothing that a user could want back is lost by saving: what stood there last goes to
/// the backup, and what isn't a setup file that this program reads (damaged, of a newer version,
/// something else) is refused and not overwritten.
///
/// Used on one thread. Of two programs that save at a time, the later one wins: see `SetupLock`.
class SetupFile {
  public:
    explicit SetupFile(std::filesystem::path file) : path(std::move(file)) {}

    /// In reading mode. Throws FileError, and writes nothing in any case.
    CountedRef<SetupDocument> load() const;

    /// Throws FileError; the file is as it was then, and so is the backup unless the very last
    /// step fails, after which both hold what the file held. Does nothing if the file is the same
    /// already, so that the backup stays a step behind. A symbolic link is followed.
    void save(const SetupDocument& document) const;

    const std::filesystem::path& getPath() const { return path; }
    std::filesystem::path getBackupPath() const;

  private:
    std::filesystem::path target() const;
    std::string read() const;

    const std::filesystem::path path;
};

}  // namespace station
