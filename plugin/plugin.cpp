#include "plugin/plugin.h"

#include <memory>
#include <string>

#include "capture/pcap_port.h"
#include "host/host_data.h"
#include "host/host_error.h"
#include "plugin/identity.h"

HostObject* Plugin::create(HostObject* outer) {
    static PcapPort port;
    static const SteadyPerformanceCounter counter;
    return create(outer, port, counter);
}

HostObject* Plugin::create(HostObject* outer, CapturePort& port,
                           const PerformanceCounter& counter) {
    return &(new Plugin(outer, port, counter))->inner;
}

Plugin::Plugin(HostObject* outerObject, CapturePort& port, const PerformanceCounter& counter)
    : inner(*this),
      outer(outerObject != nullptr ? outerObject : &inner),
      core(inputManager, outputFactory, port, counter),
      facts(static_cast<IPlugin3&>(*this), core),
      traffic(static_cast<IPlugin3&>(*this), core),
      reception(static_cast<IPlugin3&>(*this), core),
      frames(static_cast<IPlugin3&>(*this), core),
      interfaces(static_cast<IPlugin3&>(*this), core),
      modules(static_cast<IPlugin3&>(*this), core) {}

HostResult Plugin::Inner::queryInterface(const InterfaceId& interfaceId, void** result) {
    if (interfaceId == HostObject::id) {
        *result = static_cast<HostObject*>(this);
        addRef();
        return HostCode::success;
    }
    if (interfaceId == IPlugin3::id || interfaceId == IPlugin2::id ||
        interfaceId == HostDispatch::id) {
        *result = static_cast<IPlugin3*>(&plugin);
    } else if (interfaceId == IPlugin4::id) {
        *result = static_cast<IPlugin4*>(&plugin);
    } else if (interfaceId == CaptureStatistics::id) {
        *result = static_cast<CaptureStatistics*>(&plugin.facts);
    } else if (interfaceId == CaptureTraffic::id) {
        *result = static_cast<CaptureTraffic*>(&plugin.traffic);
    } else if (interfaceId == CaptureReception::id) {
        *result = static_cast<CaptureReception*>(&plugin.reception);
    } else if (interfaceId == CaptureFrames::id) {
        *result = static_cast<CaptureFrames*>(&plugin.frames);
    } else if (interfaceId == CaptureSelection::id) {
        *result = static_cast<CaptureSelection*>(&plugin.interfaces);
    } else if (interfaceId == ModuleList::id) {
        *result = static_cast<ModuleList*>(&plugin.modules);
    } else {
        *result = nullptr;
        return HostCode::noInterface;
    }
    plugin.addRef();
    return HostCode::success;
}

std::uint32_t Plugin::Inner::release() {
    const std::uint32_t left = plugin.dropReference();
    if (left == 0) {
        delete &plugin;
    }
    return left;
}

HostResult Plugin::queryInterface(const InterfaceId& interfaceId, void** result) {
    return outer->queryInterface(interfaceId, result);
}

std::uint32_t Plugin::addRef() {
    return outer->addRef();
}

std::uint32_t Plugin::release() {
    return outer->release();
}

/// What is connected when the version is refused stays so: the host then only lets go of the
/// object.
HostResult Plugin::onConnectHost(HostApp* hostApp) {
    host = CountedRef<HostApp>(hostApp);
    const auto id = std::make_shared<const std::wstring>(PluginIdentity::classIdText());
    inputManager.attachHost(host, id);
    outputGroup = getPluginGroup();
    outputFactory.attachHost(host, id, outputGroup.get());
    core.pluginGroup = getPluginGroup();
    core.host = host;
    core.pluginId = id;
    core.syncManager.SetHost(hostApp);
    const HostResult version = checkVersion();
    if (version < 0) {
        return version;
    }
    std::int32_t unused[3] = {};
    callHost(host, &HostApp::getVersionTriple, &unused[0], &unused[1], &unused[2]);
    return HostCode::success;
}

HostResult Plugin::checkVersion() {
    constexpr std::int32_t oldestMajor = 3;
    constexpr std::int32_t oldestMinor = 4;
    std::int32_t unused[3] = {};
    std::int32_t major = -1;
    std::int32_t minor = -1;
    callHost(host, &HostApp::getVersion, &unused[0], &major, &minor, &unused[1], &unused[2]);
    if (major > oldestMajor || (major == oldestMajor && minor >= oldestMinor)) {
        return HostCode::success;
    }
    const std::wstring text = std::wstring(L"Tessel3 Plugin \"") + PluginIdentity::name +
                              L"\" needs Kestrova X3 SP4 or newer.";
    callHost(host, &HostApp::writeError, text.c_str());
    return HostCode::aborted;
}

CountedRef<HostPluginGroup> Plugin::getPluginGroup() {
    const auto data = hostObject(host, &HostApp::getData);
    const auto groups = hostObject(data, &HostData::getChannelGroups);
    const auto entry =
        hostObject(groups, &HostChannelGroups::getGroup, HostChannelGroups::pluginGroupIndex);
    auto group = queryHost<HostPluginGroup>(entry);
    requireObject(group);
    return group;
}

HostResult Plugin::onStartAcquisition() {
    inputManager.resetForAcquisition();
    outputFactory.refreshAddData();
    core.syncManager.RestartWithAcceptAll();
    hostValue(host, &HostApp::isSetupMode);  // only a failure counts
    core.packetReader.getDevices().resetLastTimes();
    core.packetReader.getDevices().onLastTimesReset();
    return HostCode::success;
}

HostResult Plugin::onPrepareAcquisition() {
    inputManager.resetReadMark();
    core.syncManager.RestartWithHold();
    core.packetReader.getDevices().resetLastTimes();
    return HostCode::success;
}

HostResult Plugin::onGetData() {
    inputManager.update();
    core.packetReader.takeOver();
    core.syncManager.Tick();
    core.packetReader.flushTakenOver();
    outputFactory.alignToAcquisition();
    return HostCode::success;
}

void Plugin::releaseChannels() {
    core.packetReader.releaseOutputs();
    inputManager.clear();
    outputFactory.clear();
}

void Plugin::rebuildChannels() {
    outputFactory.beginLoadSetup();
    core.packetReader.getDevices().createOutputs();
    outputFactory.endLoadSetup();
}

HostResult Plugin::onClearSetup() {
    releaseChannels();
    rebuildChannels();
    return HostCode::success;
}

HostResult Plugin::onDisconnectChannels() {
    inputManager.detachChannels();
    outputFactory.detachChannels();
    return HostCode::success;
}

bool Plugin::hasActiveChannels() {
    return inputManager.hasActiveChannels() || outputFactory.hasActiveChannels();
}

HostResult Plugin::position32(std::uint16_t* hasMaster) {
    *hasMaster = core.syncManager.HasMaster() ? 1 : 0;
    return HostCode::success;
}

HostResult Plugin::position33(std::uint32_t* low, std::uint32_t* high) {
    core.syncManager.GetMasterSampleCount(*low, *high);
    return HostCode::success;
}
