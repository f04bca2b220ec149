#pragma once

#include <cstdint>
#include <limits>
#include <random>

namespace sim {

/// How a module's clock differs from the host's.
struct ClockSettings {
    double driftPpm = 0;
    double offsetSeconds = 0;
    double jumpSeconds = 0;
    double jumpAtSeconds = 0;  ///< since the start; only meaningful with a jump
    double jitterSeconds = 0;  ///< stamps err uniformly by up to this, both ways
};

/// The clock of one simulated module, in nanoseconds since 1970.
///
/// A pure function of the time since the start, but for the jitter of stamps, which comes from the
/// seed. It runs straight: base + offset + elapsed * (1 + drift), and from `jumpAtSeconds` on it is
/// `jumpSeconds` further (or less far). Readings never reach the top bit, which is not time on the
/// wire. Not thread-safe; one module owns it.
class DeviceClock {
  public:
    /// `startNs`: the host's time at the start, nanoseconds since 1970.
    DeviceClock(std::int64_t startNs, const ClockSettings& clockSettings, std::uint64_t seed);

    /// What the clock shows `elapsedNs` after the start, without jitter.
    std::uint64_t reading(std::int64_t elapsedNs) const;

    /// A stamp: the reading with jitter. Stamps taken at growing times never go back, but at the
    /// jump.
    std::uint64_t stamp(std::int64_t elapsedNs);

  private:
    bool afterJump(std::int64_t elapsedNs) const { return elapsedNs >= jumpAtNs; }

    const std::int64_t originNs;
    const double drift;
    const std::int64_t jumpNs;
    const std::int64_t jumpAtNs;
    const std::int64_t jitterNs;
    std::mt19937_64 random;
    std::uint64_t lastStamp = 0;
    bool lastAfterJump = false;
};

}  // namespace sim
