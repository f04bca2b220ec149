#include "station/recording/channel_index.h"

#include <utf8.h>

#include "station/recording/bounded_name.h"

namespace station {

bool ChannelIndex::add(std::string_view key, std::string_view name, BusType bus) {
    if (channels.size() >= mostChannels || key.size() > longestKey) {
        return false;
    }
    places.emplace(key, channels.size());
    channels.push_back({boundedName(utf8::replace_invalid(name), longestName), bus});
    return true;
}

}  // namespace station
