#include "simulator/simulated_module.h"

#include <algorithm>

namespace sim {
namespace {

/// Without a rate the schedule is one that can't be kept: each frame is overdue at once, and the
/// channels get equal shares.
constexpr std::uint64_t overdueRate = 100'000'000;

Sender senderOf(const ModuleSettings& module, const TrafficSettings& traffic) {
    return {.framing = module.framing,
            .bus = module.type->bus,
            .canFd = module.type->bus == Bus::Can && traffic.lengths.needsCanFd(),
            .cmId = module.cmId,
            .serial = module.serial,
            .deviceType = module.type->deviceType,
            .description = module.type->name};
}

}  // namespace

SimulatedModule::SimulatedModule(const ModuleSettings& moduleSettings,
                                 const TrafficSettings& trafficSettings, const HostClock& hostClock,
                                 std::uint64_t seed)
    : module(moduleSettings),
      who(senderOf(moduleSettings, trafficSettings)),
      dataLengths(trafficSettings.lengths.lengthsFor(who.bus, who.framing)),
      channels(moduleSettings.channels),
      paced(trafficSettings.rate != 0),
      schedule{(paced ? trafficSettings.rate : overdueRate) * channels},
      messageCount(paced && trafficSettings.durationNs != never
                       ? schedule.countBefore(trafficSettings.durationNs)
                       : std::numeric_limits<std::uint64_t>::max()),
      perFrame(who.framing == Framing::AsamCmp ? 1 : trafficSettings.perFrame),
      duration(trafficSettings.durationNs),
      statusPeriod(trafficSettings.statusPeriodNs),
      stamp(trafficSettings.stamp),
      startStamp(hostClock.getStartStamp()),
      deviceClock(hostClock.getStartUtc(), moduleSettings.clock, seed) {
    frameMessages.reserve(perFrame);
    interfaceCounts.reserve(channels);
    findNextDue();
}

std::size_t SimulatedModule::getLongestFrame() const {
    return std::max(statusFrameRoom, dataFrameSize(who, perFrame, dataLengths.back()));
}

void SimulatedModule::findNextDue() {
    const std::uint64_t last = std::min<std::uint64_t>(encoded + perFrame, messageCount);
    nextDue = last == encoded ? never : schedule.timeOf(last - 1);
}

DataMessage SimulatedModule::nextMessage(std::int64_t dueNs) {
    DataMessage message;
    message.interfaceId = module.type->interfaces[nextChannel];
    message.number = static_cast<std::uint32_t>(nextNumber);
    message.length = dataLengths[(nextNumber + nextChannel) % dataLengths.size()];
    if (stamp != Stamp::Sending)
        setTime(message, dueNs);
    ++encoded;
    if (++nextChannel == channels) {
        nextChannel = 0;
        ++nextNumber;
    }
    return message;
}

void SimulatedModule::setTime(DataMessage& message, std::int64_t atNs) {
    message.timestamp = deviceClock.stamp(atNs);
    if (stamp != Stamp::None)
        message.hostTime = static_cast<std::uint64_t>(startStamp + atNs);
}

std::size_t SimulatedModule::encodeNextData(std::span<std::uint8_t> frame, std::uint64_t limit,
                                            std::int64_t nowNs, std::uint32_t& count) {
    const std::uint64_t left = std::min(limit, messageCount - encoded);
    const auto messages = static_cast<std::int64_t>(std::min<std::uint64_t>(perFrame, left));
    frameMessages.clear();
    const std::int64_t since = nowNs - lastDataTime;
    for (std::int64_t i = 1; i <= messages; ++i)
        frameMessages.push_back(
            nextMessage(paced ? schedule.timeOf(encoded) : lastDataTime + since * i / messages));
    lastDataTime = nowNs;
    findNextDue();
    count = static_cast<std::uint32_t>(messages);
    return encodeData(frame, who, counter++, frameMessages);
}

void SimulatedModule::stampLastData(std::span<std::uint8_t> frame, std::int64_t atNs) {
    for (DataMessage& message : frameMessages)
        setTime(message, atNs);
    encodeData(frame, who, static_cast<std::uint16_t>(counter - 1), frameMessages);
}

std::size_t SimulatedModule::encodeNextCmStatus(std::span<std::uint8_t> frame, std::int64_t atNs) {
    nextStatus = statusPeriod < duration - atNs ? atNs + statusPeriod : never;
    return encodeCmStatus(frame, who, counter++, deviceClock.reading(atNs));
}

std::size_t SimulatedModule::encodeNextBusStatus(std::span<std::uint8_t> frame, std::int64_t atNs) {
    interfaceCounts.clear();
    for (std::size_t channel = 0; channel < channels; ++channel)
        interfaceCounts.push_back({module.type->interfaces[channel],
                                   static_cast<std::uint32_t>(countOn(channel, encoded))});
    return encodeBusStatus(frame, who, counter++, deviceClock.reading(atNs), interfaceCounts);
}

}  // namespace sim
