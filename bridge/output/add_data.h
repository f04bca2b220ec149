#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "host/counted_ref.h"
#include "host/host_app.h"
#include "host/host_channel.h"

namespace Kestrova::Utils::Kcom::OutputChannel {

/// What becomes of the samples of a channel. Which strategy a channel has is decided when the host
/// changes its mode, so that no sample has to ask for it.
///
/// This is the hot path, on one thread at a time per channel: one call per message, which allocates
/// nothing but in `addVariantSample`, takes no lock, and asks the host each time, as buffers
/// may move between two calls. A failing call of the host is raised at once, with the sample half
/// written and not committed; a missing buffer is `HostCode::invalidPointer`. The host is trusted
/// to keep its write position inside its buffers.
///
/// `data` is read during the call only; `time` is in seconds since the start of the measurement and
/// stored as it comes.
class IAddData {
  public:
    explicit IAddData(CountedRef<HostChannel> hostChannel) : channel(std::move(hostChannel)) {}
    IAddData(const IAddData&) = delete;
    IAddData& operator=(const IAddData&) = delete;
    virtual ~IAddData() = default;

    virtual void setValueRaw(const void* data, std::uint64_t size) = 0;
    virtual void setValueRawClamped(const void* data, std::uint64_t size) = 0;
    virtual void addSynchronousSample(const void* data, std::uint64_t size) = 0;
    virtual void addAsynchronousSample(const void* data, std::uint64_t size, double time) = 0;
    virtual void addAsynchronousBlockSample(const void* data, std::uint64_t size, double time) = 0;
    virtual void addVariantSample(const void* data, std::uint64_t size, double time) = 0;
    virtual double getLastValue() const = 0;

  protected:
    const CountedRef<HostChannel> channel;
};

/// For a channel that isn't used: drops everything.
class AddDataEmpty final : public IAddData {
  public:
    using IAddData::IAddData;

    void setValueRaw(const void*, std::uint64_t) override {}
    void setValueRawClamped(const void*, std::uint64_t) override {}
    void addSynchronousSample(const void*, std::uint64_t) override {}
    void addAsynchronousSample(const void*, std::uint64_t, double) override {}
    void addAsynchronousBlockSample(const void*, std::uint64_t, double) override {}
    void addVariantSample(const void*, std::uint64_t, double) override {}
    double getLastValue() const override { return 0.0; }
};

/// For a measurement: writes into the host's buffers.
class AddDataDirect final : public IAddData {
  public:
    using IAddData::IAddData;

    void setValueRaw(const void* data, std::uint64_t size) override;
    void setValueRawClamped(const void* data, std::uint64_t size) override;
    /// Of this and the next: the size is the caller's word and not compared with the host's
    /// element.
    void addSynchronousSample(const void* data, std::uint64_t size) override;
    void addAsynchronousSample(const void* data, std::uint64_t size, double time) override;
    void addAsynchronousBlockSample(const void* data, std::uint64_t size, double time) override;
    /// The host makes room by itself, for a sample of any size.
    void addVariantSample(const void* data, std::uint64_t size, double time) override;
    double getLastValue() const override { return 0.0; }

  private:
    std::byte* dataBuffer() const;
    void writeTime(std::int32_t position, double time) const;
    std::int32_t sampleSize() const;
};

/// For the setup: keeps the last sample's scaled value as live value, and writes into the buffers
/// only if the channel is used.
class AddDataInSetup final : public IAddData {
  public:
    explicit AddDataInSetup(const CountedRef<HostChannel>& hostChannel)
        : IAddData(hostChannel), direct(hostChannel) {}

    void setValueRaw(const void* data, std::uint64_t size) override;
    void setValueRawClamped(const void* data, std::uint64_t size) override;
    void addSynchronousSample(const void* data, std::uint64_t size) override;
    void addAsynchronousSample(const void* data, std::uint64_t size, double time) override;
    void addAsynchronousBlockSample(const void* data, std::uint64_t size, double time) override;
    void addVariantSample(const void* data, std::uint64_t size, double time) override;
    double getLastValue() const override { return lastValue; }

  private:
    /// Takes the live value; returns whether the sample goes on to the buffers.
    bool takeLiveValue(const void* data, std::uint64_t size);

    AddDataDirect direct;
    double lastValue = 0.0;
};

/// The strategy for the host's present mode; none without a host channel.
std::unique_ptr<IAddData> selectAddData(const CountedRef<HostChannel>& channel,
                                        const CountedRef<HostApp>& app);

}  // namespace Kestrova::Utils::Kcom::OutputChannel
