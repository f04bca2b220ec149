#pragma once

#include <cstdint>

#include "host/host_object.h"

class HostChannel;
class HostChannelGroups;

/// The measurement. The acquisition position is how far the host's sampling has come: the number of
/// samples since the start, as a position in a buffer and the number of times it wrapped.
class HostData : public HostObject {
  public:
    static constexpr InterfaceId id{
        0xB232D95A, 0x9C32, 0x4CB8, {0x9B, 0x35, 0x21, 0x38, 0x6A, 0x25, 0xAF, 0x42}};

    /// Samples per second of the acquisition; 0.0 while none is set up.
    virtual HostResult getSampleRate(double* samplesPerSecond) = 0;
    /// Size of the host's buffer and position in it, in samples.
    virtual HostResult getBufferState(std::int32_t* size, std::int32_t* position) = 0;
    /// How often the position came back to the start of the buffer.
    virtual HostResult getWrapCount(std::int32_t* count) = 0;
    /// How far behind the position the host still takes data, in samples.
    virtual HostResult getHistoryDepth(std::int32_t* samples) = 0;
    /// By whose square a reduced sample count is divided; at least 1.
    virtual HostResult getReductionFactor(std::int32_t* factor) = 0;
    /// Absolute start of the measurement in days since 30 December 1899, UTC. The clock that leads
    /// sets it when it starts; the others follow it.
    virtual HostResult getStartTime(double* dayCount) = 0;
    virtual HostResult setStartTime(double dayCount) = 0;

    /// Whether the channels are given and can be neither added, removed nor re-typed, as in the
    /// analysis of a stored measurement.
    virtual HostResult isChannelSetFixed(HostBool* fixed) = 0;
    /// Says that channels were mounted or unmounted.
    virtual HostResult notifyChannelsChanged() = 0;
    /// The channel with these indices (`HostChannel::getIndices`), null if there is none.
    virtual HostResult findChannel(const std::int32_t* indices, std::int32_t count,
                                   HostChannel** channel) = 0;
    virtual HostResult getChannelGroups(HostChannelGroups** groups) = 0;

    /// Two properties that the input side passes on to whoever asks it.
    virtual HostResult getValueA(double* value) = 0;
    virtual HostResult getValueB(double* value) = 0;

  protected:
    ~HostData() = default;
};
