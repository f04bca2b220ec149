#pragma once

#include "station/session/session.h"

namespace station {

/// Modules, channels and what else a setup says, on standard output: as a table, and as JSON.
void showSetup(Session& session);
void showSetupAsJson(Session& session);

}  // namespace station
