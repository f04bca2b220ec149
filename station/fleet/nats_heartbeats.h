#pragma once

#include <vector>

#include "station/fleet/fleet_module.h"
#include "station/nats/nats_connection.h"

namespace station {

/// All that is in the bucket of the stations; none if there is no bucket. Throws NatsError.
std::vector<Heartbeat> readNatsHeartbeats(NatsConnection& connection);

}  // namespace station
