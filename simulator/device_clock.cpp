#include "simulator/device_clock.h"

#include <algorithm>
#include <cmath>

namespace sim {
namespace {

std::int64_t toNs(double seconds) {
    return std::llround(seconds * 1e9);
}

}  // namespace

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
