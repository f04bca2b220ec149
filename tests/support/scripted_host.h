#pragma once

#include "host/host_app.h"
#include "host/host_data.h"
#include "host/host_error.h"
#include "host/host_plugin_group.h"
#include "tests/support/scripted_channel.h"
#include "tests/support/scripted_clock.h"
#include "tests/support/scripted_document.h"
#include "tests/support/scripted_object.h"

/// The code of the host failure that `action` raises, 0 if it raises none.
template <typename Action>
HostResult hostCodeOf(Action action) {
    try {
        action();
    } catch (const HostCallException& error) {
        return error.getCode();
    }
    return HostCode::success;
}

inline ScriptedChannel* findByIndices(const std::vector<ScriptedChannel*>& channels,
                                      const std::vector<std::int32_t>& indices) {
    const auto place = std::find_if(channels.begin(), channels.end(), [&](const auto* channel) {
        return channel->indices == indices;
    });
    return place == channels.end() ? nullptr : *place;
}

/// Makes the channels, under indices that begin with 8 and 0, and keeps those that are mounted.
class ScriptedPluginGroup final : public Scripted<HostPluginGroup> {
  public:
    using Scripted::Scripted;

    HostResult mountChannels(const wchar_t* pluginId, std::int32_t number,
                             const std::int32_t* indices, HostChannel** channel) override {
        const std::vector<std::int32_t> given(indices, indices + number);
        return hand({"mountChannels", pluginId, number, given}, channel, [&] {
            std::vector<std::int32_t> whole = {HostChannelGroups::pluginGroupIndex, 0};
            whole.insert(whole.end(), given.begin(), given.end());
            ScriptedChannel* found = findByIndices(mounted, whole);
            if (found == nullptr) {
                found = &script.make<ScriptedChannel>(whole);
                mounted.push_back(found);
            }
            return found;
        });
    }
    /// Fails for a channel that isn't mounted.
    HostResult unmountChannel(HostChannel* channel) override {
        const HostResult code = call({"unmountChannel", channel});
        return code < 0 || std::erase(mounted, channel) != 0 ? code : HostCode::invalidArgument;
    }
    HostResult setChannelGroupName(const wchar_t* pluginId, std::int32_t number,
                                   const std::int32_t* indices, const wchar_t* name) override {
        const std::vector<std::int32_t> given(indices, indices + number);
        return act({"setChannelGroupName", pluginId, number, given, name},
                   [&] { groupNames[given] = orEmpty(name); });
    }

    std::vector<ScriptedChannel*> mounted;
    std::map<std::vector<std::int32_t>, std::wstring> groupNames;
};

/// What a test hands over with event 118.
class ScriptedChannelList final : public Scripted<HostChannelList> {
  public:
    using Scripted::Scripted;

    SCRIPTED_TAKE(addChannel, HostChannel*)
};

/// Has the one group that is the plug-ins'; the others are null.
class ScriptedChannelGroups final : public Scripted<HostChannelGroups> {
  public:
    using Scripted::Scripted;

    HostResult getGroup(std::int32_t index, HostObject** group) override {
        return hand({"getGroup", index}, group,
                    [&] { return index == pluginGroupIndex ? &pluginGroup : nullptr; });
    }

    ScriptedPluginGroup& pluginGroup = script.make<ScriptedPluginGroup>();
};

class ScriptedData final : public Scripted<HostData> {
  public:
    using Scripted::Scripted;

    SCRIPTED_READ(getSampleRate, double, sampleRate, 1000.0)
    HostResult getBufferState(std::int32_t* size, std::int32_t* place) override {
        return act("getBufferState",
                   [&] { std::tie(*size, *place) = std::pair(bufferSize, position); });
    }
    SCRIPTED_READ(getWrapCount, std::int32_t, wrapCount, 0)
    SCRIPTED_READ(getHistoryDepth, std::int32_t, historyDepth, 1000)
    SCRIPTED_READ(getReductionFactor, std::int32_t, reductionFactor, 1)
    SCRIPTED_PROPERTY(StartTime, double, double, startTime, 0.0)
    SCRIPTED_READ(isChannelSetFixed, HostBool, channelSetFixed, hostFalse)
    SCRIPTED_CALL(notifyChannelsChanged)
    /// Finds what is mounted and what is in `otherChannels`.
    HostResult findChannel(const std::int32_t* indices, std::int32_t number,
                           HostChannel** channel) override {
        const std::vector<std::int32_t> wanted(indices, indices + number);
        return hand({"findChannel", wanted}, channel, [&] {
            auto* const found = findByIndices(groups.pluginGroup.mounted, wanted);
            return found != nullptr ? found : findByIndices(otherChannels, wanted);
        });
    }
    SCRIPTED_OBJECT(getChannelGroups, HostChannelGroups, &groups)
    SCRIPTED_READ(getValueA, double, valueA, 0.0)
    SCRIPTED_READ(getValueB, double, valueB, 0.0)

