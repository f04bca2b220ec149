#include "station/stream/spool_contents.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <map>
#include <system_error>

#include "station/errors.h"
#include "station/stream/batch_file.h"

namespace station {
namespace fs = std::filesystem;
namespace {

void addFile(SpoolContents& contents, const SpoolKey& key, const fs::path& path,
             std::uint64_t bytes) {
    const Descriptor file = openForReading(path);
    int failure = file.isOpen() ? 0 : errno;
    std::uint64_t first = 0;
    const auto found = failure == 0 ? findBatch(file, first, bytes, failure) : std::nullopt;
    if (found || failure != 0) {
        contents.measurement = std::max(contents.measurement, key.measurement);
    }
    if (!found) {
        contents.others.insert(key);
        contents.texts.push_back(
            failure == 0 ? fmt::format("{} is no part of a spool, and is left alone", path.string())
                         : fmt::format("{} can't be read: {}; it is left alone until the next run",
                                       path.string(), std::strerror(failure)));
    } else if (!contents.parts.try_emplace(key, SpoolContents::Part{path, bytes, found->partBefore})
                    .second) {
        contents.texts.push_back(fmt::format(
            "{} has the numbers of another part of the spool, and is left alone", path.string()));
    }
}

/// By measurement, the last part in front of its first one, or in it, that is gone by right.
std::map<std::uint64_t, std::uint64_t> findGone(const SpoolContents& contents,
                                                const std::vector<SpoolPlace>& note) {
    std::map<std::uint64_t, std::uint64_t> gone;
    for (const SpoolPlace& place : note) {
        if (place.part.part != 0) {
            gone[place.part.measurement] = place.part.part - (place.isGone ? 0 : 1);
        }
    }
    if (contents.dropped) {
        std::uint64_t& last = gone[contents.dropped->part.measurement];
        last = std::max(last, contents.dropped->part.part);
    }
    return gone;
}

/// The last part of a measurement that is there; 0: none.
std::uint64_t lastThere(const SpoolContents& contents, std::uint64_t measurement) {
    const SpoolKey behind{measurement + 1, 0};
    const auto part = contents.parts.lower_bound(behind);
    const auto other = contents.others.lower_bound(behind);
    const auto partOf = [&](const SpoolKey& key) {
        return key.measurement == measurement ? key.part : 0;
    };
    return std::max(part != contents.parts.begin() ? partOf(std::prev(part)->first) : 0,
                    other != contents.others.begin() ? partOf(*std::prev(other)) : 0);
}

/// What is missing behind all that is there of a measurement.
std::optional<SpoolGap> findGapAtEnd(const SpoolContents& contents, const SpoolPlace& noted,
                                     std::uint64_t gone) {
    const std::uint64_t measurement = noted.part.measurement;
    const std::uint64_t last = lastThere(contents, measurement);
    if (last == 0) {
        return SpoolGap{measurement, gone + 1, noted.lastPart > gone ? noted.lastPart : 0, true};
    }
    if (last < noted.lastPart) {
        return SpoolGap{measurement, std::max(last, gone) + 1, noted.lastPart};
    }
    const auto part = contents.parts.find({measurement, noted.lastPart});
    if (part != contents.parts.end() && part->second.bytes < noted.lastBytes) {
        return SpoolGap{measurement, noted.lastPart, noted.lastPart, false, part->second.bytes};
    }
    return std::nullopt;
}

}  // namespace

SpoolContents findSpoolContents(const fs::path& folder) {
    SpoolContents contents;
    std::error_code failure;
    for (const auto& entry : fs::directory_iterator(folder, failure)) {
        const auto key = spoolKeyOf(entry.path());
        if (!key || !entry.is_regular_file(failure)) {
            continue;
        }
        if (const std::uint64_t bytes = entry.file_size(failure); bytes != 0) {
            addFile(contents, *key, entry.path(), bytes);
        }
    }
    if (failure) {
        throw UserError(
            fmt::format("--spool: {} can't be read: {}", folder.string(), failure.message()));
    }
    const auto dropped = readSpoolNote(folder, spoolDroppedName);
    const auto& parts = contents.parts;
    if (!dropped.empty() && (parts.empty() || dropped.front().part < parts.begin()->first)) {
        contents.dropped = dropped.front();
    }
    return contents;
}

std::string SpoolGap::describe() const {
    const std::string behind = last == 0      ? " and all behind it"
                               : last > first ? fmt::format(" to {}", last)
                               : from != 0    ? fmt::format(" from byte {} on", from)
                                              : "";
    return fmt::format(
        "the stream's spool: somebody has deleted parts of it, and what of them wasn't in the "
        "stream is lost, counted as one message for each: {:08}, part {}{}",
        measurement, first, behind);
}

std::vector<SpoolGap> findSpoolGaps(const SpoolContents& contents,
                                    const std::vector<SpoolPlace>& note) {
    std::map<std::uint64_t, std::uint64_t> gone = findGone(contents, note);
    std::vector<SpoolGap> gaps;
    SpoolKey before;
    for (const auto& [key, part] : contents.parts) {
        const bool isFirst = before.measurement != key.measurement;
        const std::uint64_t known = std::max(isFirst ? 0 : before.part, gone[key.measurement]);
        const bool isKnown = !isFirst || !note.empty();
        if (isKnown && part.partBefore > known && part.partBefore < key.part &&
            !contents.others.contains({key.measurement, part.partBefore})) {
            gaps.push_back({key.measurement, known + 1, part.partBefore, isFirst});
        }
        before = key;
    }
    for (const SpoolPlace& place : note) {
        const std::uint64_t measurement = place.part.measurement;
        const std::uint64_t dropped = contents.dropped ? contents.dropped->part.measurement : 0;
        const bool hadToGo =
            measurement < dropped || (measurement == dropped && contents.dropped->isDone);
        const auto gap = place.isDone || hadToGo ? std::nullopt
                                                 : findGapAtEnd(contents, place, gone[measurement]);
        if (gap) {
            gaps.push_back(*gap);
        }
    }
    return gaps;
}

}  // namespace station
