#pragma once

#include <memory>

#include "station/fleet/fleet_module.h"

namespace station {

/// Batches from a durable pull consumer of a stream, which is made if it isn't there. Throws
/// NatsError or UserError: no broker can be reached, there is no such stream, another collector has
/// the consumer, or the broker refuses.
std::unique_ptr<BatchSource> openNatsBatches(const NatsOptions& brokers,
                                             const BatchOptions& options);

}  // namespace station
