#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "setup/node.h"

namespace Kestrova::Utils::Kcom {
class AxisProperties;
class Properties;
}  // namespace Kestrova::Utils::Kcom

namespace Kestrova::Utils::Kcom::OutputChannel {

enum class SampleRateKind : std::int32_t { Synchronous = 0, Asynchronous = 1, SingleValue = 2 };

/// What an output channel is created with.
struct OutputChannelType {
    std::int32_t dataType = 0;  ///< the host's data type code
    SampleRateKind rateKind = SampleRateKind::Synchronous;

    friend bool operator==(const OutputChannelType&, const OutputChannelType&) = default;
};

/// The text and the colour (0x00RRGGBB) that stand for one value of a channel.
struct ValueLabel {
    std::int32_t value = 0;
    std::string text;
    std::int32_t color = 0;

    friend bool operator==(const ValueLabel&, const ValueLabel&) = default;
};

/// What a look-up of a label finds.
struct FoundValueLabel {
    bool found = false;
    std::string text;
    std::int32_t color = 0xFFFFFF;
};

/// One channel through which samples reach the host: it describes itself to the host and hands it
/// the samples. The capture core calls `getIndex`, the name, `setUsed`, `setIntAttributeA`,
/// `setExpectedRate`, `addAsynchronousSample` and `addVariantSample`; the rest is there for other
/// plug-ins and for the windows. `PlainOutputChannel` is the base of channels without a host.
///
/// Texts are UTF-8, colours 0x00RRGGBB. An attribute whose name doesn't say what it is for is
/// passed through: its meaning is the host's. A getter gives what the host has now. Failures of the
/// host travel as the host's errors; a channel that isn't attached to the host is
/// `HostCode::invalidPointer`.
///
/// Called on the host's thread.
class OutputChannel {
  public:
    using Node = Serialization::Node;

    OutputChannel() = default;
    OutputChannel(const OutputChannel&) = delete;
    OutputChannel& operator=(const OutputChannel&) = delete;
    virtual ~OutputChannel() = default;

    /// The place of the channel at the host: `ChannelIdText` of its indices.
    virtual std::string getChannelIdText() const = 0;
    /// The channel's key in its factory.
    virtual std::uint32_t getIndex() const = 0;
    virtual OutputChannelType getChannelType() const = 0;

    virtual void setName(const std::string& name) = 0;
    virtual std::string getName() const = 0;
    virtual void setTextAttribute(const std::string& text) = 0;
    virtual std::string getTextAttribute() const = 0;
    virtual void setExtTextAttribute(const std::string& text) = 0;
    virtual std::string getTextAttributeB() const = 0;
    virtual std::string getTextAttributeC() const = 0;
    virtual void setUnit(const std::string& unit) = 0;
    virtual std::string getUnit() const = 0;
    /// Takes effect on samples at the next start or preparation of a measurement.
    virtual void setUsed(bool used) = 0;
    virtual bool isUsed() const = 0;
    virtual void setBoolAttributeA(bool flag) = 0;
    virtual bool getBoolAttributeA() const = 0;
    virtual void setBoolAttributeB(bool flag) = 0;
    virtual bool getBoolAttributeB() const = 0;
    virtual void setColor(std::uint32_t color) = 0;
    virtual std::uint32_t getColor() const = 0;
    virtual void setDoubleAttributeA(double value) = 0;
    virtual double getDoubleAttributeA() const = 0;
    virtual void setDoubleAttributeB(double value) = 0;
    virtual double getDoubleAttributeB() const = 0;
    virtual void setDoubleAttributeC(double value) = 0;
    virtual double getDoubleAttributeC() const = 0;
    virtual void setDoubleAttributeD(double value) = 0;
    virtual double getDoubleAttributeD() const = 0;
    virtual void setScalarAttribute(double value) = 0;
    virtual std::int32_t getIntAttributeC() const = 0;
    /// Samples of the acquisition per sample of this channel.
    virtual std::int32_t getRateDivider() const = 0;
    virtual void setIntAttributeA(std::int32_t value) = 0;
    virtual std::int32_t getIntAttributeA() const = 0;
    virtual void setIntAttributeB(std::int32_t value) = 0;
    virtual std::int32_t getIntAttributeB() const = 0;
    virtual void setExtIntAttribute(std::int32_t value) = 0;
    virtual std::int32_t getExtIntAttribute() const = 0;
    virtual void setExtDoubleAttributeA(double value) = 0;
    virtual double getExtDoubleAttributeA() const = 0;
    virtual void setExtDoubleAttributeB(double value) = 0;
    virtual double getExtDoubleAttributeB() const = 0;

