#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "station/signals/decoder.h"
#include "station/view/live_feed.h"

namespace station {

/// Takes chosen signals out of the messages of a feed, for a plot: those that the feed has kept,
/// and those that come, in their order. It works in slices, so that millions of messages hold
/// nothing up.
class SignalTaps {
  public:
    /// One signal of the messages with one identifier on one channel.
    struct Signal {
        std::size_t channel = 0;
        std::uint32_t id = 0;
        bool isExtended = false;
        std::size_t index = 0;  ///< among the signals of the message's definition
    };
    using Take = std::function<void(std::int64_t utcNanoseconds, double value)>;

    /// Null: the channel has no database that defines it.
    static const SignalDefinition* find(const LiveFeed& feed, const Signal& signal);

    /// Of that feed. Nothing for an unknown one. `number` names it for `remove`.
    void add(std::size_t number, const LiveFeed& feed, const Signal& signal, Take take);
    void remove(std::size_t number);
    void clear() { taps.clear(); }
    /// Gives what is new, for about that long. The feed is that of `add`.
    void update(const LiveFeed& feed, std::chrono::milliseconds slice);
    /// Messages that were gone before they were looked at.
    std::uint64_t getMissed() const { return missed; }

  private:
    struct Tap {
        std::size_t number;
        Signal signal;
        BusType bus;
        std::shared_ptr<const Decoder> decoder;
        const Decoder::Message* message;
        std::uint64_t looked;
        Take take;
    };

    static void look(Tap& tap, const StoredMessage& stored);

    std::vector<Tap> taps;
    std::uint64_t missed = 0;
};

}  // namespace station
