#include "station/host/channel_list.h"

#include <algorithm>

namespace station {

const std::vector<CountedRef<StationChannel>>& ChannelList::all() const {
    closeGaps();
    return channels;
}

void ChannelList::closeGaps() const {
    if (hasGaps) {
        std::erase(channels, nullptr);
        places.clear();
        for (const auto& channel : channels) {
            places.emplace(channel.get(), places.size());
        }
        hasGaps = false;
    }
}

CountedRef<StationChannel> ChannelList::find(const std::vector<std::int32_t>& indices) {
    if (!isIndexed || movesSeen != *environment.moves) {
        byIndices.clear();
        for (const auto& channel : all()) {
            byIndices.try_emplace(channel->getIndices(), channel);
        }
        isIndexed = true;
        movesSeen = *environment.moves;
    }
    const auto found = byIndices.find(indices);
    return found == byIndices.end() ? CountedRef<StationChannel>() : found->second;
}

void ChannelList::beginMeasurement() {
    for (const auto& channel : all()) {
        channel->beginMeasurement();
    }
}

std::uint64_t ChannelList::getWritten() const {
    std::uint64_t total = 0;
    for (const auto& channel : all()) {
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
            places.emplace(mounted.get(), channels.size());
            channels.push_back(mounted);
            byIndices.try_emplace(place, mounted);
        }
        return handOver(mounted, channel);
    });
}

HostResult ChannelList::unmountChannel(HostChannel* channel) {
    const auto found = places.find(channel);
    if (found == places.end()) {
        return fail(HostCode::invalidArgument, "the channel isn't in the list of channels");
    }
    channels[found->second] = nullptr;
    places.erase(found);
    hasGaps = true;
    byIndices.clear();
    isIndexed = false;
    return HostCode::success;
}

}  // namespace station
