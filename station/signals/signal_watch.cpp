#include "station/signals/signal_watch.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <utility>

#include "station/recording/bus_record.h"

namespace station {

struct SignalWatch::State {
    explicit State(const Decoder::Message& decoded)
        : message(decoded), signals(decoded.getDefinition().signals.size()) {
        for (const SignalDefinition& signal : decoded.getDefinition().signals) {
            isMultiplexed |= signal.multiplexing.isSwitch;
        }
    }

    const Decoder::Message& message;
    std::vector<Signal> signals;
    bool isMultiplexed = false;
    std::uint64_t count = 0;
    std::uint64_t unsettled = 0;  ///< messages that have as many bytes as the last one
    std::array<std::uint8_t, Decoder::Message::mostData> data = {};
    std::size_t size = 0;
};

SignalWatch::SignalWatch(std::vector<std::shared_ptr<const Decoder>> channelDecoders) {
    for (auto& decoder : channelDecoders) {
        Channel& channel = channels.emplace_back();
        channel.messages.resize(decoder ? decoder->countMessages() : 0);
        channel.decoder = std::move(decoder);
    }
}

SignalWatch::~SignalWatch() = default;

void SignalWatch::note(std::size_t channelNumber, const void* record, std::size_t size) {
    Channel& channel = channels[channelNumber];
    if (!channel.decoder) {
        return;
    }
    const Decoder::Message* message = nullptr;
    std::span<const std::uint8_t> data;
    if (size == CanRecord::size) {
        const CanRecord can(record);
        message = channel.decoder->find(can.id, can.extended);
        data = {can.data, can.length};
    } else if (size == LinRecord::size) {
        const LinRecord lin(record);
        message = channel.decoder->find(lin.id, false);
        data = {lin.data, lin.length};
    }
    if (message == nullptr) {
        ++channel.undefined;
        return;
    }
    std::unique_ptr<State>& place = channel.messages[message->getIndex()];
    if (!place) {
        place = std::make_unique<State>(*message);
    }
    State& state = *place;
    if (state.isMultiplexed || data.size() != state.size) {
        settle(state);
    }
    ++state.count;
    ++state.unsettled;
    state.size = data.size();
    std::memcpy(state.data.data(), data.data(), data.size());
}

/// All messages since the last time had the same signals: only the last one's values are wanted.
void SignalWatch::settle(State& state) {
    if (state.unsettled == 0) {
        return;
    }
    state.message.decode({state.data.data(), state.size}, [&](const DecodedSignal& signal) {
        state.signals[signal.index].last = signal;
        state.signals[signal.index].count += state.unsettled;
    });
    state.unsettled = 0;
}

std::vector<SignalWatch::Message> SignalWatch::getMessages(std::size_t channel) {
    std::vector<Message> messages;
    for (const auto& state : channels[channel].messages) {
        if (state) {
            settle(*state);
            messages.push_back({&state->message.getDefinition(), state->count, state->signals});
        }
    }
    return messages;
}

}  // namespace station
