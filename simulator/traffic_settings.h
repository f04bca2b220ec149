#pragma once

#include <cstdint>
#include <limits>
#include <string_view>
#include <vector>

#include "simulator/module_type.h"

namespace sim {

constexpr std::int64_t nsPerSecond = 1'000'000'000;
constexpr std::int64_t never = std::numeric_limits<std::int64_t>::max();

/// `--length`: data bytes of the messages, both ends included.
struct LengthRange {
    unsigned from = 8;
    unsigned to = 8;

    /// Reads "N" or "A-B"; throws `Failure` with a text for the user.
    static LengthRange parse(std::string_view text);

    /// Whether it takes CAN FD to carry them.
    bool needsCanFd() const { return to > 8; }

    /// The lengths that messages of such a module take in turn; never empty. CAN takes the lengths
    /// of CAN FD in the range. LIN data are 1 to 8 bytes, and ASAM CMP messages hold at least one,
    /// so there the nearest possible lengths stand in.
    std::vector<std::uint8_t> lengthsFor(Bus bus, Framing framing) const;
};

/// The host time that payloads carry.
enum class Stamp : std::uint8_t {
    None,
    Due,      ///< when the message was due, as all device times are
    Sending,  ///< when its frame was given to the sink; device times are of that moment too
};

/// What all modules have in common.
struct TrafficSettings {
    std::uint64_t rate = 1000;  ///< messages per second and channel; 0: as fast as it goes
    std::uint64_t messageLimit = std::numeric_limits<std::uint64_t>::max();  ///< of all modules
    std::int64_t durationNs = never;
    unsigned perFrame = 1;  ///< TECMP messages per frame
    LengthRange lengths = {};
    double badShare = 0;                        ///< of all frames, below 1
    std::int64_t statusPeriodNs = nsPerSecond;  ///< `never`: only at the start and the end
    std::uint64_t seed = 1;
    Stamp stamp = Stamp::None;
};

/// When the messages of one module are due, counted from the start: evenly spread, the channels in
/// turn. Computed for each message from its index alone, so that no rounding adds up.
struct MessageSchedule {
    std::uint64_t perSecond;  ///< messages of the whole module; at least 1, below 2^33

    /// Nanoseconds after the start, rounded down.
    std::int64_t timeOf(std::uint64_t index) const {
        const auto second = static_cast<std::uint64_t>(nsPerSecond);
        return static_cast<std::int64_t>(index / perSecond * second +
                                         index % perSecond * second / perSecond);
    }

    /// How many messages are due before `endNs`.
    std::uint64_t countBefore(std::int64_t endNs) const;
};

}  // namespace sim
