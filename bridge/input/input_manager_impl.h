#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bridge/input/input_channel_impl.h"
#include "bridge/input/input_list_impl.h"
#include "bridge/input/input_manager.h"
#include "core/vector_with_keys.h"
#include "host/host_plugin_group.h"

namespace Kestrova::Utils::Kcom::InputChannel {

/// The input side of a plug-in. A channel is kept under the indices by which the host finds it, and
/// only while somebody beside the manager holds it: what nobody fetched since it was loaded, and
/// what was let go of, is dropped at the next refresh.
///
/// Lives by value in the plug-in, which passes the host's events on to it, on the host's thread.
/// No lock: worker threads exist only within `update`, which waits for them. Without channels no
/// worker is ever started. Failures of the host are raised at once.
class InputManagerImpl final : public InputManager {
  public:
    InputManagerImpl() = default;
    ~InputManagerImpl() override;

    std::shared_ptr<InputChannel> getChannel(const std::string& id) override;
    std::shared_ptr<InputChannel> getChannel(const InputChannel& channel) override;
    std::shared_ptr<InputChannel> makeEmptyChannel() override;
    double getSampleRate() const override;
    double getHostValueA() const override;
    double getHostValueB() const override;
    std::shared_ptr<InputList> createList(InputList::Filter filter) override;

    /// `id` is the plug-in's class identifier as braced text.
    void attachHost(CountedRef<HostApp> hostApp, std::shared_ptr<const std::wstring> id);
    void saveSetup(const std::shared_ptr<Serialization::Node>& node) const;
    /// An entry that isn't an input, or has no number or no indices, is skipped.
    void loadSetup(const std::shared_ptr<Serialization::Node>& node);
    bool hasActiveChannels() const;
    /// Once per periodic call: takes the host's buffers for reading. Returns the positions of the
    /// acquisition from and up to which data is new.
    std::pair<std::int64_t, std::int64_t> update();

    void claimChannels(const CountedRef<HostChannelList>& list) const;
    /// The start of a measurement: what is new begins at 0. The second keeps stale channels.
    void resetForAcquisition();
    void resetReadMark();
    /// What is new begins at the position of the acquisition.
    void alignReadPosition();
    void dropStaleInputs();
    void dropStaleAndNotify();
    void sendSecondNotification();
    /// Finds each channel's host channel again by its indices, and drops those that have none.
    void rebindChannels();
    /// Drops what reads that channel; null leaves all as it is.
    void removeHostChannel(const HostChannel* channel);
    void clear();
    /// Lets go of all host channels, and forgets the channels.
    void detachChannels();

  private:
    using Indices = std::vector<std::int32_t>;
    struct HashOfIndices {
        std::size_t operator()(const Indices& indices) const;
    };
    using Entries = VectorWithKeys<Indices, std::shared_ptr<InputChannelImpl>, HashOfIndices>;

    std::shared_ptr<InputChannelImpl> getOrMake(const Indices& indices);
    CountedRef<HostChannel> findHostChannel(const Indices& indices) const;
    void setReadMark(std::int64_t position);
    void refreshLists();
    /// Erases the entries for which `isGone` is true.
    template <typename Test>
    void eraseIf(const Test& isGone);

    CountedRef<HostApp> app;
    std::shared_ptr<const std::wstring> pluginId;
    Entries channels;
    std::vector<std::shared_ptr<InputListImpl>> lists;
    std::int64_t lastPosition = 0;
};

}  // namespace Kestrova::Utils::Kcom::InputChannel
