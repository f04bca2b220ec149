#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>
#include <vector>

/// Notices modules whose messages keep coming while their device time doesn't advance: no message
/// of theirs can be placed in time, and the number of jumps of their clock alone doesn't say why.
///
/// Looks at the latest message of each module now and then. A module that is silent neither
/// advances nor stands still. Not synchronised.
class StandingClocks {
  public:
    /// Takes the device time of a module's latest message and the moment at which it came in, both
    /// in seconds. Returns whether the time has been found to stand still just now.
    bool note(std::size_t module, double deviceTime, double arrival) {
        if (module >= clocks.size()) {
            clocks.resize(module + 1);
        }
        Clock& clock = clocks[module];
        const double pause = arrival - std::exchange(clock.latest, arrival);
        const double passed = clock.passed + std::clamp(pause, 0.0, longestCounted);
        if (!clock.isKnown || arrival < clock.arrival || pause > longestPause ||
            std::abs(deviceTime - clock.deviceTime) > leastAdvance * passed + precision) {
            clock = {deviceTime, arrival, arrival, 0.0, true, false};
            return false;
        }
        clock.passed = passed;
        const bool wasStanding = clock.isStanding;
        clock.isStanding = passed >= patience;
        return clock.isStanding && !wasStanding;
    }
    bool isStanding(std::size_t module) const {
        return module < clocks.size() && clocks[module].isStanding;
    }

  private:
    static constexpr double patience = 2.0;      ///< seconds
    static constexpr double longestPause = 5.0;  ///< longer ones are a moment that was set
    /// Of a pause: it may be the clock of the arrivals that was set ahead, and no pause.
    static constexpr double longestCounted = 1.0;
    static constexpr double leastAdvance = 0.1;  ///< seconds of the device in a second
    static constexpr double precision = 1e-3;    ///< of the times given, in seconds

    struct Clock {
        double deviceTime = 0.0;  ///< when it advanced last
        double arrival = 0.0;
        double latest = 0.0;  ///< arrival of the latest message that was looked at
        double passed = 0.0;  ///< since `arrival`, as far as it counts
        bool isKnown = false;
        bool isStanding = false;
    };
    std::vector<Clock> clocks;
};
