#pragma once

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "bridge/output/output_channel.h"
#include "host/counted_ref.h"
#include "host/host_channel.h"

namespace Kestrova::Utils::Kcom::OutputChannel {

/// The labels of a host channel's values, as `OutputChannel` offers them. A view of the channel,
/// made for one call: each step asks the channel for its list afresh, as the user may change it.
class ValueLabelList {
  public:
    /// Keeps a reference to `hostChannel`, which may be empty: then each operation raises
    /// `HostCode::invalidPointer`.
    explicit ValueLabelList(CountedRef<HostChannel> hostChannel)
        : channel(std::move(hostChannel)) {}

    void add(const ValueLabel& label) const;
    void set(const ValueLabel& label) const;
    FoundValueLabel find(std::int32_t value) const;
    void remove(std::int32_t value) const;
    void removeAt(std::uint64_t position) const;
    void replaceAt(std::uint64_t position, const ValueLabel& label) const;
    void setAll(const std::vector<ValueLabel>& labels) const;
    std::vector<ValueLabel> getAll() const;
    void clear() const;
    std::int32_t getCount() const;

  private:
    CountedRef<HostValueList> getList() const;
    CountedRef<HostValueItem> itemAt(std::int32_t position) const;
    /// Of the first item with that value.
    std::optional<std::int32_t> positionOf(std::int32_t value) const;
    /// Throws `std::out_of_range` from the count on.
    std::int32_t checked(std::uint64_t position) const;

    CountedRef<HostChannel> channel;
};

}  // namespace Kestrova::Utils::Kcom::OutputChannel
