#pragma once

namespace station {

/// Throws CommandError (not allowed), with a text that tells how to allow it, if this process may
/// not capture.
void checkCapturePermission();

}  // namespace station
