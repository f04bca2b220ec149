#include "plugin/capture_facts.h"

#include <algorithm>
#include <array>

#include "core/string_helper.h"

namespace {

using Kestrova::Utils::Kcom::StringHelper;
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
    result.raised = counts.raised;
    result.beforeStart = counts.beforeStart;
    result.afterEnd = counts.afterEnd;
    result.tooOld = counts.tooOld;
    result.tooNew = counts.tooNew;
    result.notPlaced = counts.notPlaced;
    result.leftQueued = counts.leftQueued;
    result.noOutput = counts.noOutput;
    return result;
}

double toSeconds(const DeviceTime& time) {
    return static_cast<double>(time.seconds) + time.nanoseconds / 1e9;
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
    if (result.age >= 0.0) {
        result.deviceTime = toSeconds(device.getDeviceNow()) - result.age;
    }
    result.jumps = state.jumps;
    return result;
}

std::vector<ReceivedStatistics> readInterfaces(const CmpPacketReader& reader) {
    std::vector<ReceivedStatistics> interfaces;
    for (const auto& [name, frames] : reader.getFrameCounts()) {
        const bool isUnused = name.empty() && frames.kept + frames.foreign + frames.dropped == 0;
        if (!isUnused) {
            interfaces.push_back({{StringHelper::ToWide(name), frames.kept, frames.foreign,
                                   frames.malformed, frames.dropped},
                                  toHostBool(frames.received.has_value()),
                                  frames.received.value_or(0)});
        }
    }
    return interfaces;
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

HostResult CaptureFacts::getDroppedFrames(std::uint64_t* frames) {
    *frames = core.packetReader.getDroppedFrames();
    return HostCode::success;
}

HostResult CaptureFacts::getChannels(ChannelStatistics* channels, std::uint32_t* count) {
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

HostResult CaptureFacts::getClocks(ClockStatistics* clocks, std::uint32_t* count) {
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

HostResult TrafficFacts::getInterfaces(std::vector<InterfaceStatistics>* interfaces) {
    const auto all = readInterfaces(core.packetReader);
    interfaces->assign(all.begin(), all.end());
    return HostCode::success;
}

HostResult ReceptionFacts::getReceived(std::vector<ReceivedStatistics>* interfaces) {
    *interfaces = readInterfaces(core.packetReader);
    return HostCode::success;
}

HostResult ReceptionFacts::getSenders(std::vector<SenderStatistics>* senders) {
    senders->clear();
    for (const auto& device : core.packetReader.getDevices().list()) {
        const SerialNumbers serials = device->getSerialNumbers();
        senders->push_back({toHostBool(serials.areOfSeveral()), {serials.latest, serials.former}});
    }
    return HostCode::success;
}

HostResult TrafficFacts::getMessages(MessageStatistics* messages) {
    const MessageCounts counts = core.packetReader.getMessageCounts();
    static_assert(std::tuple_size_v<decltype(counts.unknown)> == MessageStatistics::mostUnknown);
    *messages = {counts.data,  counts.moduleStatus,  counts.busStatus,      counts.other,
                 counts.empty, counts.unknownModule, counts.unknownChannel, {}};
    std::ranges::transform(counts.unknown, messages->unknown, [](const auto& entry) {
        return MessageStatistics::Unknown{entry.cmId, entry.messages};
    });
    return HostCode::success;
}

HostResult TrafficFacts::getModules(std::vector<ModuleStatistics>* modules) {
    modules->clear();
    for (const auto& device : core.packetReader.getDevices().list()) {
        modules->push_back(
            {device->getFrames(), device->getSequenceGaps(), device->getMissingFrames()});
    }
    return HostCode::success;
}

HostResult FrameTap::setSink(FrameSink* sink) {
    core.packetReader.setFrameSink(sink);
    return HostCode::success;
}

HostResult FrameTap::getSources(std::vector<std::wstring>* names) {
    names->clear();
    for (const auto& source : core.packetReader.getFrameCounts()) {
        names->push_back(StringHelper::ToWide(source.name));
    }
    return HostCode::success;
}

HostResult InterfaceChoice::getInterfaces(std::vector<std::wstring>* names) {
    std::vector<CaptureInterface> found;
    std::string error;
    if (core.packetReader.listInterfaces(found, error) == -1) {
        return HostCode::failed;
    }
    names->clear();
    for (const CaptureInterface& interface : found) {
        names->push_back(StringHelper::ToWide(interface.name));
    }
    return HostCode::success;
}

HostResult InterfaceChoice::takeMessages(std::vector<InterfaceMessage>* messages) {
    messages->clear();
    for (const auto& message : core.packetReader.takeMessages()) {
        messages->push_back({StringHelper::ToWide(message.text), toHostBool(message.isHarmless)});
    }
    return HostCode::success;
}

HostResult InterfaceChoice::selectInterfaces(const wchar_t* const* names, std::uint32_t count) {
    std::vector<std::string> selection;
    for (std::uint32_t i = 0; i < count; ++i) {
        selection.push_back(StringHelper::ToUtf8(names[i]));
    }
    core.packetReader.selectInterfaces(std::move(selection));
    return HostCode::success;
}
