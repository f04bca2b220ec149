#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/module_list.h"
#include "plugin/cmp_plugin_core.h"
#include "plugin/plugin_part.h"

/// The list of modules as hosts see and change it without the windows.
class ModuleOperations final : public PluginPart<ModuleList> {
  public:
    ModuleOperations(HostObject& plugin, CmpPluginCore& pluginCore)
        : PluginPart(plugin), core(pluginCore) {}

    HostResult getChanges(std::uint64_t* changes) override;
    HostResult getModules(std::vector<ListedModule>* modules) override;
    HostResult getStates(std::vector<ModuleState>* states) override;
    HostResult getUnlisted(std::vector<ListedModule>* modules) override;
    HostResult getTypes(std::vector<std::wstring>* types) override;
    HostResult addModule(const wchar_t* type) override;
    HostResult removeModule(std::uint32_t position) override;
    HostResult setType(std::uint32_t position, const wchar_t* type) override;
    HostResult setConfigId(std::uint32_t position, std::uint16_t configId) override;
    HostResult setName(std::uint32_t position, const wchar_t* name) override;
    HostResult matchOutputs() override;

  private:
    CmpDevices& devices() const { return core.packetReader.getDevices(); }
    /// Null for a position behind the last.
    std::shared_ptr<CmpDevice> deviceAt(std::uint32_t position) const;
    ListedModule describe(const CmpDevice& device) const;

    CmpPluginCore& core;
};
