#pragma once

#include <compare>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/descriptor.h"

namespace station {

// What is in the folder of a spool: parts, a note of how far they are acknowledged, and a lock.

inline constexpr const char* spoolPartEnding = ".pcapng";
inline constexpr const char* spoolNoteName = "acknowledged";
inline constexpr const char* spoolDroppedName = "dropped";  ///< as the note: a single place
inline constexpr const char* spoolLockName = "lock";

/// Of a part: the measurement, counted from 1 in this folder, and the part of it.
struct SpoolKey {
    std::uint64_t measurement = 0;
    std::uint64_t part = 0;
    auto operator<=>(const SpoolKey&) const = default;
};
/// Behind a batch.
struct SpoolPlace {
    SpoolKey part;
    std::uint64_t offset = 0;
    // In a note: what should be so.
    bool isGone = false;          ///< the part
    bool isDone = false;          ///< and all others of its measurement
    std::uint64_t lastPart = 0;   ///< of its measurement, with batches; 0: not known
    std::uint64_t lastBytes = 0;  ///< of that part
    bool operator==(const SpoolPlace&) const = default;
};

/// Of "00000003-SESSION-0001.pcapng"; none if it is no such name.
std::optional<SpoolKey> spoolKeyOf(const std::filesystem::path& path);

/// Holds the folder, which is made if it isn't there, as long as it is open. Throws `UserError`:
/// another program holds it, or it can't be made or written.
Descriptor lockSpool(const std::filesystem::path& folder);

/// The lock's file has the name of the station whose batches are there. Throws UserError: it has
/// parts of another one, or can't be written.
void noteSpoolOwner(const std::filesystem::path& folder, const Descriptor& lockFile,
                    const std::string& stationToken, bool hasParts);

/// For each measurement that had parts, or was sent, up to where it is acknowledged: a line each,
/// the last of which is the one that was being sent. Empty if the note is damaged, or can't be
/// read.
std::vector<SpoolPlace> readSpoolNote(const std::filesystem::path& folder,
                                      const char* name = spoolNoteName);
/// Replaces it as a whole. False: it can't be written.
bool writeSpoolNote(const std::filesystem::path& folder, const std::vector<SpoolPlace>& places,
                    const char* name = spoolNoteName);

}  // namespace station
