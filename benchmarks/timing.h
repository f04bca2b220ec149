#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <utility>

/// The least time that one of many like things took, in seconds.
class Best {
  public:
    void add(double seconds, std::uint64_t things) {
        least = std::min(least, seconds / static_cast<double>(things));
    }
    double get() const { return least; }

  private:
    double least = 1e9;
};

/// Time since it was made or looked at, in seconds.
class StopWatch {
  public:
    double lap() {
        const auto now = Clock::now();
        return std::chrono::duration<double>(now - std::exchange(start, now)).count();
    }

  private:
    using Clock = std::chrono::steady_clock;

    Clock::time_point start = Clock::now();
};

/// Times the greater part of a run: it starts when a quarter of the file has been read, by when the
/// queues have grown to the size that they keep.
class SteadyPart {
  public:
    /// After each pass.
    void onPass(double progress) {
        constexpr double quarter = 0.25;
        if (share == 0.0 && progress >= quarter) {
            share = 1.0 - progress;
            watch.lap();
        }
    }
    /// At the end of the run, over so many messages.
    void addTo(Best& aMessage, std::uint64_t messages) {
        const auto timed = static_cast<std::uint64_t>(share * static_cast<double>(messages));
        aMessage.add(watch.lap(), timed);
    }

  private:
    StopWatch watch;
    double share = 0.0;  ///< of the file, that is timed
};
