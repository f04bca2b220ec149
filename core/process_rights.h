#pragma once

#include <sys/types.h>

/// Whether this process may do what the user who started it may not: it got rights from its file
/// (set-user-id, file capabilities) or holds capabilities without being root's. What such a user
/// names, in the environment or elsewhere, must not decide what code runs here.
///
/// False in a process that root started, sudo's included.
bool hasMoreRightsThanCaller();

/// The owner of the program's file; root where that can't be known.
uid_t programOwner();
