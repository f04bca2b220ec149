#pragma once

#include "station/recording/recording.h"
#include "station/session/summary.h"

namespace station {

/// The counts of the measurement so far as lines of text, for the end of a file: what was read from
/// the network, and what has become of each channel's messages.
RecordingAccount toAccount(const Summary& summary);

}  // namespace station
