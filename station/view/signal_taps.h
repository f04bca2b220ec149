#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <unordered_map>
#include <vector>

#include "station/signals/decoder.h"
#include "station/view/live_feed.h"

namespace station {

/// Takes chosen signals out of the messages of a feed, for a plot.
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

    /// The feed isn't owned and outlives this.
    explicit SignalTaps(LiveFeed& liveFeed) : feed(liveFeed) {}

    /// Null: the channel has no database that defines it.
    const SignalDefinition* find(const Signal& signal) const;
    /// Gives what the feed has of it at once, and then what comes. Nothing for an unknown one.
    /// `number` names it for `remove`.
    void add(std::size_t number, const Signal& signal, Take take);
    void remove(std::size_t number);
    void clear();

  private:
    struct Tap {
        std::size_t number;
        std::size_t index;
        Take take;
    };
    struct Tapped {
        std::shared_ptr<const Decoder> decoder;
        const Decoder::Message* message;
        std::vector<Tap> taps;
    };

    void note(const BusMessage& message);
    static void give(const Tapped& from, const Tap& to, const BusMessage& message);

    LiveFeed& feed;
    std::unordered_map<std::uint64_t, Tapped> tapped;  ///< by `BusMessage::key`
};

}  // namespace station
