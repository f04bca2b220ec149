#pragma once

#include <chrono>
#include <cstdint>

/// The machine's two clocks: the monotonic counter on which device times are extrapolated, and the
/// real clock, in which the system stamps received frames. An interface, so that tests and the
/// conversion of stored frames bring a time of their own. Called from any thread.
class PerformanceCounter {
  public:
    PerformanceCounter() = default;
    PerformanceCounter(const PerformanceCounter&) = delete;
    PerformanceCounter& operator=(const PerformanceCounter&) = delete;
    virtual ~PerformanceCounter() = default;

    virtual std::uint64_t getCount() const = 0;
    /// Counts per second, constant and not 0.
    virtual std::uint64_t getFrequency() const = 0;
    /// The real clock: nanoseconds since 1970. It may be set forward or back at any time.
    virtual std::int64_t getRealNanoseconds() const = 0;

    /// Nanoseconds since the counter's own zero; split so that the product can't overflow.
    std::int64_t getNanoseconds() const {
        constexpr std::uint64_t nanosecondsPerSecond = 1000000000;
        const std::uint64_t count = getCount();
        const std::uint64_t frequency = getFrequency();
        if (frequency == nanosecondsPerSecond) {
            return static_cast<std::int64_t>(count);
        }
        return static_cast<std::int64_t>(count / frequency * nanosecondsPerSecond +
                                         count % frequency * nanosecondsPerSecond / frequency);
    }
};

/// Nanoseconds since 1970 by the system's clock, which may be set.
inline std::int64_t realNanoseconds() {
    return std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
}

/// The computer's steady clock and its real clock.
class SteadyPerformanceCounter final : public PerformanceCounter {
  public:
    std::uint64_t getCount() const override {
        return static_cast<std::uint64_t>(
            std::chrono::steady_clock::now().time_since_epoch().count());
    }
    std::uint64_t getFrequency() const override { return std::chrono::steady_clock::period::den; }
    std::int64_t getRealNanoseconds() const override { return realNanoseconds(); }
};
