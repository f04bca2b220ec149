#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "station/signals/decoder.h"

namespace station {

/// What came in last of each signal, and how often, by channel and message.
///
/// `note` is cheap, as it runs for each message of a measurement: of a message without multiplexing
/// the bytes are kept and decoded only where that is needed. Called on one thread.
class SignalWatch {
  public:
    struct Signal {
        DecodedSignal last;       ///< as it was last; meaningless with `count` 0
        std::uint64_t count = 0;  ///< messages that had it
    };
    struct Message {
        const MessageDefinition* definition;
        std::uint64_t count;
        std::vector<Signal> signals;  ///< as those of the definition
    };

    /// By channel; null for one without a database.
    explicit SignalWatch(std::vector<std::shared_ptr<const Decoder>> channelDecoders);
    ~SignalWatch();
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

    /// `record` is that of an output channel of CAN or LIN.
    void note(std::size_t channel, const void* record, std::size_t size);

    bool hasDatabase(std::size_t channel) const { return channels[channel].decoder != nullptr; }
    /// Messages of the channel that its database doesn't define.
    std::uint64_t getUndefined(std::size_t channel) const { return channels[channel].undefined; }
    /// Those that came in, in the order of the database.
    std::vector<Message> getMessages(std::size_t channel);

  private:
    struct State;
    struct Channel {
        std::shared_ptr<const Decoder> decoder;
        std::uint64_t undefined = 0;
        std::vector<std::unique_ptr<State>> messages;  ///< null: it didn't come in yet
    };

    static void settle(State& state);

    std::vector<Channel> channels;
};

}  // namespace station
