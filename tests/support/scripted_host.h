#pragma once

#include "host/host_app.h"
#include "host/host_data.h"
#include "host/host_error.h"
#include "host/host_plugin_group.h"
#include "tests/support/call_script.h"
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
        const auto mount = [&] {
            std::vector<std::int32_t> whole = {HostChannelGroups::pluginGroupIndex, 0};
            whole.insert(whole.end(), given.begin(), given.end());
            ScriptedChannel* found = findByIndices(mounted, whole);
            if (found == nullptr) {
                found = &script.make<ScriptedChannel>(whole);
                mounted.push_back(found);
            }
            return found;
        };
        return hand("mountChannels", channel, mount, pluginId, number, given);
    }
    /// Fails for a channel that isn't mounted.
    HostResult unmountChannel(HostChannel* channel) override {
        const HostResult code = call("unmountChannel", channel);
        if (code < 0) {
            return code;
        }
        return std::erase(mounted, channel) == 0 ? HostCode::invalidArgument : code;
    }
    HostResult setChannelGroupName(const wchar_t* pluginId, std::int32_t number,
                                   const std::int32_t* indices, const wchar_t* name) override {
        const std::vector<std::int32_t> given(indices, indices + number);
        const HostResult code = call("setChannelGroupName", pluginId, number, given, name);
        if (code >= 0) {
            groupNames[given] = orEmpty(name);
        }
        return code;
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
    ScriptedChannelGroups(CallScript& callScript, HostObject& groupOfPlugins)
        : Scripted(callScript), pluginGroup(&groupOfPlugins) {}

    HostResult getGroup(std::int32_t index, HostObject** group) override {
        const auto find = [&] { return index == pluginGroupIndex ? pluginGroup : nullptr; };
        return hand("getGroup", group, find, index);
    }

    HostObject* pluginGroup;
};

class ScriptedData final : public Scripted<HostData> {
  public:
    ScriptedData(CallScript& callScript, ScriptedPluginGroup& groupOfPlugins)
        : Scripted(callScript), groups(callScript, groupOfPlugins), pluginGroup(groupOfPlugins) {}

    SCRIPTED_READ(getSampleRate, double, sampleRate, 1000.0)
    HostResult getBufferState(std::int32_t* size, std::int32_t* place) override {
        const HostResult code = call("getBufferState");
        if (code >= 0) {
            *size = bufferSize;
            *place = position;
        }
        return code;
    }
    SCRIPTED_READ(getWrapCount, std::int32_t, wrapCount, 0)
    SCRIPTED_READ(getHistoryDepth, std::int32_t, historyDepth, 1000)
    SCRIPTED_READ(getReductionFactor, std::int32_t, reductionFactor, 1)
    SCRIPTED_PROPERTY(StartTime, double, startTime, 0.0)
    SCRIPTED_READ(isChannelSetFixed, HostBool, channelSetFixed, hostFalse)
    SCRIPTED_CALL(notifyChannelsChanged)
    /// Finds what is mounted and what is in `otherChannels`.
    HostResult findChannel(const std::int32_t* indices, std::int32_t number,
                           HostChannel** channel) override {
        const std::vector<std::int32_t> wanted(indices, indices + number);
        const auto find = [&] {
            auto* const found = findByIndices(pluginGroup.mounted, wanted);
            return found != nullptr ? found : findByIndices(otherChannels, wanted);
        };
        return hand("findChannel", channel, find, wanted);
    }
    SCRIPTED_OBJECT(getChannelGroups, HostChannelGroups, &groups)
    SCRIPTED_GIVE(getValueA, double)
    SCRIPTED_GIVE(getValueB, double)

    std::int32_t bufferSize = 1000000;
    std::int32_t position = 0;
    std::vector<ScriptedChannel*> otherChannels;
    ScriptedChannelGroups groups;

  private:
    ScriptedPluginGroup& pluginGroup;
};

class ScriptedHost;

class ScriptedApp final : public Scripted<HostApp> {
  public:
    ScriptedApp(CallScript& callScript, ScriptedHost& ownHost)
        : Scripted(callScript), host(ownHost) {}

    HostResult getVersion(std::int32_t* unusedA, std::int32_t* major, std::int32_t* minor,
                          std::int32_t* unusedB, std::int32_t* unusedC) override {
        const HostResult code = call("getVersion");
        if (code >= 0 && !leavesVersion) {
            *unusedA = version[0];
            *major = version[1];
            *minor = version[2];
            *unusedB = version[3];
            *unusedC = version[4];
        }
        return code;
    }
    HostResult getVersionTriple(std::int32_t* first, std::int32_t* second,
                                std::int32_t* third) override {
        *first = 2020;
        *second = *third = 1;
        return call("getVersionTriple");
    }
    HostResult writeError(const wchar_t* text) override {
        const HostResult code = call("writeError", text);
        if (code >= 0) {
            errors.push_back(orEmpty(text));
        }
        return code;
    }
    HostResult getData(HostData** out) override;
    SCRIPTED_READ(isSetupMode, HostBool, setupMode, hostFalse)
    SCRIPTED_READ(getHoldValue, std::int32_t, holdValue, 0)
    HostResult getMasterClock(HostMasterClock** out) override;
    HostResult getGnssDeviceList(HostGnssDeviceList** out) override;
    SCRIPTED_CALL(notifyDevicesChanged)
    HostResult getDocumentFactory(HostDocumentFactory** out) override;

    std::array<std::int32_t, 5> version = {0, 4, 0, 0, 0};
    bool leavesVersion = false;        ///< `getVersion` succeeds and gives nothing
    std::vector<std::wstring> errors;  ///< what `writeError` was told

  private:
    ScriptedHost& host;
};

/// A whole host, in which a test sets the values, orders the faults and reads what was called:
///
///     ScriptedHost host;
///     host.data.sampleRate = 500.0;
///     host.script.failOperation("HostData::getSampleRate", HostCode::failed);
///     manager.SetHost(&host.app);
///     ...
///     EXPECT_THAT(host.script.operations(), ElementsAre("HostApp::getData", ...));
///
/// At its end it says which references to its objects were kept or given back too often: so it
/// must outlast all that holds one. What is asked for in vain with a query, a test adds with
/// `addPart`.
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
        auto& document = script.make<ScriptedDocument>(writing);
        document.root = &script.make<ScriptedElement>(rootName);
        return document;
    }

    CallScript script;
    ScriptedPluginGroup groupOfPlugins{script};
    ScriptedApp app{script, *this};
    ScriptedData data{script, groupOfPlugins};
    ScriptedMasterClock clock{script};
    ScriptedGnssDeviceList gnssDevices{script};
    ScriptedGnssDeviceCollection gnssCollection{script};
    ScriptedDocumentFactory documents{script};
};

inline HostResult ScriptedApp::getData(HostData** out) {
    return hand("getData", out, [&] { return &host.data; });
}
inline HostResult ScriptedApp::getMasterClock(HostMasterClock** out) {
    return hand("getMasterClock", out, [&] { return &host.clock; });
}
inline HostResult ScriptedApp::getGnssDeviceList(HostGnssDeviceList** out) {
    return hand("getGnssDeviceList", out, [&] { return &host.gnssDevices; });
}
inline HostResult ScriptedApp::getDocumentFactory(HostDocumentFactory** out) {
    return hand("getDocumentFactory", out, [&] { return &host.documents; });
}
