#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/host_plugin_group.h"
#include "station/host/station_channel.h"

namespace station {

/// The channels of the station, in the order in which they were mounted, which is also the group
/// that plug-ins mount them in. The indices of a channel are the group's place, the plug-in's
/// number and the indices that the plug-in gave. Called on the host's thread.
class ChannelList final : public Counted<HostPluginGroup> {
  public:
    explicit ChannelList(ChannelEnvironment surroundings) : environment(std::move(surroundings)) {}

    const std::vector<CountedRef<StationChannel>>& all() const;
    /// Empty if there is none.
    CountedRef<StationChannel> find(const std::vector<std::int32_t>& indices);

    /// Makes all buffers ready and empties them.
    void beginMeasurement();
    /// Samples in all channels since then.
    std::uint64_t getWritten() const;

    HostResult mountChannels(const wchar_t* pluginId, std::int32_t count,
                             const std::int32_t* indices, HostChannel** channel) override;
    HostResult unmountChannel(HostChannel* channel) override;
    /// This host shows no names of groups.
    HostResult setChannelGroupName(const wchar_t*, std::int32_t, const std::int32_t*,
                                   const wchar_t*) override {
        return HostCode::success;
    }

  private:
    std::vector<std::int32_t> placeOf(const wchar_t* pluginId, std::int32_t count,
                                      const std::int32_t* indices);

    void closeGaps() const;

    const ChannelEnvironment environment;
    /// An unmounted one leaves a gap, for the next who looks to close: many may go at once.
    mutable std::vector<CountedRef<StationChannel>> channels;
    mutable std::unordered_map<const HostChannel*, std::size_t> places;  ///< in `channels`
    mutable bool hasGaps = false;
    /// Made when a channel is looked for: of several with the same indices, the first.
    std::map<std::vector<std::int32_t>, CountedRef<StationChannel>> byIndices;
    bool isIndexed = false;
    std::uint64_t movesSeen = 0;          ///< when the channels were indexed
    std::vector<std::wstring> pluginIds;  ///< by the plug-in's number
};

}  // namespace station
