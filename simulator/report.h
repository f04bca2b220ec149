#pragma once

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "simulator/options.h"
#include "simulator/simulation.h"

namespace sim {

/// All that is reported at the end.
struct Report {
    const Options& options;
    const Simulation& simulation;
    HostClock& clock;
};

/// One object: where the frames went (`interface` or `file`), `seconds` it took, `startUtcNs` that
/// device clocks and `startStampNs` that stamps count from; `frames` and `bytes` of all kinds,
/// `dataMessages`, `badFrames`, `statusFrames`, `maxLateSeconds` of a frame behind its schedule;
/// and `modules`, each with `type`, `configId`, `cmId`, `serial`, `framing`, `canFd`, the data
/// `lengths` that its messages take in turn, `messages`, and `channels` with `interfaceId`, `bus`,
/// `messages`.
nlohmann::json toJson(const Report& report);

/// ASCII that moves no cursor; of all else in names and arguments the bytes, as "\x1B".
std::string printable(std::string_view text);

/// A few lines for a reader.
std::string toText(const Report& report);

/// The line that is shown once a second.
std::string progressText(const Totals& totals, double seconds);

}  // namespace sim
