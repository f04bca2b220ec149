#pragma once

#include <compare>
#include <cstdint>
#include <filesystem>
#include <optional>

#include "core/descriptor.h"

namespace station {

// What is in the folder of a spool: parts, a note of how far they are acknowledged, and a lock.

inline constexpr const char* spoolPartEnding = ".pcapng";
inline constexpr const char* spoolNoteName = "acknowledged";
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
};

/// Of "00000003-SESSION-0001.pcapng"; none if it is no such name.
std::optional<SpoolKey> spoolKeyOf(const std::filesystem::path& path);

/// Holds the folder as long as it is open. Throws `UserError`: another program holds it, or it
/// can't be written.
Descriptor lockSpool(const std::filesystem::path& folder);

/// None if it is damaged, or can't be read.
std::optional<SpoolPlace> readSpoolNote(const std::filesystem::path& folder);
/// Replaces it as a whole. False: it can't be written.
bool writeSpoolNote(const std::filesystem::path& folder, const SpoolPlace& place);

}  // namespace station
