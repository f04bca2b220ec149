#pragma once

#include <vector>

#include "host/host_channel.h"
#include "host/host_plugin_group.h"
#include "station/host/counted.h"

namespace station {

/// The channels that the plug-in reads in the coming measurement, which it enters here on event
/// 118, when it also claims those that it fills. Made for one measurement. Called on the host's
/// thread.
class ReadChannelList final : public Counted<HostChannelList> {
  public:
    /// In the order in which they were entered, each once.
    const std::vector<CountedRef<HostChannel>>& all() const { return channels; }

    /// Fails for null.
    HostResult addChannel(HostChannel* channel) override;

  private:
    std::vector<CountedRef<HostChannel>> channels;
};

}  // namespace station
