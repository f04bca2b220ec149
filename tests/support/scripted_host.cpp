#include "tests/support/scripted_host.h"

#include <algorithm>

namespace {

ScriptedChannel* findByIndices(const std::vector<ScriptedChannel*>& channels,
                               const std::vector<std::int32_t>& indices) {
    const auto place = std::find_if(channels.begin(), channels.end(), [&](const auto* channel) {
        return channel->indices == indices;
    });
    return place == channels.end() ? nullptr : *place;
}

}  // namespace

HostResult ScriptedPluginGroup::mountChannels(const wchar_t* pluginId, std::int32_t number,
                                              const std::int32_t* indices, HostChannel** channel) {
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
    return hand("HostPluginGroup::mountChannels", channel, mount, pluginId, number, given);
}

HostResult ScriptedPluginGroup::unmountChannel(HostChannel* channel) {
    const HostResult code = call("HostPluginGroup::unmountChannel", channel);
    if (code < 0) {
        return code;
    }
    const auto place = std::find(mounted.begin(), mounted.end(), channel);
    if (place == mounted.end()) {
        return HostCode::invalidArgument;
    }
    mounted.erase(place);
    return code;
}

HostResult ScriptedPluginGroup::setChannelGroupName(const wchar_t* pluginId, std::int32_t number,
                                                    const std::int32_t* indices,
                                                    const wchar_t* name) {
    const std::vector<std::int32_t> given(indices, indices + number);
    const HostResult code =
        call("HostPluginGroup::setChannelGroupName", pluginId, number, given, name);
    if (code >= 0) {
        groupNames[given] = name == nullptr ? L"" : name;
    }
    return code;
}

HostResult ScriptedChannelGroups::getGroup(std::int32_t index, HostObject** group) {
    const auto find = [&] { return index == pluginGroupIndex ? pluginGroup : nullptr; };
    return hand("HostChannelGroups::getGroup", group, find, index);
}

HostResult ScriptedData::getBufferState(std::int32_t* size, std::int32_t* place) {
    const HostResult code = call("HostData::getBufferState");
    if (code >= 0) {
        *size = bufferSize;
        *place = position;
    }
    return code;
}

HostResult ScriptedData::notifyChannelsChanged() {
    return call("HostData::notifyChannelsChanged");
}

HostResult ScriptedData::findChannel(const std::int32_t* indices, std::int32_t number,
                                     HostChannel** channel) {
    const std::vector<std::int32_t> wanted(indices, indices + number);
    const auto find = [&] {
        auto* const found = findByIndices(pluginGroup.mounted, wanted);
        return found != nullptr ? found : findByIndices(otherChannels, wanted);
    };
    return hand("HostData::findChannel", channel, find, wanted);
}

HostResult ScriptedData::getChannelGroups(HostChannelGroups** out) {
    return hand("HostData::getChannelGroups", out, [&] { return &groups; });
}

HostResult ScriptedApp::getVersion(std::int32_t* unusedA, std::int32_t* major, std::int32_t* minor,
                                   std::int32_t* unusedB, std::int32_t* unusedC) {
    const HostResult code = call("HostApp::getVersion");
    if (code >= 0 && !leavesVersion) {
        *unusedA = version[0];
        *major = version[1];
        *minor = version[2];
        *unusedB = version[3];
        *unusedC = version[4];
    }
    return code;
}

HostResult ScriptedApp::getVersionTriple(std::int32_t* first, std::int32_t* second,
                                         std::int32_t* third) {
    const HostResult code = call("HostApp::getVersionTriple");
    if (code >= 0) {
        *first = versionTriple[0];
        *second = versionTriple[1];
        *third = versionTriple[2];
    }
    return code;
}

HostResult ScriptedApp::writeError(const wchar_t* text) {
    const HostResult code = call("HostApp::writeError", text);
    if (code >= 0) {
        errors.emplace_back(text == nullptr ? L"" : text);
    }
    return code;
}

HostResult ScriptedApp::getData(HostData** out) {
    return hand("HostApp::getData", out, [&] { return &host.data; });
}

HostResult ScriptedApp::getMasterClock(HostMasterClock** out) {
    return hand("HostApp::getMasterClock", out, [&] { return &host.clock; });
}

HostResult ScriptedApp::getGnssDeviceList(HostGnssDeviceList** out) {
    return hand("HostApp::getGnssDeviceList", out, [&] { return &host.gnssDevices; });
}

HostResult ScriptedApp::notifyDevicesChanged() {
    return call("HostApp::notifyDevicesChanged");
}

HostResult ScriptedApp::getDocumentFactory(HostDocumentFactory** out) {
    return hand("HostApp::getDocumentFactory", out, [&] { return &host.documents; });
}

HostResult ScriptedErrorSupport::reportsErrorsFor(const InterfaceId& interfaceId) {
    return interfaceId == reported ? HostCode::success : 1;
}

HostResult ScriptedErrorSupport::takeErrorInfo(HostErrorInfo** out) {
    return hand("HostErrorSupport::takeErrorInfo", out, [&] { return &info; });
}

ScriptedDocument& ScriptedHost::makeDocument(const std::wstring& rootName, bool writing) {
    auto& document = script.make<ScriptedDocument>(writing);
    document.root = &script.make<ScriptedElement>(rootName);
    return document;
}
