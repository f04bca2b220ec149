#pragma once

#include <string>
#include <vector>

#include "station/document/setup_document.h"

namespace station {

/// What a part of a setup says and the plug-in doesn't take so: names that it doesn't know, values
/// that it has replaced, and what leads nowhere. `read` is the part as it was in the file, `kept`
/// what the plug-in, having loaded it, would save in its place. All else comes back as it was.
///
/// A sentence each, beginning with "line N: ".
std::vector<std::string> findLosses(const SetupElement& read, const SetupElement& kept);

}  // namespace station
