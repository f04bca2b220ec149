#include "station/offline/pass_through_clock.h"

#include <algorithm>

namespace station {

void PassThroughClock::SetTime(const GNSSTime deviceTime) {
    if (state != State::Asked) {  // spares the lock once it is anchored
        return;
    }
    const LockGuard guard(lock);
    if (state != State::Asked) {
        return;
    }
    setDevice = deviceTime;
    setHost = static_cast<double>(counter.getNanoseconds() - start) / 1e9;
    state = State::Set;
}

PassThroughClock::Result PassThroughClock::GetTime(const GNSSTime deviceTime) {
    using Status = Kestrova::Utils::Kcom::Synchronization::GNSSTimeStatus;
    if (!anchored) {
        const LockGuard guard(lock);
        if (state != State::Set) {
            state = State::Asked;
            return {Status::Wait, 0.0};
        }
        anchorDevice = setDevice;
        anchorHost = setHost;
        state = State::Anchored;
        anchored = true;
    }
    return {Status::Valid, std::max(0.0, anchorHost + (deviceTime - anchorDevice))};
}

std::shared_ptr<PassThroughClocks::GNSSClock> PassThroughClocks::CreateClock() {
    std::uint32_t id = 0;
    while (clocks.contains(id)) {
        ++id;
    }
    return clocks[id] = std::make_shared<PassThroughClock>(counter, start);
}

std::shared_ptr<PassThroughClocks::GNSSClock> PassThroughClocks::GetClock(std::uint32_t id) {
    const auto found = clocks.find(id);
    return found != clocks.end() ? found->second : CreateClock();
}

void PassThroughClocks::RemoveClock(std::shared_ptr<GNSSClock>& clock) {
    if (clocks.erase(GetClockId(clock)) != 0) {
        clock.reset();
    }
}

std::uint32_t PassThroughClocks::GetClockId(const std::shared_ptr<GNSSClock>& clock) const {
    const auto found = std::find_if(clocks.begin(), clocks.end(),
                                    [&](const auto& entry) { return entry.second == clock; });
    return found != clocks.end() ? found->first : unknownClockId;
}

}  // namespace station