    // Labels, in the host's order. A look-up by value takes the first one with it.
    virtual void addValueLabel(const ValueLabel& label) = 0;
    /// Replaces the label of that value, or adds one.
    virtual void setValueLabel(const ValueLabel& label) = 0;
    virtual FoundValueLabel getValueLabel(std::int32_t value) const = 0;
    /// Does nothing if there is none.
    virtual void removeValueLabel(std::int32_t value) = 0;
    /// Both throw `std::out_of_range` "Index out of bounds" from the count on.
    virtual void removeValueLabelAt(std::uint64_t position) = 0;
    virtual void replaceValueLabelAt(std::uint64_t position, const ValueLabel& label) = 0;
    virtual void setValueLabels(const std::vector<ValueLabel>& labels) = 0;
    virtual std::vector<ValueLabel> getValueLabels() const = 0;
    virtual void clearValueLabels() = 0;
    virtual std::int32_t getValueLabelCount() const = 0;

    // Name, unit and colour are automatic while they equal their default in the host: only then
    // does a new default change them too, so what the user has chosen stays.
    virtual void setDefaultName(const std::string& name) = 0;
    virtual bool isAutomaticName() const = 0;
    virtual void setDefaultUnit(const std::string& unit) = 0;
    virtual bool isAutomaticUnit() const = 0;
    virtual void setDefaultColor(std::uint32_t color) = 0;
    virtual bool isAutomaticColor() const = 0;

    /// An excluded channel doesn't count as active and isn't claimed.
    virtual void setExcluded(bool excluded) = 0;
    virtual bool isExcluded() const = 0;
    virtual void setChannelIndices(const std::vector<std::int32_t>& indices) = 0;
    /// Samples per second that the host should make room for. It and the next may move the buffers.
    virtual void setExpectedRate(float samplesPerSecond) = 0;
    virtual float getExpectedRate() const = 0;
    virtual void setBufferAttribute(std::uint32_t value) = 0;
    virtual std::uint32_t getBufferAttribute() const = 0;

    /// Makes the channel an array of one dimension, or with `setAxes` of two. `flag` is false where
    /// it is left out. An axis of more than 2147483647 elements is `HostCode::invalidArgument`.
    virtual void setAxis(const AxisProperties& axis) = 0;
    virtual void setAxis(const AxisProperties& axis, bool flag) = 0;
    virtual void setAxes(const AxisProperties& first, const AxisProperties& second) = 0;
    virtual void setAxes(const AxisProperties& first, const AxisProperties& second, bool flag) = 0;
    virtual bool isArray() const = 0;
    /// Elements in one sample.
    virtual std::int32_t getArraySize() const = 0;
    /// These three are 1 for a channel that is no array, the last also for one dimension.
    virtual std::int32_t getDimensionCount() const = 0;
    virtual std::int32_t getFirstDimensionSize() const = 0;
    virtual std::int32_t getSecondDimensionSize() const = 0;

    virtual const Properties& getProperties() const = 0;
    virtual Properties& getProperties() = 0;

    /// Takes over settings that another channel has saved. Of it and the next: a node of another
    /// class than the host's is replaced by one of the host's with the same content.
    virtual void applySetup(std::shared_ptr<Node>& node) = 0;
    virtual void saveSetup(std::shared_ptr<Node>& node) const = 0;

    /// The scaled value of the last sample while the host is in setup, else 0.0.
    virtual double getLastValue() const = 0;

    // Samples. `data` is read during the call only; `time` is in seconds since the start of the
    // measurement and non-decreasing per channel.

    /// Writes to the start of the host's buffer, as the value of a single-value channel.
    virtual void setValueRaw(const void* data, std::uint64_t size) = 0;
    /// The same, but no more than one sample.
    virtual void setValueRawClamped(const void* data, std::uint64_t size) = 0;
    virtual void addSynchronousSample(const void* data, std::uint64_t size) = 0;
    /// Adds one sample of an array, cut at the array's size.
    virtual void addAsynchronousBlockSample(const void* data, std::uint64_t size, double time) = 0;
    /// Adds one sample of a fixed size.
    virtual void addAsynchronousSample(const void* data, std::uint64_t size, double time) = 0;
    /// The same for a sample whose size may vary.
    virtual void addVariantSample(const void* data, std::uint64_t size, double time) = 0;

    /// The time that so many samples of the acquisition take.
    virtual double samplesToSeconds(std::int64_t count) const = 0;
};

}  // namespace Kestrova::Utils::Kcom::OutputChannel
