#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bridge/output/output_channel.h"

namespace Kestrova::Utils::Kcom::OutputChannel {

/// Makes and finds output channels. Called on the host's thread.
class OutputFactory {
  public:
    /// Called with a channel that was just made; may be empty.
    using Init = std::function<void(const std::shared_ptr<OutputChannel>&)>;

    OutputFactory() = default;
    OutputFactory(const OutputFactory&) = delete;
    OutputFactory& operator=(const OutputFactory&) = delete;
    virtual ~OutputFactory() = default;

    /// Makes a channel under a new key and mounts it at the host.
    virtual std::shared_ptr<OutputChannel> createChannel(OutputChannelType type,
                                                         const Init& init) = 0;
    /// The channel with that key, else a new one, whose key need not be `index`.
    virtual std::shared_ptr<OutputChannel> getOrCreateChannel(std::uint32_t index,
                                                              OutputChannelType type,
                                                              const Init& init) = 0;
    /// Unmounts the channel and forgets it.
    virtual void removeChannel(const std::shared_ptr<OutputChannel>& channel) = 0;
    /// Gives the host a group name for the channels with these indices.
    virtual void setChannelGroupName(const std::vector<std::int32_t>& indices,
                                     const std::string& name) = 0;
    /// Opens one level of batched mounting.
    virtual void beginMultipleMount() = 0;
    /// Ends one level and returns the depth that is left.
    virtual std::int32_t endMultipleMount() = 0;
};

}  // namespace Kestrova::Utils::Kcom::OutputChannel
