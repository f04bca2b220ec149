#pragma once

#include "core/performance_counter.h"

/// A counter that moves when the test says so. 1,000 counts a second by default.
class ManualCounter final : public PerformanceCounter {
  public:
    explicit ManualCounter(std::uint64_t countsPerSecond = 1000, std::uint64_t firstCount = 0)
        : count(firstCount), frequency(countsPerSecond) {}

    std::uint64_t getCount() const override {
        if (onCount) {
            onCount();
        }
        return count;
    }
    std::uint64_t getFrequency() const override { return frequency; }
    std::int64_t getRealNanoseconds() const override {
        return static_cast<std::int64_t>(count * 1'000'000'000 / frequency) + realAhead;
    }
    void pass(double seconds) {
        count += static_cast<std::uint64_t>(std::llround(seconds * static_cast<double>(frequency)));
    }

    std::atomic<std::uint64_t> count;
    std::uint64_t frequency;
    std::int64_t realAhead = 0;     ///< of the real clock, nanoseconds
    std::function<void()> onCount;  ///< called at each look; may be empty
};
