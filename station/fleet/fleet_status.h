#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "station/fleet/fleet_module.h"

namespace station {

/// A station of the fleet, by what it says of itself.
struct StationStatus {
    /// One that says nothing for so long isn't there any more; it should every two seconds.
    static constexpr double staleAfter = 10.0;

    std::string station;
    std::string session;  ///< empty: none is measured
    std::string version;
    double age = 0.0;          ///< seconds since it was heard, by the broker's clock and ours
    double clockOffset = 0.0;  ///< seconds that its clock is ahead of the broker's, if by a lot
    double rate = 0.0;         ///< messages a second
    std::uint64_t backlogMessages = 0;
    std::uint64_t backlogBytes = 0;
    std::uint64_t spoolLost = 0;  ///< messages that its spool had no room for
    std::uint64_t lost = 0;       ///< messages of the measurement
    bool isEnded = false;         ///< its last measurement has, in order
    std::string fault;            ///< why what it says can't be read; empty: it can

    bool isStale() const { return age > staleAfter && !isEnded; }
    bool hasLost() const { return spoolLost != 0 || lost != 0; }
};

/// In the order of their names. `now`: nanoseconds since 1970, by the clock of this machine.
std::vector<StationStatus> readStatus(const std::vector<Heartbeat>& heartbeats, std::int64_t now);
/// One JSON object with a line feed at its end.
std::string toJson(const std::vector<StationStatus>& stations);
std::vector<std::string> toTable(const std::vector<StationStatus>& stations);

}  // namespace station
