#pragma once

#include <memory>
#include <string>

#include "station/session/session.h"

namespace station {

/// A session with the setup of that file, or an empty one for an empty path, and with that plug-in,
/// or the one that is found for an empty path. What the plug-in has for the user goes to standard
/// error. Throws `UserError`.
std::unique_ptr<Session> openSession(const std::string& plugin, const std::string& setup,
                                     double sampleRate = MasterClock::defaultSampleRate);

}  // namespace station
