#include "station/offline/fitted_clocks.h"

#include <fmt/format.h>

namespace station {

std::uint64_t FittedClocks::MovingCounter::getCount() const {
    const std::uint64_t now = standing.getCount();
    looks = now == moment ? looks + 1 : 0;
    moment = now;
    return now + looks;
}

FittedClocks::FittedClocks(const PerformanceCounter& performanceCounter,
                           std::int64_t startNanoseconds)
    : counter(performanceCounter),
      start(startNanoseconds),
      host(makeObject<StationHost>(counter, StationHostOptions())),
      manager(counter) {
    manager.SetHost(host.get());
}

void FittedClocks::begin() {
    manager.RestartWithHold();
    manager.EnableClocks();
}

/// The counter shows nothing before the first frame was read.
void FittedClocks::tick() {
    constexpr double perSecond = 1e9;
    if (!isRunning) {
        host->getClock().start(static_cast<double>(counter.getNanoseconds() - start) / perSecond);
        isRunning = true;
    }
    host->getClock().movePosition();
    manager.Tick();
}

std::vector<std::string> FittedClocks::describeJumps() const {
    std::vector<std::string> texts;
    for (const auto& clock : clocks) {
        if (const std::uint64_t jumps = clock->GetState().jumps; jumps != 0) {
            texts.push_back(fmt::format(
                "the device time of \"{}\" jumped, or had a wrong value ({} times), or the "
                "clock of the capturing computer was set; --clock device goes by the "
                "module's time alone",
                clock->GetDeviceName(), jumps));
        }
    }
    return texts;
}

}  // namespace station
