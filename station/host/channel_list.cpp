#include "station/host/channel_list.h"

#include <algorithm>

namespace station {

CountedRef<StationChannel> ChannelList::find(const std::vector<std::int32_t>& indices) {
    if (!isIndexed || movesSeen != *environment.moves) {
        byIndices.clear();
        for (const auto& channel : channels) {
            byIndices.try_emplace(channel->indices(), channel);
        }
        isIndexed = true;
        movesSeen = *environment.moves;
    }
    const auto found = byIndices.find(indices);
    return found == byIndices.end() ? CountedRef<StationChannel>() : found->second;
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
            byIndices.try_emplace(place, mounted);
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
    byIndices.clear();
    isIndexed = false;
    return HostCode::success;
}

}  // namespace station
