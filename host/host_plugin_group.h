#pragma once

#include <cstdint>

#include "host/host_object.h"

class HostChannel;

/// The host's groups of channels, by where the channels come from.
class HostChannelGroups : public HostObject {
  public:
    static constexpr InterfaceId id{
        0xA3D5D184, 0x272E, 0x4237, {0x9A, 0x1A, 0xFD, 0xF2, 0x55, 0x7C, 0xFB, 0xA0}};
    /// The place of the group that belongs to plug-ins: its entry has a `HostPluginGroup`.
    static constexpr std::int32_t pluginGroupIndex = 8;

    /// Null from the number of groups on.
    virtual HostResult getGroup(std::int32_t index, HostObject** group) = 0;

  protected:
    ~HostChannelGroups() = default;
};

/// The channels of all plug-ins. `pluginId` is the plug-in's class identifier as braced text.
class HostPluginGroup : public HostObject {
  public:
    static constexpr InterfaceId id{
        0x9ED5BA2B, 0xD257, 0x4CBD, {0xA1, 0xA2, 0x27, 0xF6, 0x43, 0x81, 0xEE, 0x24}};

    /// Makes the channel with these indices below the plug-in's own, or gives the one that is
    /// there, and puts it in the channel list.
    virtual HostResult mountChannels(const wchar_t* pluginId, std::int32_t count,
                                     const std::int32_t* indices, HostChannel** channel) = 0;
    /// Takes the channel out of the channel list.
    virtual HostResult unmountChannel(HostChannel* channel) = 0;
    /// Names the group under which the channels with these indices are shown.
    virtual HostResult setChannelGroupName(const wchar_t* pluginId, std::int32_t count,
                                           const std::int32_t* indices, const wchar_t* name) = 0;

  protected:
    ~HostPluginGroup() = default;
};

/// What event 118 brings: the channels that plug-ins read, for the host to keep in step.
class HostChannelList : public HostObject {
  public:
    static constexpr InterfaceId id{
        0x063CA24E, 0x3835, 0x46F3, {0x9F, 0x5C, 0xD0, 0xDA, 0xE2, 0xC6, 0x29, 0xF7}};

    virtual HostResult addChannel(HostChannel* channel) = 0;

  protected:
    ~HostChannelList() = default;
};
