#pragma once

#include <cstdint>
#include <map>

/// What became of the messages of one channel since data read was started. At the end of data read
/// `queued` is the sum of all that follow it, but for `raised`.
struct ChannelCounts {
    std::uint64_t unusable = 0;   ///< never queued: the payload holds no whole message that fits
    std::uint64_t queued = 0;     ///< messages that came in
    std::uint64_t delivered = 0;  ///< written to the output channel
    /// Of the delivered: those that got the time of the one before, as their own was more than a
    /// millisecond earlier.
    std::uint64_t raised = 0;

    // No loss: stamped outside of the measurement.
    std::uint64_t beforeStart = 0;  ///< and before all that was delivered
    std::uint64_t afterEnd = 0;  ///< by no more than a message can be that came in before the end

    // Lost.
    std::uint64_t tooOld = 0;      ///< before the window in which the host still takes data
    std::uint64_t tooNew = 0;      ///< behind the window in which data may be held back, or the end
    std::uint64_t notPlaced = 0;   ///< the module's clock had no relation to the host's time
    std::uint64_t leftQueued = 0;  ///< in the measurement, but not asked for before its end
    std::uint64_t noOutput = 0;    ///< there was no output channel

    ChannelCounts& operator+=(const ChannelCounts& other) {
        unusable += other.unusable;
        queued += other.queued;
        delivered += other.delivered;
        raised += other.raised;
        beforeStart += other.beforeStart;
        afterEnd += other.afterEnd;
        tooOld += other.tooOld;
        tooNew += other.tooNew;
        notPlaced += other.notPlaced;
        leftQueued += other.leftQueued;
        noOutput += other.noOutput;
        return *this;
    }
};

/// The counts of channels that went since data read was started, by the index of their output, -1
/// for none. Host's thread.
using GoneCounts = std::map<std::int32_t, ChannelCounts>;
