#pragma once

#include <memory>
#include <string>

#include "bridge/output/output_channel_impl.h"
#include "bridge/output/output_factory.h"
#include "core/vector_with_keys.h"
#include "host/host_plugin_group.h"

namespace Kestrova::Utils::Kcom::OutputChannel {

/// Owns all output channels and mounts them at the host: asks it to put each in its channel list.
/// The change of that list is reported to the host once per operation, or once per batch between
/// `beginMultipleMount` and `endMultipleMount`, and not at all during a setup load, after which the
/// host rebuilds its list anyway.
///
/// A load is `beginLoadSetup`, `loadSetup`, the owners' own load, `endLoadSetup`. In it the owners
/// fetch their channels by `getOrCreateChannel`; what nobody holds at the end is stale and goes.
/// While the host's channel set is fixed, channels are found by the indices in the setup instead,
/// and are neither re-typed nor removed.
///
/// Failures of the host are raised at once and leave an operation half done. A load that fails
/// leaves the factory loading: nothing is cleaned up, another `beginLoadSetup` is out of order, and
/// the plug-in calls `endLoadSetup` only at the end of a load that went well. A host makes a new
/// plug-in then. Lives by value in the plug-in, on the host's thread; no lock.
class OutputFactoryImpl final : public OutputFactory {
  public:
    OutputFactoryImpl() = default;

    std::shared_ptr<OutputChannel> createChannel(OutputChannelType type, const Init& init) override;
    std::shared_ptr<OutputChannel> getOrCreateChannel(std::uint32_t index, OutputChannelType type,
                                                      const Init& init) override;
    /// `channel` must be one of this factory's.
    void removeChannel(const std::shared_ptr<OutputChannel>& channel) override;
    void setChannelGroupName(const std::vector<std::int32_t>& indices,
                             const std::string& name) override;
    void beginMultipleMount() override { ++multipleMountDepth; }
    /// Throws `std::runtime_error` for a call without its `beginMultipleMount`, which the depth
    /// then counts.
    std::int32_t endMultipleMount() override;

    /// `id` is the plug-in's class identifier as braced text. The group isn't counted: the host
    /// keeps it as long as it keeps the plug-in.
    void attachHost(CountedRef<HostApp> hostApp, std::shared_ptr<const std::wstring> id,
                    HostPluginGroup* group);

    // These three throw `std::runtime_error`, and show the user why, if they come out of their
    // order.
    void beginLoadSetup();
    /// `XmlException` for a colour counter that is no number. An entry that isn't a channel of this
    /// factory is skipped, and so is one whose key is taken.
    void loadSetup(const std::shared_ptr<Serialization::Node>& node);
    void endLoadSetup();

    void saveSetup(const std::shared_ptr<Serialization::Node>& node) const;

    /// Whether there is data that the host wants: of a used channel that isn't excluded.
    bool hasActiveChannels() const;
    /// Claims at the host what somebody beside the factory holds and isn't excluded.
    void claimChannels() const;
    /// Does nothing if `active` is false.
    void claimChannels(bool active) const;
    /// Lets each channel choose its strategy for the host's present mode.
    void refreshAddData();
    void alignToAcquisition();
    /// Lets go of all host channels, and of none of the channels.
    void detachChannels();
    /// Drops all channels without a word to the host and begins the colours again.
    void clear();
    /// `OutputChannelImpl::setRemountMode` on all channels.
    void setRemountMode(std::int32_t mode);

    /// Notifies the host that the list of channels changed, unless a batch or a load holds it back.
    void flushMount();

  private:
    enum class LoadState : std::int32_t { Loading = 0, Idle = 1 };
    using Node = Serialization::Node;

    CountedRef<HostData> data() const { return getHostData(app); }
    bool isChannelSetFixed() const;
    CountedRef<HostChannel> mount(std::uint32_t key, OutputChannelType type);
    void unmount(OutputChannelImpl& channel);
    void loadChannel(std::shared_ptr<Node> node);
    CountedRef<HostChannel> findFixedChannel(const Node& node) const;
    void requireState(LoadState state) const;

    CountedRef<HostApp> app;
    HostPluginGroup* pluginGroup = nullptr;
    std::shared_ptr<const std::wstring> pluginId;
    std::uint64_t colorCounter = 0;  ///< colours handed out so far
    LoadState loadState = LoadState::Idle;
    std::int32_t multipleMountDepth = 0;
    bool mountPending = false;
    VectorWithKeys<std::uint32_t, std::shared_ptr<OutputChannelImpl>> channels;
};

}  // namespace Kestrova::Utils::Kcom::OutputChannel
