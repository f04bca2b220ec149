#pragma once

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>

namespace sim {

constexpr std::int64_t nsPerSecond = 1'000'000'000;

inline std::int64_t toNs(double seconds) {
    return std::llround(seconds * 1e9);
}

/// What the simulator knows of time. Its own clock starts at 0 when the simulation does; all times
/// are nanoseconds.
class HostClock {
  public:
    virtual ~HostClock() = default;

    /// Since the start.
    virtual std::int64_t elapsed() = 0;

    /// Returns at `elapsedNs`, at the latest; earlier after a signal or a while, so call it in a
    /// loop.
    virtual void waitUntil(std::int64_t elapsedNs) = 0;

    /// The least time between two wake-ups with which a sender at a high rate still gets its work
    /// done: so a wake-up pays for many frames.
    virtual std::int64_t getLeastSleep() const = 0;

    /// The UTC time of the start, since 1970: where device clocks start from.
    virtual std::int64_t getStartUtc() const = 0;

    /// What payload stamps count from, at the start.
    virtual std::int64_t getStartStamp() const = 0;
};

/// The machine's clocks: paced by CLOCK_MONOTONIC, which payload stamps are in too, so that a
/// receiver on the same machine can compare them with its own monotonic clock.
class SystemHostClock : public HostClock {
  public:
    SystemHostClock();

    std::int64_t elapsed() override;
    void waitUntil(std::int64_t elapsedNs) override;
    std::int64_t getLeastSleep() const override { return 250'000; }
    std::int64_t getStartUtc() const override { return utc; }
    std::int64_t getStartStamp() const override { return monotonic; }

  private:
    std::int64_t utc = 0;
    std::int64_t monotonic = 0;
};

/// Time that passes only by waiting, from a fixed date: the same settings give the same file.
class VirtualHostClock : public HostClock {
  public:
    /// 2024-01-01 00:00:00 UTC.
    static constexpr std::int64_t start = 1'704'067'200'000'000'000;

    std::int64_t elapsed() override { return now; }
    void waitUntil(std::int64_t elapsedNs) override {
        if (elapsedNs > now)
            now = elapsedNs;
    }
    std::int64_t getLeastSleep() const override { return 0; }
    std::int64_t getStartUtc() const override { return start; }
    std::int64_t getStartStamp() const override { return start; }

  private:
    std::int64_t now = 0;
};

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
