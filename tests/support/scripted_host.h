#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "host/error_support.h"
#include "host/host_app.h"
#include "host/host_data.h"
#include "host/host_plugin_group.h"
#include "tests/support/call_script.h"
#include "tests/support/scripted_channel.h"
#include "tests/support/scripted_clock.h"
#include "tests/support/scripted_document.h"
#include "tests/support/scripted_object.h"

/// Makes the channels, under indices that begin with 8 and 0, and keeps those that are mounted.
class ScriptedPluginGroup final : public Scripted<HostPluginGroup> {
  public:
    explicit ScriptedPluginGroup(CallScript& callScript)
        : Scripted(callScript, "HostPluginGroup") {}

    HostResult mountChannels(const wchar_t* pluginId, std::int32_t number,
                             const std::int32_t* indices, HostChannel** channel) override;
    /// Fails for a channel that isn't mounted.
    HostResult unmountChannel(HostChannel* channel) override;
    HostResult setChannelGroupName(const wchar_t* pluginId, std::int32_t number,
                                   const std::int32_t* indices, const wchar_t* name) override;

    std::vector<ScriptedChannel*> mounted;
    std::map<std::vector<std::int32_t>, std::wstring> groupNames;
};

/// What a test hands over with event 118.
class ScriptedChannelList final : public Scripted<HostChannelList> {
  public:
    explicit ScriptedChannelList(CallScript& callScript)
        : Scripted(callScript, "HostChannelList") {}

    HostResult addChannel(HostChannel* channel) override {
        return call("HostChannelList::addChannel", channel);
    }
};

/// Has the one group that is the plug-ins'; the others are null.
class ScriptedChannelGroups final : public Scripted<HostChannelGroups> {
  public:
    ScriptedChannelGroups(CallScript& callScript, HostObject& groupOfPlugins)
        : Scripted(callScript, "HostChannelGroups"), pluginGroup(&groupOfPlugins) {}

    HostResult getGroup(std::int32_t index, HostObject** group) override;

    HostObject* pluginGroup;
};

class ScriptedData final : public Scripted<HostData> {
  public:
    ScriptedData(CallScript& callScript, ScriptedPluginGroup& groupOfPlugins)
        : Scripted(callScript, "HostData"),
          groups(callScript, groupOfPlugins),
          pluginGroup(groupOfPlugins) {}

    SCRIPTED_READER(HostData, getSampleRate, double, sampleRate)
    HostResult getBufferState(std::int32_t* size, std::int32_t* place) override;
    SCRIPTED_READER(HostData, getWrapCount, std::int32_t, wrapCount)
    SCRIPTED_READER(HostData, getHistoryDepth, std::int32_t, historyDepth)
    SCRIPTED_READER(HostData, getReductionFactor, std::int32_t, reductionFactor)
    SCRIPTED_PROPERTY(HostData, StartTime, double, double, startTime)
    SCRIPTED_READER(HostData, isChannelSetFixed, HostBool, channelSetFixed)
    HostResult notifyChannelsChanged() override;
    /// Finds what is mounted and what is in `otherChannels`.
    HostResult findChannel(const std::int32_t* indices, std::int32_t number,
                           HostChannel** channel) override;
    HostResult getChannelGroups(HostChannelGroups** out) override;
    SCRIPTED_READER(HostData, getValueA, double, valueA)
    SCRIPTED_READER(HostData, getValueB, double, valueB)

    double sampleRate = 1000.0;
    std::int32_t bufferSize = 1000000;
    std::int32_t position = 0;
    std::int32_t wrapCount = 0;
    std::int32_t historyDepth = 1000;
    std::int32_t reductionFactor = 1;
    double startTime = 0.0;
    HostBool channelSetFixed = hostFalse;
    double valueA = 0.0;
    double valueB = 0.0;
    std::vector<ScriptedChannel*> otherChannels;
    ScriptedChannelGroups groups;

  private:
    ScriptedPluginGroup& pluginGroup;
};

class ScriptedHost;

