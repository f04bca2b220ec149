#pragma once

#include <string>
#include <vector>

#include "station/session/module.h"

namespace station {

/// The capture modules whose status messages are in a file, in the order of their first one. Their
/// type follows from the CM ID; one outside the ranges of the combos is taken for a "NeoviFire3".
/// Throws UserError (unreadable), and for more than 4096 of them.
std::vector<Module> findModules(const std::string& path);

}  // namespace station
