#pragma once

#include <cstdint>
#include <vector>

#include "simulator/clocks.h"
#include "simulator/frame_encoder.h"
#include "simulator/module_settings.h"

namespace sim {

/// One capture module: its channels, its clock, its counters, and the frame that it sends next.
///
/// Message j of a module belongs to channel j % channels and is that channel's number j / channels.
/// All follows from j: when it is due, what it carries, how long it is. A frame holds consecutive
/// messages and is due with its last one. Encoding and counting what was sent are apart, since a
/// frame counts only when the sink took it.
class SimulatedModule {
  public:
    SimulatedModule(const ModuleSettings& moduleSettings, const TrafficSettings& trafficSettings,
                    const HostClock& hostClock, std::uint64_t seed);

    /// When the next data frame is due, or `never`.
    std::int64_t getDataDue() const { return nextDue; }
    std::int64_t getStatusDue() const { return nextStatus; }

    /// Room that its longest frame takes.
    std::size_t getLongestFrame() const;

    /// Encodes the next data frame, of at most `limit` messages; `count` becomes their number.
    /// `nowNs`: time since the start; without a rate, the messages are from between the last frame
    /// and now.
    std::size_t encodeNextData(std::span<std::uint8_t> frame, std::uint64_t limit,
                               std::int64_t nowNs, std::uint32_t& count);

    /// Encodes the data frame that was encoded last once more, as one that is sent at `atNs`.
    void stampLastData(std::span<std::uint8_t> frame, std::int64_t atNs);

    /// Encode a status of the time `atNs`; the next one is due a period later, if that is still
    /// within the duration.
    std::size_t encodeNextCmStatus(std::span<std::uint8_t> frame, std::int64_t atNs);
    std::size_t encodeNextBusStatus(std::span<std::uint8_t> frame, std::int64_t atNs);
    bool hasBusStatus() const { return who.framing == Framing::Tecmp; }

    void countSent(std::uint32_t messages) { sent += messages; }
    std::uint64_t getMessagesSent() const { return sent; }
    std::uint64_t messagesSentOn(std::size_t channel) const { return countOn(channel, sent); }

    const ModuleSettings& getSettings() const { return module; }
    const Sender& getSender() const { return who; }
    const DeviceClock& getClock() const { return deviceClock; }
    const std::vector<std::uint8_t>& getLengths() const { return dataLengths; }

  private:
    std::uint64_t countOn(std::size_t channel, std::uint64_t messages) const {
        return messages / channels + (channel < messages % channels ? 1 : 0);
    }
    void findNextDue();
    DataMessage nextMessage(std::int64_t dueNs);
    void setTime(DataMessage& message, std::int64_t atNs);

    // constant after construction
    const ModuleSettings module;
    const Sender who;
    const std::vector<std::uint8_t> dataLengths;
    const std::size_t channels;
    const bool paced;
    const MessageSchedule schedule;
    const std::uint64_t messageCount;  ///< within the duration
    const std::size_t perFrame;
    const std::int64_t duration;
    const std::int64_t statusPeriod;
    const Stamp stamp;
    const std::int64_t startStamp;

    DeviceClock deviceClock;
    std::vector<DataMessage> frameMessages;
    std::vector<InterfaceCount> interfaceCounts;

    std::uint64_t encoded = 0;  ///< data messages
    std::size_t nextChannel = 0;
    std::uint64_t nextNumber = 0;  ///< of that channel
    std::uint64_t sent = 0;
    std::uint16_t counter = 0;
    std::int64_t nextDue = 0;
    std::int64_t nextStatus = 0;
    std::int64_t lastDataTime = 0;
};

}  // namespace sim
