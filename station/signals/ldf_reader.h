#pragma once

#include <string>

#include "station/signals/database.h"

namespace station {

/// Reads a .ldf of LIN 1.2 to 2.2: unconditional and diagnostic frames, their signals, and how
/// these are encoded. Schedules, nodes and the rest are passed over. A signal that is an array of
/// bytes is one number, its first byte the lowest. Throws as `readDatabase`.
Database readLdf(const std::string& path);

}  // namespace station
