#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "bridge/output/output_channel.h"
#include "bridge/output/properties.h"
#include "host/counted_ref.h"
#include "host/host_channel.h"

namespace Kestrova::Utils::Kcom::InputChannel {

/// Samples of a channel: `count` of them from `first` on, counted since the start of the
/// measurement. The host keeps the last `getBufferSize` of them.
struct SampleRange {
    std::int64_t first = 0;
    std::int64_t count = 0;
};

template <typename T>
struct TimedValue {
    double time = 0.0;  ///< seconds since the start of the measurement
    T value{};

    friend bool operator==(const TimedValue&, const TimedValue&) = default;
};

/// The types that samples can be read as, whatever the host keeps them as.
#define KESTROVA_INPUT_NUMBERS(ENTRY) \
    ENTRY(std::int8_t)                \
    ENTRY(std::uint8_t)               \
    ENTRY(std::int16_t)               \
    ENTRY(std::uint16_t)              \
    ENTRY(std::int32_t)               \
    ENTRY(std::uint32_t)              \
    ENTRY(std::int64_t)               \
    ENTRY(std::uint64_t)              \
    ENTRY(float)                      \
    ENTRY(double)

/// One channel of another source in the host, to be read: the twin of `OutputChannel`. Texts are
/// UTF-8, attributes whose names don't say what they are for are the host's.
///
/// Samples are read out of the host's buffers as the last `InputManagerImpl::update` found them;
/// without that, or for a channel that wasn't used then, reading raises `HostCode::invalidPointer`.
/// Where a channel is an array, a sample gives all its elements, one after the other. A range that
/// begins below 0 or is longer than the buffer throws `std::out_of_range`. A number beyond the type
/// it is read as becomes the nearest one of that type, one that is none 0.
///
/// Called on the host's thread.
class InputChannel {
  public:
    using OutputChannelType = OutputChannel::OutputChannelType;
    using SampleRateKind = OutputChannel::SampleRateKind;

    InputChannel() = default;
    InputChannel(const InputChannel&) = delete;
    InputChannel& operator=(const InputChannel&) = delete;
    virtual ~InputChannel() = default;

    virtual std::string getChannelIdText() const = 0;
    virtual bool isAttached() const = 0;
    virtual bool isHostChannel(const HostChannel* channel) const = 0;
    /// Whether both stand for one channel of the host. One without is the same as itself only.
    virtual bool isSameChannel(const InputChannel& other) const = 0;

    /// The samples as the host keeps them. By position: from `first` up to `end`.
    virtual std::vector<std::uint8_t> readBytes(std::int64_t first, std::int64_t end) const = 0;
    virtual std::vector<std::uint8_t> readBytes(SampleRange range) const = 0;

    virtual std::string getName() const = 0;
    virtual std::string getTextAttribute() const = 0;
    virtual std::string getTextAttributeB() const = 0;
    virtual std::string getTextAttributeC() const = 0;
    virtual std::string getUnit() const = 0;
    virtual std::uint32_t getColor() const = 0;
    virtual bool isUsed() const = 0;
    /// Bytes.
    virtual std::int32_t getElementSize() const = 0;
    virtual std::int32_t getDataType() const = 0;
    virtual SampleRateKind getRateKind() const = 0;
    virtual OutputChannelType getChannelType() const = 0;
    virtual double getDoubleAttributeA() const = 0;
    virtual double getDoubleAttributeB() const = 0;
    virtual double getDoubleAttributeC() const = 0;
    virtual double getDoubleAttributeD() const = 0;

    /// Samples of this channel per second, for one that isn't asynchronous.
    virtual double getSampleRate() const = 0;
    /// Between samples of this channel and seconds; the first of the two cuts towards zero.
    virtual std::int64_t secondsToSamples(double seconds) const = 0;
    virtual double samplesToSeconds(std::int64_t count) const = 0;
    /// Of a position of the acquisition, as `InputManager` gives it.
    virtual std::int64_t acquisitionToSamples(std::int64_t position) const = 0;

    virtual bool isArray() const = 0;
    virtual std::int32_t getArraySize() const = 0;
    virtual std::int32_t getDimensionCount() const = 0;
    virtual std::int32_t getFirstDimensionSize() const = 0;
    virtual std::int32_t getSecondDimensionSize() const = 0;
    /// The host's description of an axis of an array.
    virtual CountedRef<HostAxisInfo> getAxis(std::int32_t dimension) const = 0;
    virtual const Properties& getProperties() const = 0;

    /// The first element of one sample.
    virtual float readFloat(std::int64_t position) const = 0;
    virtual double readDouble(std::int64_t position) const = 0;
    virtual std::int64_t readInteger(std::int64_t position) const = 0;

    /// The elements of a range, with their times or without; `values` is replaced. A channel that
    /// isn't asynchronous has times by its sample rate. Last, the samples as runs of bytes.
    // NOLINTBEGIN(bugprone-macro-parentheses): T is a type
#define KESTROVA_DECLARE_READER(T)                                               \
    virtual void readRange(SampleRange range, std::vector<T>& values) const = 0; \
    virtual void readRange(SampleRange range, std::vector<TimedValue<T>>& values) const = 0;
    KESTROVA_INPUT_NUMBERS(KESTROVA_DECLARE_READER)
#undef KESTROVA_DECLARE_READER
    // NOLINTEND(bugprone-macro-parentheses)
    virtual void readRange(SampleRange range,
                           std::vector<std::vector<std::uint8_t>>& values) const = 0;
};

}  // namespace Kestrova::Utils::Kcom::InputChannel
