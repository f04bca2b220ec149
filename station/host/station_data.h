#pragma once

#include <chrono>
#include <cstdint>

#include "host/host_data.h"
#include "station/host/channel_list.h"
#include "station/host/master_clock.h"

namespace station {

/// The measurement as the plug-in sees it: how far the acquisition is, when it began, and its
/// channels. Called on the host's thread.
class StationData final : public Counted<HostData, HostChannelGroups> {
  public:
    using SystemClock = std::chrono::system_clock;

    /// How far behind the position data is still taken. A clock also holds back what is ahead of
    /// the position, for as long as is left of ten seconds: so half of it each way.
    static constexpr double historySeconds = 5.0;

    StationData(CountedRef<MasterClock> masterClock, CountedRef<ChannelList> channelList)
        : clock(std::move(masterClock)), channels(std::move(channelList)) {}

    /// UTC of time 0. A clock that leads may set another later on.
    void setStart(SystemClock::time_point time);
    SystemClock::time_point getStart() const;
    std::int64_t getStartNanoseconds() const { return startNanoseconds; }  ///< since 1970
    /// Whether the channels changed since the last call.
    bool takeChannelsChanged() { return std::exchange(channelsChanged, false); }

    HostResult getSampleRate(double* samplesPerSecond) override {
        return give(samplesPerSecond, clock->getSampleRate());
    }
    HostResult getBufferState(std::int32_t* size, std::int32_t* position) override;
    HostResult getWrapCount(std::int32_t* count) override {
        return give(count, clock->getWrapCount());
    }
    HostResult getHistoryDepth(std::int32_t* samples) override {
        return give(samples, static_cast<std::int32_t>(historySeconds * clock->getSampleRate()));
    }
    HostResult getReductionFactor(std::int32_t* factor) override { return give(factor, 1); }
    HostResult getStartTime(double* result) override { return give(result, dayCount); }
    /// Rounded to the microsecond, which is what a day count of today resolves. Fails for a moment
    /// that can't be one: not finite, before 1970, after the year 2200.
    HostResult setStartTime(double newDayCount) override;
    HostResult isChannelSetFixed(HostBool* fixed) override { return give(fixed, hostFalse); }
    HostResult notifyChannelsChanged() override { return put(channelsChanged, true); }
    HostResult findChannel(const std::int32_t* indices, std::int32_t count,
                           HostChannel** channel) override;
    HostResult getChannelGroups(HostChannelGroups** groups) override {
        return handOver(CountedRef<StationData>(this), groups);
    }
    /// Only the plug-ins' group is there.
    HostResult getGroup(std::int32_t index, HostObject** group) override {
        return handOver(index == pluginGroupIndex ? CountedRef<HostPluginGroup>(channels) : nullptr,
                        group);
    }
    HostResult getValueA(double* value) override { return give(value, 0.0); }
    HostResult getValueB(double* value) override { return give(value, 0.0); }

  private:
    const CountedRef<MasterClock> clock;
    const CountedRef<ChannelList> channels;
    double dayCount = 0.0;
    std::int64_t startNanoseconds = 0;
    bool channelsChanged = false;
};

}  // namespace station
