#pragma once

#include <filesystem>

#include "core/trusted_path.h"

namespace station {

/// Loads a module that none but these users could have changed (`TrustedPath`), and returns what
/// `dlsym` takes. `what` it is: "plug-in", for the text of the `PluginError` that is thrown if it
/// can't be loaded.
void* loadModule(const std::filesystem::path& file, TrustedUsers trusted, const char* what);

/// The function of that name in a module of this program's own, such as "cmp_metrics.so": from the
/// program's folder, or from where modules are installed for all users, by the rules for a plug-in.
/// Whoever needs no such module loads none of the libraries that it takes. It stays loaded. Throws
/// `PluginError`.
void* findInOwnModule(const char* fileName, const char* function, const char* what);

/// The folder in which this program's file is.
std::filesystem::path programFolder();

}  // namespace station
