#include "capture/receive_clock.h"

#include <algorithm>
#include <cstdlib>
#include <limits>

#include "capture/capture_port.h"

/// The thread may lose its core between two looks at the clocks: the closest of a few pairs counts.
void ReceiveClock::synchronize() {
    constexpr std::int64_t closeEnough = 2'000;  // nanoseconds
    constexpr int mostTries = 5;
    std::int64_t closest = std::numeric_limits<std::int64_t>::max();
    std::int64_t real = 0;
    std::int64_t measured = 0;
    for (int i = 0; i < mostTries && closest > closeEnough; ++i) {
        const std::int64_t before = counter.getNanoseconds();
        const std::int64_t now = counter.getRealNanoseconds();
        const std::int64_t taken = counter.getNanoseconds() - before;
        if (taken < closest) {
            closest = taken;
            real = now;
            measured = now - (before + taken / 2);
        }
    }
    if (isMeasured && std::abs(measured - realAhead) > largestSlew) {
        trustedFrom = real;
    }
    isMeasured = true;
    realAhead = measured;
}

std::int64_t ReceiveClock::toCounter(std::int64_t receivedAt, std::int64_t readAt) {
    if (receivedAt == CapturedFrame::notStamped) {
        return readAt;
    }
    if (readAt - (receivedAt - realAhead) > largestSlew) {
        synchronize();  // it has waited long, or the real clock was set back in this pass
    }
    return receivedAt < trustedFrom ? readAt : std::min(receivedAt - realAhead, readAt);
}
