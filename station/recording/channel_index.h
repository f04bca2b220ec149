#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "station/recording/recording.h"

namespace station {

/// The channels of a file that is being read, by the text that the file has for each.
class ChannelIndex {
  public:
    static constexpr std::size_t mostChannels = 4096;
    static constexpr std::size_t longestName = 1024;
    static constexpr std::size_t longestKey = 4 * longestName;

    /// Adds to `channelList`, which isn't owned and outlives this.
    explicit ChannelIndex(std::vector<ChannelDescription>& channelList) : channels(channelList) {}

    static constexpr std::size_t none = static_cast<std::size_t>(-1);
    /// Its place, or `none`.
    std::size_t find(std::string_view key) {
        if (latest != none && key == latestKey) {
            return latest;
        }
        const auto found = places.find(key);
        if (found == places.end()) {
            return none;
        }
        latest = found->second;
        latestKey = found->first;
        return latest;
    }
    /// A channel for a key that isn't there yet; false if there are too many of them. Of the name
    /// what isn't UTF-8 is replaced.
    bool add(std::string_view key, std::string_view name, BusType bus);

  private:
    struct Hash : std::hash<std::string_view> {
        using is_transparent = void;
    };

    std::vector<ChannelDescription>& channels;
    std::unordered_map<std::string, std::size_t, Hash, std::equal_to<>> places;
    std::size_t latest = none;
    std::string_view latestKey;  ///< a key of `places`, which stay where they are
};

}  // namespace station
