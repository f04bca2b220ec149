#include "station/cli/extcap_install.h"

#include <fmt/format.h>

#include <cstdlib>
#include <fstream>
#include <system_error>

#include "core/shell_word.h"
#include "station/errors.h"

namespace station {
namespace {

namespace fs = std::filesystem;

constexpr const char* scriptName = "cmp-station-extcap";

}  // namespace

std::vector<fs::path> personalExtcapFolders() {
    const auto folder = [](const char* variable) {
        const char* const value = std::getenv(variable);
        return value != nullptr && *value == '/' ? fs::path(value) : fs::path();
    };
    const fs::path home = folder("HOME");
    if (home.empty()) {
        throw UserError("there is no home folder: name Wireshark's folder with --folder");
    }
    const fs::path settings = folder("XDG_CONFIG_HOME");
    return {home / ".local" / "lib" / "wireshark" / "extcap",
            (settings.empty() ? home / ".config" : settings) / "wireshark" / "extcap"};
}

fs::path installExtcap(const fs::path& folder, const std::vector<std::string>& setups,
                       const std::string& plugin) {
    std::string script = fmt::format("#!/bin/sh\nexec {} extcap",
                                     quotedForShell(fs::read_symlink("/proc/self/exe").string()));
    for (const std::string& setup : setups) {
        script += " --setup " + quotedForShell(fs::absolute(setup).lexically_normal().string());
    }
    if (!plugin.empty()) {
        script += " --plugin " + quotedForShell(fs::absolute(plugin).lexically_normal().string());
    }
    script += " \"$@\"\n";
    fs::path file = folder / scriptName;
    const fs::path part = folder / (std::string(scriptName) + ".new");
    std::error_code error;
    fs::create_directories(folder, error);
    // Wireshark may list its interfaces just now: it sees the old script or the new one.
    std::ofstream stream(part, std::ios::trunc);
    stream << script;
    stream.close();
    if (stream) {
        constexpr auto forAll = fs::perms::owner_all | fs::perms::group_read |
                                fs::perms::group_exec | fs::perms::others_read |
                                fs::perms::others_exec;
        fs::permissions(part, forAll, error);
        fs::rename(part, file, error);
    }
    if (!stream || error) {
        std::error_code ignored;
        fs::remove(part, ignored);
        throw UserError(
            ExitCode::Failed,
            fmt::format("{} can't be written; name another folder with --folder", file.string()));
    }
    return file;
}

}  // namespace station
