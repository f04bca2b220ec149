#include "simulator/host_clock.h"

#include <sys/prctl.h>
#include <time.h>

#include <algorithm>

namespace sim {
namespace {

constexpr std::int64_t second = 1'000'000'000;
/// A signal that comes just before the sleep is noticed after this time.
constexpr std::int64_t longestSleep = second / 10;

std::int64_t read(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return now.tv_sec * second + now.tv_nsec;
}

}  // namespace

SystemHostClock::SystemHostClock() {
    // Both of the same moment: of a few tries the one that was interrupted least.
    std::int64_t least = second;
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
    const timespec wake{until / second, until % second};
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &wake, nullptr);
}

}  // namespace sim
