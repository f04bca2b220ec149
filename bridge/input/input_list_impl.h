#pragma once

#include "bridge/input/input_manager.h"

namespace Kestrova::Utils::Kcom::InputChannel {

/// A list over the channels of a manager, which it asks for them at each refresh. One that outlives
/// its manager keeps what it has.
class InputListImpl final : public InputList {
  public:
    /// The manager's channels, in its order.
    using Source = std::function<Channels()>;

    InputListImpl(Source sourceOfList, Filter filterOfList)
        : source(std::move(sourceOfList)), filter(std::move(filterOfList)) {}

    void setFilter(Filter newFilter) override;
    void setSort(Sort newSort) override;
    void refresh() override;
    void clear() override { channels.clear(); }
    std::size_t size() const override { return channels.size(); }
    bool empty() const override { return channels.empty(); }
    const Channel& at(std::size_t position) const override { return channels.at(position); }
    Channels::const_iterator begin() const override { return channels.begin(); }
    Channels::const_iterator end() const override { return channels.end(); }

    // For the manager.

    /// The two notifications of the host: channels came or went, and their properties changed.
    void onFirstNotification() { refresh(); }
    void onSecondNotification() { refresh(); }
    void detachSource() { source = nullptr; }

  private:
    Source source;
    Filter filter;
    Sort sort;
    Channels channels;
};

}  // namespace Kestrova::Utils::Kcom::InputChannel
