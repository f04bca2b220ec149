#include "station/host/channel_list.h"

#include <algorithm>

namespace station {

CountedRef<StationChannel> ChannelList::find(const std::vector<std::int32_t>& indices) const {
    const auto found = std::find_if(channels.begin(), channels.end(), [&](const auto& channel) {
        return channel->indices() == indices;
    });
    return found == channels.end() ? CountedRef<StationChannel>() : *found;
}

void ChannelList::beginMeasurement() {
    for (const auto& channel : channels) {
        channel->beginMeasurement();
    }
}

std::uint64_t ChannelList::getWritten() const {
    std::uint64_t total = 0;
    for (const auto& channel : channels) {
        total += channel->getWritten();
    }
    return total;
}

std::vector<std::int32_t> ChannelList::placeOf(const wchar_t* pluginId, std::int32_t count,
                                               const std::int32_t* indices) {
    const std::wstring owner = textOf(pluginId);
    auto known = std::find(pluginIds.begin(), pluginIds.end(), owner);
    if (known == pluginIds.end()) {
        known = pluginIds.insert(known, owner);
    }
    std::vector<std::int32_t> place = {HostChannelGroups::pluginGroupIndex,
                                       static_cast<std::int32_t>(known - pluginIds.begin())};
    place.insert(place.end(), indices, indices + std::max(count, 0));
    return place;
}

HostResult ChannelList::mountChannels(const wchar_t* pluginId, std::int32_t count,
                                      const std::int32_t* indices, HostChannel** channel) {
    return guarded([&] {
        const auto place = placeOf(pluginId, count, indices);
        auto mounted = find(place);
        if (!mounted) {
            mounted = makeObject<StationChannel>(place, environment);
            channels.push_back(mounted);
        }
        return handOver(mounted, channel);
    });
}

HostResult ChannelList::unmountChannel(HostChannel* channel) {
    const auto found = std::find_if(channels.begin(), channels.end(),
                                    [&](const auto& mounted) { return mounted.get() == channel; });
    if (found == channels.end()) {
        return fail(HostCode::invalidArgument, "the channel isn't in the list of channels");
    }
    channels.erase(found);
    return HostCode::success;
}

}  // namespace station
