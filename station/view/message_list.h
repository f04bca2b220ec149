#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <unordered_map>
#include <vector>

#include "station/view/bus_message.h"
#include "station/view/live_filter.h"

namespace station {

/// Which messages of a store are shown, in the order of time: those that pass a filter.
///
/// It takes in what is new in the store in slices, so that a new filter over millions of messages
/// holds nothing up. Messages come channel by channel; the newest tenth of a second waits until it
/// can be ordered, or nothing more comes. A message of a clock that is ahead waits for nothing.
class MessageList {
  public:
    /// Begins again with what the store has.
    void setFilter(LiveFilter newFilter);
    void clear() { setFilter(std::move(filter)); }
    /// Takes in new messages for about that long. `buses`: by channel; `now`: the measurement's
    /// time, UTC nanoseconds. Whether it has taken all.
    bool update(const MessageStore& store, const std::vector<BusType>& buses, std::int64_t now,
                std::chrono::milliseconds slice);
    /// The same with all there is, which nothing more follows.
    void finish(const MessageStore& store, const std::vector<BusType>& buses, std::int64_t now);

    std::size_t size() const { return rows.size(); }
    /// The number in the store of the message in a row.
    std::uint64_t getNumber(std::size_t row) const { return base + rows[row]; }
    /// How many rows have gone from the front since `clear` or `setFilter`.
    std::uint64_t getGone() const { return gone; }
    /// Messages that the store had to let go before they were looked at.
    std::uint64_t getMissed() const { return missed; }

  private:
    /// A message that waits for its place.
    struct Waiting {
        std::int64_t utc;
        std::size_t channel;
        std::uint64_t number;
    };

    bool passes(const StoredMessage& message, BusType bus);
    void order(std::ptrdiff_t ordered);
    void place(bool isQuiet);
    void dropGone(const MessageStore& store);

    LiveFilter filter;
    std::unordered_map<std::uint64_t, bool> verdicts;  ///< of the filter, by `BusMessage::key`
    std::vector<Waiting> waiting;
    std::int64_t newest = 0;  ///< UTC nanoseconds
    bool hasLooked = false;
    std::uint64_t looked = 0;
    std::uint64_t endBefore = 0;  ///< the store's, at the last look
    std::uint64_t base = 0;       ///< what the rows count from
    std::deque<std::uint32_t> rows;
    std::uint64_t gone = 0;
    std::uint64_t missed = 0;
};

}  // namespace station
