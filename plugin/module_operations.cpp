#include "plugin/module_operations.h"

#include <algorithm>

#include "core/string_helper.h"

using Kestrova::Utils::Kcom::StringHelper;

namespace {

bool isChoice(const DeviceTypeInfo& type) {
    return type.typeId != DeviceTypeInfo::unknownId;
}

/// Null for a type that there isn't.
const DeviceTypeInfo* findType(const wchar_t* name) {
    const auto types = deviceTypes();
    const auto found = std::find_if(types.begin(), types.end(), [&](const DeviceTypeInfo& type) {
        return name != nullptr && isChoice(type) && StringHelper::ToWide(type.name) == name;
    });
    return found == types.end() ? nullptr : &*found;
}

}  // namespace

std::shared_ptr<CmpDevice> ModuleOperations::deviceAt(std::uint32_t position) const {
    const auto list = devices().list();
    return position < list.size() ? list[position] : nullptr;
}

ListedModule ModuleOperations::describe(const CmpDevice& device) const {
    ListedModule module;
    module.type = StringHelper::ToWide(device.getType().name);
    module.name = StringHelper::ToWide(device.getName());
    module.configId = device.getConfigId();
    module.cmId = device.getCmId();
    module.clock = core.syncManager.GetClockPosition(device.getClock());
    const auto channels = device.getChannels();
    for (const auto& channel : *channels) {
        module.channels.push_back({channel->getInterfaceId(),
                                   StringHelper::ToWide(channel->getTypeName()),
                                   channel->getOutputIndex()});
    }
    return module;
}

HostResult ModuleOperations::getChanges(std::uint64_t* changes) {
    *changes = devices().getChanges();
    return HostCode::success;
}

HostResult ModuleOperations::getModules(std::vector<ListedModule>* modules) {
    modules->clear();
    for (const auto& device : devices().list()) {
        modules->push_back(describe(*device));
    }
    return HostCode::success;
}

HostResult ModuleOperations::getStates(std::vector<ModuleState>* states) {
    states->clear();
    for (const auto& device : devices().list()) {
        states->push_back(
            {device->isConnected(), StringHelper::ToWide(device->getSerialNumberText())});
    }
    return HostCode::success;
}

HostResult ModuleOperations::getUnlisted(std::vector<ListedModule>* modules) {
    modules->clear();
    const UnknownModules unknown = core.packetReader.getUnknownModules();
    for (std::size_t i = 0; i < unknown.count; ++i) {
        const std::uint16_t cmId = unknown.cmIds[i];
        if (devices().findByCmId(cmId)) {  // it was set up since
            continue;
        }
        const DeviceTypeInfo& type = getDefaultTypeForCmId(cmId);
        ListedModule module;
        module.type = isChoice(type) ? StringHelper::ToWide(type.name) : L"";
        module.configId = static_cast<std::uint16_t>(cmId - type.baseId);
        module.cmId = cmId;
        modules->push_back(std::move(module));
    }
    return HostCode::success;
}

HostResult ModuleOperations::getTypes(std::vector<std::wstring>* types) {
    types->clear();
    for (const DeviceTypeInfo& type : deviceTypes()) {
        if (isChoice(type)) {
            types->push_back(StringHelper::ToWide(type.name));
        }
    }
    return HostCode::success;
}

HostResult ModuleOperations::addModule(const wchar_t* type) {
    const DeviceTypeInfo* const found = findType(type);
    if (found == nullptr) {
        return HostCode::invalidArgument;
    }
    devices().add()->setType(*found);
    return HostCode::success;
}

HostResult ModuleOperations::removeModule(std::uint32_t position) {
    if (!deviceAt(position)) {
        return HostCode::invalidArgument;
    }
    devices().remove(position);
    return HostCode::success;
}

HostResult ModuleOperations::setType(std::uint32_t position, const wchar_t* type) {
    const auto device = deviceAt(position);
    const DeviceTypeInfo* const found = findType(type);
    if (!device || found == nullptr) {
        return HostCode::invalidArgument;
    }
    device->setType(*found);
    return HostCode::success;
}

HostResult ModuleOperations::setConfigId(std::uint32_t position, std::uint16_t configId) {
    constexpr std::uint16_t highestOfRange = 15;
    const auto device = deviceAt(position);
    if (!device) {
        return HostCode::invalidArgument;
    }
    if (device->getType().baseId == 0) {
        device->setCmId(configId);
        return HostCode::success;
    }
    if (configId > highestOfRange) {
        return HostCode::invalidArgument;
    }
    device->setConfigId(configId);
    return HostCode::success;
}

HostResult ModuleOperations::setName(std::uint32_t position, const wchar_t* name) {
    const auto device = deviceAt(position);
    if (!device || name == nullptr) {
        return HostCode::invalidArgument;
    }
    device->setName(StringHelper::ToUtf8(name));
    return HostCode::success;
}

HostResult ModuleOperations::matchOutputs() {
    core.outputFactory.beginLoadSetup();
    devices().createMissingOutputs();
    core.outputFactory.endLoadSetup();  // drops those that no bus holds
    return HostCode::success;
}
