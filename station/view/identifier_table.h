#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include "station/recording/channel_traffic.h"
#include "station/view/bus_message.h"

namespace station {

/// What came with one identifier of one channel.
struct IdentifierRow {
    BusMessage last;
    ChannelTraffic traffic;
    // Nanoseconds between a message and the one before; meaningless with fewer than two messages.
    std::int64_t cycle = 0;
    std::int64_t leastCycle = 0;
    std::int64_t mostCycle = 0;
    std::uint64_t changed = 0;  ///< a bit for each data byte that changed within the last seconds

    bool hasCycle() const { return traffic.getCount() > 1; }
};

/// A row for each channel and identifier, up to `most` of them, in the order of their first
/// messages.
class IdentifierTable {
  public:
    /// Bounds the memory: anybody may send 536 million identifiers.
    static constexpr std::size_t most = 20000;

    void add(const BusMessage& message);
    /// Of the last `seconds`, which began when this was called before.
    void updateRates(double seconds);
    void clear();

    const std::vector<IdentifierRow>& getRows() const { return rows; }
    /// Messages of identifiers for which there was no row any more.
    std::uint64_t getLeftOut() const { return leftOut; }

  private:
    std::vector<IdentifierRow> rows;
    std::vector<std::uint64_t> changing;  ///< by row: since the rates were worked out
    std::unordered_map<std::uint64_t, std::size_t> places;
    std::uint64_t leftOut = 0;
};

}  // namespace station
