#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "station/fleet/batch_source.h"
#include "station/nats/nats_options.h"

namespace station {

/// Of the consumer that a collector uses.
struct BatchOptions {
    std::string stream;
    std::string durable;
    std::optional<std::int64_t> from;  ///< nanoseconds since 1970: what is older isn't needed
};

/// What a station said of itself last.
struct Heartbeat {
    std::string token;
    std::string text;          ///< JSON, as it came
    std::int64_t arrived = 0;  ///< nanoseconds since 1970, by the broker's clock
};

/// What needs the NATS library: in a module, so that without it nothing of that is loaded.
class FleetModule {
  public:
    virtual ~FleetModule() = default;
    /// Throws UserError: the broker can't be reached or refuses, and why.
    virtual std::unique_ptr<BatchSource> openBatches(const NatsOptions& brokers,
                                                     const BatchOptions& options) = 0;
    /// Of all stations that ever said something. Throws as the other.
    virtual std::vector<Heartbeat> readHeartbeats(const NatsOptions& brokers) = 0;
};

/// By `findInOwnModule`. Throws UserError, or PluginError if it can't be loaded.
std::unique_ptr<FleetModule> loadFleetModule();

/// What the module exports, by the name below. The caller owns it. Null, with the reason in
/// `failure`, if the caller is of another version: the two share what a batch is.
using OpenFleetModule = FleetModule* (*)(const char* version, std::string& failure);
inline constexpr const char* openFleetModuleName = "openFleetModule";

}  // namespace station
