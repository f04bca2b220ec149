#include "plugin/plugin.h"

// What the plug-in counts, as hosts may ask for it.

namespace {

using Kestrova::Utils::Kcom::Synchronization::GNSSClockMode;
using Kestrova::Utils::Kcom::Synchronization::GNSSClockState;

ChannelStatistics statisticsOf(std::uint32_t module, std::int32_t output,
                               const ChannelCounts& counts) {
    ChannelStatistics result;
    result.module = module;
    result.output = output;
    result.unusable = counts.unusable;
    result.queued = counts.queued;
    result.delivered = counts.delivered;
    result.beforeStart = counts.beforeStart;
    result.afterEnd = counts.afterEnd;
    result.tooOld = counts.tooOld;
    result.tooNew = counts.tooNew;
    result.notPlaced = counts.notPlaced;
    result.leftQueued = counts.leftQueued;
    result.noOutput = counts.noOutput;
    return result;
}

std::int32_t modeOf(GNSSClockMode mode) {
    switch (mode) {
        case GNSSClockMode::SoftSync:
            return ClockStatistics::softSync;
        case GNSSClockMode::PPSSlave:
            return ClockStatistics::ppsSlave;
        case GNSSClockMode::PPSMaster:
            return ClockStatistics::ppsMaster;
        default:
            return ClockStatistics::other;
    }
}

ClockStatistics statisticsOf(const CmpDevice& device) {
    const GNSSClockState state =
        device.getClock() ? device.getClock()->GetState() : GNSSClockState();
    ClockStatistics result;
    result.mode = modeOf(state.mode);
    result.hasTime = state.hasTime;
    result.isPlaced = state.isPlaced;
    result.elapsed = state.elapsed;
    result.offset = state.offset;
    result.ratePpm = state.ratePpm;
    result.residual = state.residual;
    result.age = device.getSilence();
    result.jumps = state.jumps;
    return result;
}

/// Writes entries as far as there is room, and counts all.
template <class Entry>
class Entries {
  public:
    Entries(Entry* first, std::uint32_t* count) : to(first), all(count), room(*count) { *all = 0; }
    template <class Make>
    void add(const Make& make) {
        if (*all < room) {
            to[*all] = make();
        }
        ++*all;
    }

  private:
    Entry* const to;
    std::uint32_t* const all;
    const std::uint32_t room;
};

}  // namespace

HostResult Plugin::getDroppedFrames(std::uint64_t* frames) {
    *frames = core.packetReader.getDroppedFrames();
    return HostCode::success;
}

HostResult Plugin::getChannels(ChannelStatistics* channels, std::uint32_t* count) {
    Entries entries(channels, count);
    std::uint32_t module = 0;
    for (const auto& device : core.packetReader.getDevices().list()) {
        for (const auto& channel : *device->getChannels()) {
            entries.add([&] {
                return statisticsOf(module, channel->getOutputIndex(), channel->getCounts());
            });
        }
        ++module;
    }
    for (const auto& [output, counts] : core.packetReader.getDevices().getGoneCounts()) {
        entries.add([&, output = output, counts = counts] {
            return statisticsOf(ChannelStatistics::goneModule, output, counts);
        });
    }
    return HostCode::success;
}

HostResult Plugin::getClocks(ClockStatistics* clocks, std::uint32_t* count) {
    Entries entries(clocks, count);
    for (const auto& device : core.packetReader.getDevices().list()) {
        entries.add([&] {
            ClockStatistics statistics = statisticsOf(*device);
            statistics.isLeading = core.syncManager.IsMaster(device->getClock());
            return statistics;
        });
    }
    return HostCode::success;
}
