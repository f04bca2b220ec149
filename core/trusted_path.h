#pragma once

#include <filesystem>
#include <string>

/// Why others than root and the effective user could change what is at `path`, for the user and
/// with what to do about it. Empty if they can't, and if nothing is there.
///
/// Looks at each folder from the root down, at each symbolic link on the way, and at the file or
/// folder itself: each must belong to one of the two and be writable to its owner alone. A folder
/// with the sticky bit may be writable to all, as what is in it is safe from others. As nobody else
/// can change anything on the way, the answer still holds when the file is opened after it.
///
/// A relative path is a reason too: what it leads to depends on where the process was started.
std::string reasonForDistrust(const std::filesystem::path& path);