class ScriptedApp final : public Scripted<HostApp> {
  public:
    ScriptedApp(CallScript& callScript, ScriptedHost& ownHost)
        : Scripted(callScript, "HostApp"), host(ownHost) {}

    HostResult getVersion(std::int32_t* unusedA, std::int32_t* major, std::int32_t* minor,
                          std::int32_t* unusedB, std::int32_t* unusedC) override;
    HostResult getVersionTriple(std::int32_t* first, std::int32_t* second,
                                std::int32_t* third) override;
    HostResult writeError(const wchar_t* text) override;
    HostResult getData(HostData** out) override;
    SCRIPTED_READER(HostApp, isSetupMode, HostBool, setupMode)
    SCRIPTED_READER(HostApp, getHoldValue, std::int32_t, holdValue)
    HostResult getMasterClock(HostMasterClock** out) override;
    HostResult getGnssDeviceList(HostGnssDeviceList** out) override;
    HostResult notifyDevicesChanged() override;
    HostResult getDocumentFactory(HostDocumentFactory** out) override;

    std::array<std::int32_t, 5> version = {0, 4, 0, 0, 0};
    bool leavesVersion = false;  ///< `getVersion` succeeds and gives nothing
    std::array<std::int32_t, 3> versionTriple = {2020, 1, 0};
    HostBool setupMode = hostFalse;
    std::int32_t holdValue = 0;
    std::vector<std::wstring> errors;  ///< what `writeError` was told

  private:
    ScriptedHost& host;
};

/// The explanation of a failure, which all objects of the host give while it is set.
class ScriptedErrorInfo final : public Scripted<HostErrorInfo> {
  public:
    explicit ScriptedErrorInfo(CallScript& callScript) : Scripted(callScript, "HostErrorInfo") {}

    SCRIPTED_READER(HostErrorInfo, getDescription, std::wstring, description)
    SCRIPTED_READER(HostErrorInfo, getSource, std::wstring, source)

    std::wstring description;
    std::wstring source;
};

class ScriptedErrorSupport final : public Scripted<HostErrorSupport> {
  public:
    explicit ScriptedErrorSupport(CallScript& callScript)
        : Scripted(callScript, "HostErrorSupport"), info(callScript) {}

    HostResult reportsErrorsFor(const InterfaceId& interfaceId) override;
    HostResult takeErrorInfo(HostErrorInfo** out) override;

    InterfaceId reported;  ///< of the interface whose failures are explained
    ScriptedErrorInfo info;
};

/// A whole host, in which a test sets the values, orders the faults and reads what was called:
///
///     ScriptedHost host;
///     host.data.sampleRate = 500.0;
///     host.script.failOperation("HostData::getSampleRate", HostCode::failed);
///     manager.SetHost(&host.app);
///     ...
///     EXPECT_THAT(host.script.operations(), ElementsAre("HostApp::getData", ...));
///     EXPECT_THAT(host.script.referenceFaults(), IsEmpty());
///
/// What is asked for in vain with a query, a test adds with `addPart`.
class ScriptedHost {
  public:
    ScriptedHost()
        : groupOfPlugins(script),
          app(script, *this),
          data(script, groupOfPlugins),
          clock(script),
          gnssDevices(script),
          gnssCollection(script),
          documents(script),
          errorSupport(script) {}

    /// A new channel in no list.
    ScriptedChannel& makeChannel(const std::vector<std::int32_t>& indices = {}) {
        return script.make<ScriptedChannel>(indices);
    }
    /// A new document with a root of that name.
    ScriptedDocument& makeDocument(const std::wstring& rootName, bool writing);

    CallScript script;
    ScriptedPluginGroup groupOfPlugins;
    ScriptedApp app;
    ScriptedData data;
    ScriptedMasterClock clock;
    ScriptedGnssDeviceList gnssDevices;
    ScriptedGnssDeviceCollection gnssCollection;
    ScriptedDocumentFactory documents;
    ScriptedErrorSupport errorSupport;  ///< `addPart` makes it that of an object
};
