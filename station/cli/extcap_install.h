#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace station {

/// The folders of a user's own capture programs, for Wireshark from 4.2 on and for older ones: each
/// looks in one of them. Throws UserError without a home.
std::vector<std::filesystem::path> personalExtcapFolders();

/// Writes the program that Wireshark calls, "cmp-station-extcap", into a folder, which is made:
/// a script that calls this program for these setups. Returns its path. Throws UserError.
std::filesystem::path installExtcap(const std::filesystem::path& folder,
                                    const std::vector<std::string>& setups,
                                    const std::string& plugin);

}  // namespace station
