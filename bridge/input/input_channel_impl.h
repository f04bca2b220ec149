#pragma once

#include "bridge/input/input_channel.h"
#include "bridge/input/raw_number.h"
#include "bridge/output/host_reads.h"
#include "bridge/output/properties_impl.h"

namespace Kestrova::Utils::Kcom::InputChannel {

/// An input channel over a channel of the host. Made by an `InputManagerImpl`. It reads from the
/// place where `update` found the host's buffers, which stays valid until the host changes them: so
/// no longer than to the end of the event in which `update` was called.
///
/// Called on the host's thread, but for `update`, which a worker thread may call while the host's
/// thread waits for it.
class InputChannelImpl final : public InputChannel {
  public:
    /// `channel` may be empty.
    InputChannelImpl(CountedRef<HostApp> hostApp, CountedRef<HostChannel> channel);

    std::string getChannelIdText() const override { return Kcom::getChannelIdText(hostChannel); }
    bool isAttached() const override { return static_cast<bool>(hostChannel); }
    bool isHostChannel(const HostChannel* channel) const override {
        return hostChannel.get() == channel;
    }
    bool isSameChannel(const InputChannel& other) const override {
        return this == &other || (hostChannel && other.isHostChannel(hostChannel.get()));
    }

    std::vector<std::uint8_t> readBytes(std::int64_t first, std::int64_t end) const override;
    std::vector<std::uint8_t> readBytes(SampleRange range) const override;

    std::string getName() const override { return getText(&HostChannel::getName); }
    std::string getTextAttribute() const override {
        return getText(&HostChannel::getTextAttribute);
    }
    std::string getTextAttributeB() const override {
        return getText(&HostChannel::getTextAttributeB);
    }
    std::string getTextAttributeC() const override {
        return getText(&HostChannel::getTextAttributeC);
    }
    std::string getUnit() const override { return getText(&HostChannel::getUnit); }
    std::uint32_t getColor() const override { return get(&HostChannel::getColor); }
    bool isUsed() const override { return hostFlagOf(hostChannel, &HostChannel::isUsed); }
    std::int32_t getElementSize() const override { return get(&HostChannel::getElementSize); }
    std::int32_t getDataType() const override { return get(&HostChannel::getDataType); }
    SampleRateKind getRateKind() const override { return Kcom::getRateKind(hostChannel); }
    OutputChannelType getChannelType() const override { return Kcom::getChannelType(hostChannel); }
    double getDoubleAttributeA() const override { return get(&HostChannel::getDoubleAttributeA); }
    double getDoubleAttributeB() const override { return get(&HostChannel::getDoubleAttributeB); }
    double getDoubleAttributeC() const override { return get(&HostChannel::getDoubleAttributeC); }
    double getDoubleAttributeD() const override { return get(&HostChannel::getDoubleAttributeD); }

    double getSampleRate() const override;
    std::int64_t secondsToSamples(double seconds) const override;
    double samplesToSeconds(std::int64_t count) const override;
    std::int64_t acquisitionToSamples(std::int64_t position) const override;

    bool isArray() const override { return hostFlagOf(hostChannel, &HostChannel::isArray); }
    std::int32_t getArraySize() const override { return get(&HostChannel::getArraySize); }
    std::int32_t getDimensionCount() const override { return Kcom::getDimensionCount(hostChannel); }
    std::int32_t getFirstDimensionSize() const override {
        return Kcom::getFirstDimensionSize(hostChannel);
    }
    std::int32_t getSecondDimensionSize() const override {
        return Kcom::getSecondDimensionSize(hostChannel);
    }
    CountedRef<HostAxisInfo> getAxis(std::int32_t dimension) const override;
    const Properties& getProperties() const override { return properties; }

    float readFloat(std::int64_t position) const override { return readOne<float>(position); }
    double readDouble(std::int64_t position) const override { return readOne<double>(position); }
    std::int64_t readInteger(std::int64_t position) const override {
        return readOne<std::int64_t>(position);
    }
    // NOLINTBEGIN(bugprone-macro-parentheses): T is a type
#define KESTROVA_OVERRIDE_READER(T)                                                        \
    void readRange(SampleRange range, std::vector<T>& values) const override {             \
        readNumbers(range, values);                                                        \
    }                                                                                      \
    void readRange(SampleRange range, std::vector<TimedValue<T>>& values) const override { \
        readTimedNumbers(range, values);                                                   \
    }
    KESTROVA_INPUT_NUMBERS(KESTROVA_OVERRIDE_READER)
#undef KESTROVA_OVERRIDE_READER
    // NOLINTEND(bugprone-macro-parentheses)
    void readRange(SampleRange range,
                   std::vector<std::vector<std::uint8_t>>& values) const override;

    // For the manager.

    void attachHostChannel(CountedRef<HostChannel> channel);
    const CountedRef<HostChannel>& getHostChannel() const {
        return hostChannel;
    }
    /// Takes the host's buffers, if the channel is used.
    void update();
    /// Lets go of the host's buffers until the next `update`.
    void dropBuffers();

  private:
    /// What one read knows of the buffers.
    struct View;

    template <typename T>
    T get(HostResult (HostChannel::*getter)(T*)) const {
        return hostValue(hostChannel, getter);
    }
    std::string getText(HostResult (HostChannel::*getter)(std::wstring*)) const {
        return hostTextOf(hostChannel, getter);
    }
    View view(SampleRange range) const;
    template <typename T>
    T readOne(std::int64_t position) const;
    template <typename T>
    void readNumbers(SampleRange range, std::vector<T>& values) const;
    template <typename T>
    void readTimedNumbers(SampleRange range, std::vector<TimedValue<T>>& values) const;

    CountedRef<HostChannel> hostChannel;
    const CountedRef<HostApp> app;
    PropertiesImpl properties;
    ScaleLine line;
    const std::byte* data = nullptr;
    const double* times = nullptr;
};

}  // namespace Kestrova::Utils::Kcom::InputChannel
