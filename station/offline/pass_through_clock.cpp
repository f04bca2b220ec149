#include "station/offline/pass_through_clock.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace station {

void PassThroughClock::SetTime(const GNSSTime deviceTime) {
    const LockGuard guard(lock);
    if (state != State::NotAsked) {
        setDevice = deviceTime;
        setHost = secondsOfCounter();
        state = State::Set;
    }
}

double PassThroughClock::secondsOfCounter() const {
    return static_cast<double>(counter.getNanoseconds() - start) / 1e9;
}

PassThroughClock::Result PassThroughClock::GetTime(const GNSSTime deviceTime) {
    using Status = Kestrova::Utils::Kcom::Synchronization::GNSSTimeStatus;
    constexpr double tolerance = 10.0;  // seconds
    if (!anchored) {
        const LockGuard guard(lock);
        if (state != State::Set) {
            state = State::Asked;
            return {Status::Wait, 0.0};
        }
        anchored = true;
        anchor();
    }
    const double now = secondsOfCounter();
    double time = anchorHost + (deviceTime - anchorDevice);
    if (std::abs(time - now - lead) <= tolerance) {
        lead = time - now;
        return {Status::Valid, std::max(0.0, time)};
    }
    const LockGuard guard(lock);
    if (std::abs(deviceTime - setDevice) > tolerance) {
        ++wrongStamps;
        return {Status::Valid, std::max(0.0, now)};
    }
    ++jumps;
    anchor();
    return {Status::Valid, std::max(0.0, anchorHost + (deviceTime - anchorDevice))};
}

/// To the time that was set last.
void PassThroughClock::anchor() {
    anchorDevice = setDevice;
    anchorHost = setHost;
    lead = 0.0;
}

std::shared_ptr<PassThroughClocks::GNSSClock> PassThroughClocks::CreateClock() {
    const bool hasGap = !clocks.empty() && clocks.rbegin()->first >= clocks.size();
    std::uint32_t id = hasGap ? 0 : static_cast<std::uint32_t>(clocks.size());
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

std::vector<std::string> PassThroughClocks::describeJumps() const {
    std::vector<std::string> texts;
    for (const auto& [id, clock] : clocks) {
        if (clock->getJumps() != 0) {
            texts.push_back(
                fmt::format("the clock of \"{}\" jumped {} times; its messages have "
                            "the times of their capture from there on",
                            clock->GetDeviceName(), clock->getJumps()));
        }
        if (clock->getWrongStamps() != 0) {
            texts.push_back(
                fmt::format("\"{}\" has {} messages whose time is out of line with "
                            "those around; they have the time of their capture",
                            clock->GetDeviceName(), clock->getWrongStamps()));
        }
    }
    return texts;
}

}  // namespace station
