#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bridge/input/input_channel.h"

namespace Kestrova::Utils::Kcom::InputChannel {

/// Those of the manager's channels that pass a filter, in an order: what a plug-in lets its user
/// choose from. It keeps its channels alive. Called on the host's thread.
class InputList {
  public:
    using Channel = std::shared_ptr<InputChannel>;
    using Channels = std::vector<Channel>;
    using Filter = std::function<bool(const InputChannel&)>;
    /// Whether the first comes before the second.
    using Sort = std::function<bool(const InputChannel&, const InputChannel&)>;

    InputList() = default;
    InputList(const InputList&) = delete;
    InputList& operator=(const InputList&) = delete;
    virtual ~InputList() = default;

    /// Both refresh. An empty filter passes all, an empty sort leaves the manager's order.
    virtual void setFilter(Filter filter) = 0;
    virtual void setSort(Sort sort) = 0;
    /// Fills the list again.
    virtual void refresh() = 0;
    virtual void clear() = 0;
    virtual std::size_t size() const = 0;
    virtual bool empty() const = 0;
    /// Throws `std::out_of_range` at or beyond the size.
    virtual const Channel& at(std::size_t position) const = 0;
    virtual Channels::const_iterator begin() const = 0;
    virtual Channels::const_iterator end() const = 0;
};

/// Gives a plug-in the channels of other sources in the host: the read-side twin of
/// `OutputFactory`. What nobody beside the manager holds, it forgets. Called on the host's thread.
class InputManager {
  public:
    InputManager() = default;
    InputManager(const InputManager&) = delete;
    InputManager& operator=(const InputManager&) = delete;
    virtual ~InputManager() = default;

    /// The channel with that `ChannelIdText`; one without a host channel if the host has none, or
    /// if the text is empty or no such text.
    virtual std::shared_ptr<InputChannel> getChannel(const std::string& id) = 0;
    /// The manager's own channel for the same channel of the host.
    virtual std::shared_ptr<InputChannel> getChannel(const InputChannel& channel) = 0;
    /// A channel without a host channel, which the manager doesn't keep.
    virtual std::shared_ptr<InputChannel> makeEmptyChannel() = 0;
    /// Of the acquisition, per second.
    virtual double getSampleRate() const = 0;
    virtual double getHostValueA() const = 0;
    virtual double getHostValueB() const = 0;
    /// A list that the manager refreshes as long as somebody holds it.
    virtual std::shared_ptr<InputList> createList(InputList::Filter filter) = 0;
};

}  // namespace Kestrova::Utils::Kcom::InputChannel
