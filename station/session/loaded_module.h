#pragma once

#include <filesystem>

#include "core/trusted_path.h"

namespace station {

/// Loads a module that none but these users could have changed (`TrustedPath`), and returns what
/// `dlsym` takes. `what` it is: "plug-in", for the text of the `PluginError` that is thrown if it
/// can't be loaded.
void* loadModule(const std::filesystem::path& file, TrustedUsers trusted, const char* what);

/// The folder in which this program's file is.
std::filesystem::path programFolder();

}  // namespace station
