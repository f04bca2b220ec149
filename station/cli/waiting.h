#pragma once

#include <string>
#include <vector>

#include "station/cli/service_manager.h"
#include "station/recording/part_compressor.h"
#include "station/session/session.h"
#include "station/stop_signal.h"

namespace station {

/// Says on standard error what is waited for, and returns when a module of the session is heard on
/// the interfaces that were selected for it (these names; none means all), at once if one sends
/// already. False if it was asked to stop before. Throws `PluginError`.
bool waitForModule(Session& session, const std::vector<std::string>& interfaces,
                   ServiceManager& manager, StopSignal& stop);

/// Waits until the parts of recordings that are closed are compressed, with its progress on a
/// terminal unless `quiet`, or until it is asked to stop: from then on, or once more. What isn't
/// compressed then stays as it is.
void waitForCompression(PartCompressor& compressor, bool quiet, StopSignal& stop);

}  // namespace station
