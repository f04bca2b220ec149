#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "bridge/output/output_factory.h"
#include "bridge/output/plain_output_channel.h"

namespace station {

/// Takes each sample that the capture core delivers. Called on the host's thread; `data` is read
/// during the call only.
class SampleSink {
  public:
    virtual ~SampleSink() = default;
    /// `channel` is the output's index; `time` in seconds since the start.
    virtual void onSample(std::uint32_t channel, const void* data, std::size_t size,
                          double time) = 0;
};

/// An output channel that hands its samples straight to a sink, without buffers in between.
class DirectOutput final : public Kestrova::Utils::Kcom::OutputChannel::PlainOutputChannel {
  public:
    DirectOutput(std::uint32_t channelIndex, SampleSink& sampleSink)
        : index(channelIndex), sink(sampleSink) {}

    std::uint32_t getIndex() const override { return index; }
    void setName(const std::string& newName) override { name = newName; }
    std::string getName() const override { return name; }
    void setUsed(bool newUsed) override { used = newUsed; }
    bool isUsed() const override { return used; }
    void addAsynchronousSample(const void* data, std::uint64_t size, double time) override {
        add(data, size, time);
    }
    void addVariantSample(const void* data, std::uint64_t size, double time) override {
        add(data, size, time);
    }

  private:
    void add(const void* data, std::uint64_t size, double time) {
        if (used) {
            sink.onSample(index, data, size, time);
        }
    }

    const std::uint32_t index;
    SampleSink& sink;
    std::string name;
    bool used = false;
};

/// Outputs in the order in which they were made, by index.
class DirectOutputs final : public Kestrova::Utils::Kcom::OutputChannel::OutputFactory {
  public:
    using OutputChannel = Kestrova::Utils::Kcom::OutputChannel::OutputChannel;
    using OutputChannelType = Kestrova::Utils::Kcom::OutputChannel::OutputChannelType;

    /// The sink isn't owned and outlives the outputs.
    explicit DirectOutputs(SampleSink& sampleSink) : sink(sampleSink) {}

    std::shared_ptr<OutputChannel> createChannel(OutputChannelType type, const Init& init) override;
    std::shared_ptr<OutputChannel> getOrCreateChannel(std::uint32_t index, OutputChannelType type,
                                                      const Init& init) override;
    void removeChannel(const std::shared_ptr<OutputChannel>& channel) override;
    void setChannelGroupName(const std::vector<std::int32_t>&, const std::string&) override {}
    void beginMultipleMount() override { ++multipleMountDepth; }
    std::int32_t endMultipleMount() override { return --multipleMountDepth; }

  private:
    SampleSink& sink;
    std::vector<std::shared_ptr<OutputChannel>> channels;  ///< null: removed
    std::int32_t multipleMountDepth = 0;
};

}  // namespace station
