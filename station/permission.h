#pragma once

namespace station {

/// Throws UserError (not allowed), with a text that tells how to allow it to the program of that
/// name, if this process may not capture.
void checkCapturePermission(const char* program = "cmp-station");

}  // namespace station
