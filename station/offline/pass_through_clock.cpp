#include "station/offline/pass_through_clock.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "station/offline/stored_frames.h"

namespace station {

namespace {

constexpr double tolerance = 0.5;  // seconds
constexpr double nanosecondsInSecond = 1e9;

}  // namespace

bool PassThroughClock::Line::takes(double position, double now) const {
    return std::abs(position - now - lead) <= tolerance;
}

void PassThroughClock::SetTime(const GNSSTime deviceTime) {
    if (state != State::NotAsked) {
        set = {deviceTime, secondsOfCounter(), 0.0};
        state = State::Set;
    }
}

double PassThroughClock::secondsOfCounter() const {
    return static_cast<double>(counter.getNanoseconds() - start) / nanosecondsInSecond;
}

PassThroughClock::Result PassThroughClock::GetTime(const GNSSTime deviceTime) {
    using Status = Kestrova::Utils::Kcom::Synchronization::GNSSTimeStatus;
    if (!line) {
        if (state != State::Set) {
            state = State::Asked;
            return {Status::Wait, 0.0};
        }
        line = set;
        latest = set.host;
    }
    const double now = secondsOfCounter();
    const double position = line->at(deviceTime);
    if (line->takes(position, now) || std::abs(position - latest) <= tolerance) {
        line->follow(position, now);
        latest = position;
        wrongStamps += suspect ? 1U : 0U;
        suspect.reset();
        return {Status::Valid, std::max(0.0, position)};
    }
    if (former && former->takes(former->at(deviceTime), now)) {
        former->follow(former->at(deviceTime), now);
        return {Status::Valid, std::max(0.0, former->at(deviceTime))};
    }
    if (suspect && suspect->takes(suspect->at(deviceTime), now)) {
        ++jumps;
        former = line;
        line = std::abs(set.at(deviceTime) - now) <= tolerance ? set : suspect;
        suspect.reset();
        latest = line->at(deviceTime);
        return {Status::Valid, std::max(0.0, latest)};
    }
    wrongStamps += suspect ? 1U : 0U;
    // The counter is at the end of the stretch in which it came in, and others in it follow.
    const double earliest = std::max(0.0, now - stretchNanoseconds / nanosecondsInSecond);
    suspect = {deviceTime, earliest, earliest - now};
    return {Status::Valid, earliest};
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
