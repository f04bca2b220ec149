#pragma once

#include <string>

#include "station/signals/database.h"

namespace station {

/// Reads a .dbc of CAN and CAN FD: messages, signals, comments, value tables, kinds of values,
/// multiplexing, cycle times and long names. The rest of the format is passed over. Throws as
/// `readDatabase`.
Database readDbc(const std::string& path);

}  // namespace station
