#pragma once

#include <functional>
#include <memory>
#include <string>

#include "station/session/session.h"

namespace station {

/// A session with the setup of that file, or an empty one for an empty path, and with that plug-in,
/// or the one that is found for an empty path. What the plug-in has for the user goes to standard
/// error, and so does what isn't taken of the setup as it is. Throws `UserError`.
std::unique_ptr<Session> openSession(const std::string& plugin, const std::string& setup,
                                     double sampleRate = MasterClock::defaultSampleRate);

/// Changes the setup in that file, and reports what of it isn't taken as it is, and is dropped.
/// Throws as `openSession`, `Session::save` and the change do; the file is as it was then.
void editSetup(const std::string& plugin, const std::string& setup,
               const std::function<void(Session&)>& change);

}  // namespace station
