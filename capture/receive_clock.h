#pragma once

#include <cstdint>

#include "core/performance_counter.h"

/// Carries the system's receive time stamps from the real clock over to the performance counter, on
/// which devices' times are extrapolated.
///
/// A frame is read some time after it came in: libpcap hands over whole blocks, and the machine may
/// be busy. Its time stamp says when it came in, but on the real clock, which somebody may set. So
/// the difference of the two clocks is measured once a pass. Where it has moved by more than
/// `largestSlew`, the real clock was set: frames that were stamped before that count as just come
/// in. The age of a frame is never negative.
///
/// The capture thread's own. The counter isn't owned.
class ReceiveClock {
  public:
    explicit ReceiveClock(const PerformanceCounter& performanceCounter)
        : counter(performanceCounter) {}

    /// Measures the difference of the clocks; before each pass.
    void synchronize();
    /// When a frame came in, in nanoseconds on the counter. `receivedAt` is its time stamp or
    /// `CapturedFrame::notStamped`; it was read at `readAt` on the counter.
    std::int64_t toCounter(std::int64_t receivedAt, std::int64_t readAt);

  private:
    /// What the real clock may move against the counter between two looks without having been set,
    /// and the age from which on a frame makes it worth a look: nanoseconds.
    static constexpr std::int64_t largestSlew = 1'000'000;

    const PerformanceCounter& counter;
    bool isMeasured = false;
    std::int64_t realAhead = 0;    ///< nanoseconds by which the real clock is ahead of the counter
    std::int64_t trustedFrom = 0;  ///< stamps before this are from before the clock was set
};
