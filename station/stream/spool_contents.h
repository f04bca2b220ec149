#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "station/stream/spool_folder.h"

namespace station {

/// What is found in the folder of a spool when it is opened.
struct SpoolContents {
    struct Part {
        std::filesystem::path path;
        std::uint64_t bytes = 0;
        std::uint64_t partBefore = 0;  ///< of the measurement, with batches; 0: none
    };

    std::map<SpoolKey, Part> parts;
    std::set<SpoolKey> others;          ///< files that are named so and can't be read as parts
    std::uint64_t measurement = 0;      ///< the last number that is taken
    std::optional<SpoolPlace> dropped;  ///< that part, and all in front of it, had to go
    std::vector<std::string> texts;     ///< what the user must know
};
/// Throws `UserError`: the folder can't be read.
SpoolContents findSpoolContents(const std::filesystem::path& folder);

/// Parts that others have deleted while no station used the folder.
struct SpoolGap {
    std::uint64_t measurement = 0;
    std::uint64_t first = 0;
    std::uint64_t last = 0;  ///< 0: unknown
    bool isInFront = false;  ///< of all that is left of the measurement
    std::uint64_t from = 0;  ///< byte of the first one from which on it was cut off

    std::uint64_t countParts() const { return last != 0 ? last - first + 1 : 1; }
    std::string describe() const;  ///< for the user
};

/// Each part says which one is in front of it, as numbers of parts in which nothing was written are
/// left out. It is there, or was acknowledged, as the note says before a part is removed, or had to
/// go. The note is empty if there is none to be believed: then nobody knows of those in front of
/// the first part.
std::vector<SpoolGap> findSpoolGaps(const SpoolContents& contents,
                                    const std::vector<SpoolPlace>& note);

}  // namespace station
