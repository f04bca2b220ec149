#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

/// What was read from one interface since data read was started.
struct FrameCounts {
    std::uint64_t kept = 0;       ///< EtherType 0x99FE
    std::uint64_t foreign = 0;    ///< all others
    std::uint64_t malformed = 0;  ///< of the kept: those that couldn't be decoded to their end
    std::uint64_t dropped = 0;    ///< by the system, before they could be read
    /// By the count of the system, where it has one: the kept, the foreign, the dropped, and those
    /// that weren't read yet.
    std::optional<std::uint64_t> received = {};
};

/// What became of the messages in the kept frames, as far as they were decoded. A data message that
/// isn't counted here as one that nobody gets is in the counts of its channel.
struct MessageCounts {
    /// A CM ID that no module has, and how many data messages had it.
    struct Unknown {
        std::uint16_t cmId = 0;
        std::uint64_t messages = 0;
    };

    std::uint64_t data = 0;
    std::uint64_t moduleStatus = 0;
    std::uint64_t busStatus = 0;
    std::uint64_t other = 0;              ///< of a type that isn't evaluated
    std::uint64_t empty = 0;              ///< data messages that hold no CAN message
    std::uint64_t unknownModule = 0;      ///< data messages whose CM ID no module has
    std::uint64_t unknownChannel = 0;     ///< whose interface the module doesn't have
    std::array<Unknown, 8> unknown = {};  ///< the first CM IDs of `unknownModule`

    void addUnknownModule(std::uint16_t cmId) {
        ++unknownModule;
        const auto place = std::ranges::find_if(unknown, [cmId](const Unknown& entry) {
            return entry.messages == 0 || entry.cmId == cmId;
        });
        if (place != unknown.end()) {
            place->cmId = cmId;
            ++place->messages;
        }
    }
};

/// The CM IDs of modules that speak and aren't set up: the first few.
struct UnknownModules {
    static constexpr std::size_t most = 16;

    std::array<std::uint16_t, most> cmIds = {};
    std::size_t count = 0;

    /// Whether it is a new one.
    bool note(std::uint16_t cmId) {
        const auto end = cmIds.begin() + static_cast<std::ptrdiff_t>(count);
        if (count == most || std::find(cmIds.begin(), end, cmId) != end) {
            return false;
        }
        cmIds[count++] = cmId;
        return true;
    }
};

/// The serial numbers in the status of one CM ID since data read was started. One module has one. A
/// module may be replaced by another; more changes than that say that several are there at once.
struct SerialNumbers {
    std::uint32_t latest = 0;
    std::uint32_t former = 0;
    std::uint32_t changes = 0;  ///< the first number is one too

    void note(std::uint32_t serial) {
        if (changes == 0 || serial != latest) {
            former = latest;
            latest = serial;
            ++changes;
        }
    }
    bool areOfSeveral() const { return changes > 2; }
};

/// Frames of one module, and what its sequence counter says: a hint only, as a module may have
/// several counters, and a frame may come late or twice.
struct SequenceCounts {
    /// What skips more is another counter, or a module that was restarted.
    static constexpr std::uint16_t mostMissing = 1000;
    /// As far behind the latest a frame may still be one that was missed.
    static constexpr std::uint16_t mostBehind = 63;

    std::uint64_t frames = 0;
    std::uint64_t gaps = 0;     ///< frames whose counter isn't the successor of the latest
    std::uint64_t missing = 0;  ///< frames that the gaps have skipped, and that didn't come later

    void note(std::uint16_t counter) {
        const auto ahead = static_cast<std::uint16_t>(counter - last);
        const auto behind = static_cast<std::uint16_t>(last - counter);
        const bool isFirst = frames++ == 0;
        const bool isAfterStray = counter == static_cast<std::uint16_t>(stray + 1) && hasStray;
        gaps += !isFirst && ahead != 1 ? 1 : 0;
        hasStray = false;
        const bool isAhead = ahead >= 1 && ahead <= mostMissing + 1;
        const bool isFar = !isAhead && behind > mostMissing;
        if (isFirst || isAfterStray || isFar) {
            goOnFrom(counter);
        } else if (isAhead) {
            missing += ahead - 1U;
            came = (ahead > mostBehind ? 0 : came << ahead) | 1U;
            last = counter;
        } else if (behind <= mostBehind) {
            const std::uint64_t its = std::uint64_t{1} << behind;
            missing -= (came & its) == 0 ? 1 : 0;
            came |= its;
        } else {
            stray = counter;  // a copy that comes late, or the first one of a restarted module
            hasStray = true;
        }
    }

  private:
    void goOnFrom(std::uint16_t counter) {
        last = counter;
        came = ~std::uint64_t{0};
    }

    std::uint64_t came = 0;  ///< bit i: the frame with the counter last - i isn't missing
    std::uint16_t last = 0;  ///< the latest counter
    std::uint16_t stray = 0;
    bool hasStray = false;  ///< the frame before had the counter `stray`
};
