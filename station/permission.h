#pragma once

namespace station {

/// Throws UserError (not allowed), with a text that says how to allow it to the program of that
/// name, if this process may not capture.
void checkCapturePermission(const char* program = "cmp-station");

// With a file capability on cmp-station, users of a group capture who may not do so otherwise. The
// right is for this code, so nothing that such a user supplies is to run with it: the station and
// the desktop load only what root alone can change (`TrustedPath`), no program inherits the right
// but the desktop, and that one gets an environment in which nothing names code. Nor does the
// desktop use what its display could name: a user's own X server chooses the driver that OpenGL
// loads.

/// At the start of a program: those that it starts, knowingly or in a library, don't inherit its
/// rights.
void keepRightsToItself();

/// For what is about to become the desktop program: that inherits the right to capture, if this
/// process has it and its caller doesn't, and the environment is reduced as `guardDesktop` does.
void passOnCaptureRight();

/// For the desktop, before anything of the window toolkit runs. In a process with more rights than
/// its caller it throws UserError if others than root could change the program or put libraries
/// beside it, and leaves of the environment only what is known to be harmless.
void guardDesktop();

}  // namespace station
