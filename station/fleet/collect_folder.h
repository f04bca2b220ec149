#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/descriptor.h"

namespace station {

/// A name that came over the network as the name of a file: as it is if any file system takes it,
/// and nobody could take it for another one; else with "=XX" in place of bytes. Of a long one the
/// end is a digest.
std::string safeFileName(std::string_view name);
/// So that a file that was made there, or got its name, is found again after the machine failed.
void syncFolderOf(const std::filesystem::path& file);

/// The folder that a collector writes into, and what it keeps for itself there, in ".collect".
///
/// One collector at a time: it holds a lock. A folder belongs to one consumer of one stream, for
/// that has a memory of what was collected; another one would collect all over again, or leave out
/// what it was given elsewhere.
class CollectFolder {
  public:
    /// What a folder was begun with.
    struct Settings {
        std::string stream;
        std::string durable;  ///< empty: one of the folder's own
        std::string stations;
        std::string from;
    };

    /// Makes the folder if it isn't there. Throws UserError: in use, begun with other settings, or
    /// not to be written.
    CollectFolder(std::filesystem::path folder, const Settings& wanted);

    const std::filesystem::path& getPath() const { return path; }
    /// Of the consumer.
    const std::string& getDurable() const { return durable; }
    /// Where a station's recordings are: a folder with its name; made if it isn't there. If it
    /// can't be written, one with "=-2" behind that, which no name has, and so on. Throws
    /// UserError.
    std::filesystem::path makeStationFolder(const std::string& station) const;
    /// Where is noted what is there of a session; its folder is made if it isn't there.
    std::filesystem::path makeStatePath(const std::string& token, const std::string& session) const;
    /// The station's token and the session of all that `makeStatePath` was called for and that were
    /// written to.
    std::vector<std::filesystem::path> listStates() const;
    /// For files on their way into the folder; empty when it is opened next.
    std::filesystem::path getScratch() const { return own / "scratch"; }
    /// Waits until the disk has all that was written into it. False if that isn't known.
    bool sync() const;

  private:
    void lock();
    void compare(const Settings& wanted);

    const std::filesystem::path path;
    const std::filesystem::path own;
    Descriptor opened;  ///< holds the lock
    std::string durable;
};

}  // namespace station
