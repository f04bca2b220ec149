#pragma once

#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/clocks.h"

namespace sim {

enum class Bus { Can, Lin };
enum class Framing { Tecmp, AsamCmp };

std::string_view toText(Bus bus);
std::string_view toText(Framing framing);

/// One kind of capture module that can be simulated.
struct ModuleType {
    std::string_view name;
    std::uint8_t deviceType;  ///< the type byte of its TECMP status
    std::uint16_t baseId;     ///< upper bits of the CM ID; 0: the ConfigId is the whole CM ID
    Bus bus;
    Framing usualFraming;
    std::span<const std::uint16_t> interfaces;  ///< interface IDs, each once, in sending order

    /// The CM ID of a module set to `configId`: a ConfigId of 16 or more is the whole CM ID.
    std::uint16_t cmIdOf(std::uint16_t configId) const;

    /// The ConfigId that a user sees for `cmId`.
    std::uint16_t configIdOf(std::uint16_t cmId) const;
};

std::span<const ModuleType> moduleTypes();

/// The type of that name in any mix of upper and lower case, or null.
const ModuleType* findModuleType(std::string_view name);

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

/// One module to simulate, as given with `--module`.
struct ModuleSettings {
    const ModuleType* type = nullptr;  ///< points into the table, never null after parsing
    std::uint16_t cmId = 0;
    Framing framing = Framing::Tecmp;
    std::uint32_t serial = 0;
    unsigned channels = 0;  ///< the first this many of the type's interfaces; at least 1
    ClockSettings clock;

    std::span<const std::uint16_t> interfaces() const { return type->interfaces.first(channels); }

    /// Reads "TYPE:CONFIGID[,name=value]..."; `serial` is used when the text has none. Throws
    /// `Failure` with a text for the user.
    static ModuleSettings parse(std::string_view text, std::uint32_t usualSerial);
};

/// Reads all of them and refuses two modules of one CM ID, which no receiver could distinguish.
std::vector<ModuleSettings> parseModules(const std::vector<std::string>& texts);

}  // namespace sim
