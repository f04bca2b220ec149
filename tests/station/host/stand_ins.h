#pragma once

#include "station/host/station_host.h"
#include "tests/support/manual_counter.h"

namespace station {

inline CountedRef<StationChannel> mountChannel(StationHost& host) {
    const std::int32_t index = 0;
    CountedRef<HostChannel> mounted;
    host.getChannels().mountChannels(L"{id}", 1, &index, mounted.out());
    return host.getChannels().all().back();
}

/// Adds a sample as a plug-in does: at the write position of the buffers.
inline void addSample(StationChannel& channel, const void* sample, std::size_t size, double time) {
    void* data = nullptr;
    double* times = nullptr;
    std::int32_t position = -1;
    channel.getDataBuffer(&data);
    channel.getTimeBuffer(&times);
    channel.getWritePosition(&position);
    const auto place = static_cast<std::size_t>(position);
    std::memcpy(static_cast<std::uint8_t*>(data) + place * size, sample, size);
    if (times != nullptr) {
        times[place] = time;
    }
    channel.advanceWritePosition(1);
}

}  // namespace station