    std::int32_t bufferSize = 1000000;
    std::int32_t position = 0;
    std::vector<ScriptedChannel*> otherChannels;
    ScriptedChannelGroups& groups = script.make<ScriptedChannelGroups>();
};

class ScriptedApp final : public Scripted<HostApp> {
  public:
    using Scripted::Scripted;

    HostResult getVersion(std::int32_t* unusedA, std::int32_t* major, std::int32_t* minor,
                          std::int32_t* unusedB, std::int32_t* unusedC) override {
        const auto give = [&] { std::tie(*unusedA, *major, *minor, *unusedB, *unusedC) = version; };
        return leavesVersion ? call("getVersion") : act("getVersion", give);
    }
    HostResult getVersionTriple(std::int32_t* first, std::int32_t* second,
                                std::int32_t* third) override {
        return act("getVersionTriple", [&] { *first = *second = *third = 1; });
    }
    HostResult writeError(const wchar_t* text) override {
        return act({"writeError", text}, [&] { errors.push_back(orEmpty(text)); });
    }
    SCRIPTED_OBJECT(getData, HostData, &data)
    SCRIPTED_READ(isSetupMode, HostBool, setupMode, hostFalse)
    SCRIPTED_READ(getHoldValue, std::int32_t, holdValue, 0)
    SCRIPTED_OBJECT(getMasterClock, HostMasterClock, &clock)
    SCRIPTED_OBJECT(getGnssDeviceList, HostGnssDeviceList, &gnssDevices)
    SCRIPTED_CALL(notifyDevicesChanged)
    SCRIPTED_OBJECT(getDocumentFactory, HostDocumentFactory, &documents)

    ScriptedData& data = script.make<ScriptedData>();
    ScriptedMasterClock& clock = script.make<ScriptedMasterClock>();
    ScriptedGnssDeviceList& gnssDevices = script.make<ScriptedGnssDeviceList>();
    ScriptedDocumentFactory& documents = script.make<ScriptedDocumentFactory>();
    std::tuple<std::int32_t, std::int32_t, std::int32_t, std::int32_t, std::int32_t> version = {
        0, 4, 0, 0, 0};
    bool leavesVersion = false;        ///< `getVersion` succeeds and gives nothing
    std::vector<std::wstring> errors;  ///< what `writeError` was told
};

/// A whole host, in which a test sets the values, orders the faults and reads what was called:
///
///     ScriptedHost host;
///     host.data.sampleRate = 500.0;
///     host.script.failOperation("HostData::getSampleRate", HostCode::failed);
///     manager.SetHost(&host.app);
///     ...
///     EXPECT_THAT(host.script.calls(), ElementsAre("HostApp::getData()", ...));
///
/// At its end it says which references to its objects were kept or given back too often: so it
/// must outlast all that holds one.
class ScriptedHost {
  public:
    ~ScriptedHost() { EXPECT_THAT(script.referenceFaults(), testing::IsEmpty()); }

    /// What `action` calls, in short: "App.getData, Channel.setName("a")".
    template <typename Action>
    std::string callsOf(Action action) {
        script.forget();
        action();
        std::string text;
        for (std::string call : script.calls()) {
            call = call.substr(4).replace(call.find("::") - 4, 2, ".");
            text += (text.empty() ? "" : ", ") +
                    (call.ends_with("()") ? call.substr(0, call.size() - 2) : call);
        }
        return text;
    }
    /// A new channel in no list.
    ScriptedChannel& makeChannel(const std::vector<std::int32_t>& indices = {}) {
        return script.make<ScriptedChannel>(indices);
    }
    /// A new document with a root of that name.
    ScriptedDocument& makeDocument(const std::wstring& rootName, bool writing) {
        return script.make<ScriptedDocument>(writing, rootName);
    }

    CallScript script;
    ScriptedApp& app = script.make<ScriptedApp>();
    ScriptedData& data = app.data;
    ScriptedPluginGroup& groupOfPlugins = data.groups.pluginGroup;
    ScriptedMasterClock& clock = app.clock;
    ScriptedGnssDeviceList& gnssDevices = app.gnssDevices;
    ScriptedGnssDeviceCollection& gnssCollection = script.make<ScriptedGnssDeviceCollection>();
};
