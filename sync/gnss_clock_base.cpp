#include "sync/gnss_clock_base.h"

#include <utility>

#include "host/host_error.h"

namespace Kestrova::Utils::Kcom::Synchronization {

GNSSClockBase::GNSSClockBase(CountedRef<HostApp> hostApp,
                             const PerformanceCounter& performanceCounter)
    : host(std::move(hostApp)), counter(performanceCounter) {}

void GNSSClockBase::SetTime(const GNSSTime deviceTime) {
    const WriteGuard guard(timeLock);
    lastTimeStampNs = counter.getNanoseconds();
    lastTime = deviceTime;
    if (!hasTime) {
        firstTime = deviceTime;
        hasTime = true;
    }
}

void GNSSClockBase::Start(bool hostHasSource) {
    started = true;
    acceptAll = isTrue(hostValue(host, &HostApp::isSetupMode));
    OnStart(hostHasSource);
}

void GNSSClockBase::Reset() {
    started = false;
    windowBefore.reset();
    {
        const WriteGuard guard(timeLock);
        hasTime = false;
        lastTimeStampNs = counter.getNanoseconds();
    }
    OnReset();
}

void GNSSClockBase::SetWindow(double start, double current, double limit) {
    windowStart = start;
    windowBefore = windowBefore ? windowCurrent : 0.0;
    windowCurrent = current;
    windowLimit = limit;
    OnWindowChanged();
}

GNSSTime GNSSClockBase::GetFirstTime() const {
    const ReadGuard guard(timeLock);
    return firstTime;
}

GNSSClockState GNSSClockBase::BasicState(GNSSClockMode mode) const {
    GNSSClockState state;
    state.mode = mode;
    state.hasTime = hasTime;
    state.isPlaced = hasTime && started;
    state.elapsed = GetElapsedTime();
    state.offset = (origin - GNSSTime()) + gnss_arithmetic::weekEpochUnixSeconds;
    return state;
}

GNSSClockBase::Reading GNSSClockBase::Now() const {
    constexpr double nanosecondsPerSecond = 1e9;
    const ReadGuard guard(timeLock);
    const std::int64_t age = counter.getNanoseconds() - lastTimeStampNs;
    GNSSTime time = lastTime;
    time.AddSeconds(static_cast<double>(age) / nanosecondsPerSecond);
    return {time - origin, time};
}

}  // namespace Kestrova::Utils::Kcom::Synchronization
