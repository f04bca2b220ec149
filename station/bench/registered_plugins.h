#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/registry_store.h"
#include "host/host_object.h"

namespace station {

/// A plug-in as it is registered: for this user or for all of the machine.
struct RegisteredPlugin {
    bool forUser = false;
    std::string key;  ///< its name in the registry
    std::string name;
    std::string group;
    std::string vendor;
    std::string version;
    std::string description;
    std::string classId;           ///< in braces
    std::filesystem::path module;  ///< empty if none is registered for the class
};

/// The identifier as a registry and a setup have it, in braces.
std::string toText(const InterfaceId& id);

/// All that are registered, this user's before the machine's.
std::vector<RegisteredPlugin> registeredPlugins();
/// The first one of that class whose module is there.
std::optional<RegisteredPlugin> findPlugin(const InterfaceId& classId);

}  // namespace station
