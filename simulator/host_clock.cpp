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

SystemHostClock::SystemHostClock() : utc(read(CLOCK_REALTIME)), monotonic(read(CLOCK_MONOTONIC)) {
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
