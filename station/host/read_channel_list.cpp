#include "station/host/read_channel_list.h"

#include <algorithm>

namespace station {

HostResult ReadChannelList::addChannel(HostChannel* channel) {
    if (channel == nullptr) {
        return fail(HostCode::invalidArgument, "there is no channel to enter");
    }
    return guarded([&] {
        const bool known = std::any_of(channels.begin(), channels.end(), [&](const auto& entered) {
            return entered.get() == channel;
        });
        if (!known) {
            channels.emplace_back(channel);
        }
        return HostCode::success;
    });
}

}  // namespace station
