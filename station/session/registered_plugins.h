#pragma once

#include <filesystem>
#include <functional>
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
    /// Why it isn't loaded, for the user; empty if it may be. Of an entry that others could have
    /// changed only the key is known.
    std::string refusal;
};

/// The key below which plug-ins are registered, a key for each.
inline constexpr const char* registeredPluginsKey = "SOFTWARE\\Kestrova\\Plugins";

/// The identifier as a registry and a setup have it, in braces.
std::string toText(const InterfaceId& id);

/// All that are registered, this user's before the machine's.
std::vector<RegisteredPlugin> registeredPlugins();
/// For the user, of one whose module is missing.
std::string missingText(const RegisteredPlugin& plugin);
/// The first one of that class whose module is there; `report` gets a text for each before it whose
/// module is missing. Throws `PluginError` if that one isn't to be loaded, or one before it whose
/// class can't be known: what the user has registered isn't replaced by something else in silence.
std::optional<RegisteredPlugin> findPlugin(const InterfaceId& classId,
                                           const std::function<void(const std::string&)>& report);
/// Reports a store that the environment names and that isn't looked at because of the
/// rights of this process (`RegistryStore::perUser`); empty if there is none.
std::string passedOverText();

}  // namespace station
