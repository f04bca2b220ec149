#pragma once

#include <filesystem>
#include <string>

#include "core/trusted_path.h"
#include "host/counted_ref.h"
#include "host/plugin.h"

namespace station {

/// A plug-in's module, loaded from a file, and its exported entry points. It stays loaded until
/// this and every object of it have gone.
///
/// All operations throw `PluginError` with a text for the user.
class PluginModule {
  public:
    /// Loads nothing that others than these users could have changed (`TrustedPath`).
    PluginModule(const std::filesystem::path& file, TrustedUsers trusted);
    ~PluginModule();
    PluginModule(const PluginModule&) = delete;
    PluginModule& operator=(const PluginModule&) = delete;

    /// A new object of the class.
    CountedRef<HostObject> create(const InterfaceId& classId) const;
    /// Enters the module where hosts look for plug-ins, for all users or for this one. What
    /// couldn't be written the module doesn't report: `RegisteredPlugin` does.
    void registerPlugin(bool forUser) const;
    void unregisterPlugin(bool forUser) const;

  private:
    template <typename Function>
    Function find(const char* name) const;
    void install(bool add, bool forUser) const;

    const std::filesystem::path path;
    void* const handle;
};

}  // namespace station
