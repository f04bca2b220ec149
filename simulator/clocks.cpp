#include "simulator/clocks.h"

#include <sys/prctl.h>
#include <time.h>
#include <algorithm>
#include <cmath>

namespace sim {

namespace {

/// A signal that comes just before the sleep is noticed after this time.
constexpr std::int64_t longestSleep = nsPerSecond / 10;

std::int64_t read(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return now.tv_sec * nsPerSecond + now.tv_nsec;
}

}  // namespace

SystemHostClock::SystemHostClock() {
    // Both of the same moment: of a few tries the one that was interrupted least.
    std::int64_t least = nsPerSecond;
    for (int i = 0; i < 20; ++i) {
        const std::int64_t before = read(CLOCK_MONOTONIC);
        const std::int64_t real = read(CLOCK_REALTIME);
        const std::int64_t width = read(CLOCK_MONOTONIC) - before;
        if (width < least) {
            least = width;
            utc = real;
            monotonic = before + width / 2;
        }
    }
    prctl(PR_SET_TIMERSLACK, 1UL);
}

std::int64_t SystemHostClock::elapsed() {
    return read(CLOCK_MONOTONIC) - monotonic;
}

void SystemHostClock::waitUntil(std::int64_t elapsedNs) {
    const std::int64_t until = std::min(elapsedNs, elapsed() + longestSleep) + monotonic;
    const timespec wake{until / nsPerSecond, until % nsPerSecond};
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &wake, nullptr);
}

DeviceClock::DeviceClock(std::int64_t startNs, const ClockSettings& clockSettings,
                         std::uint64_t seed)
    : originNs(startNs + toNs(clockSettings.offsetSeconds)),
      drift(clockSettings.driftPpm * 1e-6),
      jumpNs(toNs(clockSettings.jumpSeconds)),
      jumpAtNs(jumpNs == 0 ? std::numeric_limits<std::int64_t>::max()
                           : toNs(clockSettings.jumpAtSeconds)),
      jitterNs(toNs(clockSettings.jitterSeconds)),
      random(seed) {}

std::uint64_t DeviceClock::reading(std::int64_t elapsedNs) const {
    std::int64_t ns = originNs + elapsedNs;
    if (drift != 0)
        ns += std::llround(static_cast<double>(elapsedNs) * drift);
    if (afterJump(elapsedNs))
        ns += jumpNs;
    return static_cast<std::uint64_t>(std::max<std::int64_t>(ns, 0));
}

std::uint64_t DeviceClock::stamp(std::int64_t elapsedNs) {
    const std::uint64_t exact = reading(elapsedNs);
    if (jitterNs == 0)
        return exact;
    const auto width = static_cast<std::uint64_t>(2 * jitterNs + 1);
    const std::int64_t error = static_cast<std::int64_t>(random() % width) - jitterNs;
    const std::int64_t jittered =
        std::max<std::int64_t>(static_cast<std::int64_t>(exact) + error, 0);
    if (afterJump(elapsedNs) != lastAfterJump) {
        lastAfterJump = true;
        lastStamp = 0;
    }
    lastStamp = std::max(lastStamp, static_cast<std::uint64_t>(jittered));
    return lastStamp;
}

}  // namespace sim
