#include "station/view/signal_taps.h"

#include <algorithm>
#include <span>

namespace station {

const SignalDefinition* SignalTaps::find(const LiveFeed& feed, const Signal& signal) {
    if (signal.channel >= feed.getChannels().size()) {
        return nullptr;
    }
    const Decoder::Message* const message =
        feed.getChannels()[signal.channel].findMessage(signal.id, signal.isExtended);
    if (message == nullptr || signal.index >= message->getDefinition().signals.size()) {
        return nullptr;
    }
    return &message->getDefinition().signals[signal.index];
}

void SignalTaps::add(std::size_t number, const LiveFeed& feed, const Signal& signal, Take take) {
    if (find(feed, signal) == nullptr) {
        return;
    }
    const LiveChannel& channel = feed.getChannels()[signal.channel];
    taps.push_back({number, signal, channel.bus, channel.decoder,
                    channel.findMessage(signal.id, signal.isExtended), feed.getMessages().begin(),
                    std::move(take)});
}

void SignalTaps::remove(std::size_t number) {
    std::erase_if(taps, [&](const Tap& tap) { return tap.number == number; });
}

void SignalTaps::look(Tap& tap, const StoredMessage& stored) {
    const BusMessage message(stored, tap.bus);
    if (message.id == tap.signal.id && message.isExtended == tap.signal.isExtended) {
        tap.message->decode(std::span(message.data.data(), message.length),
                            [&](const DecodedSignal& signal) {
                                if (signal.index == tap.signal.index) {
                                    tap.take(message.utc, signal.value);
                                }
                            });
    }
}

/// All taps that are as far in one pass; one that was added goes first until it is.
void SignalTaps::update(const LiveFeed& feed, std::chrono::milliseconds slice) {
    constexpr std::uint64_t turn = 16384;  // messages between two looks at the time
    const auto until = std::chrono::steady_clock::now() + slice;
    const MessageStore& store = feed.getMessages();
    for (Tap& tap : taps) {
        if (tap.looked < store.begin()) {
            missed += store.begin() - tap.looked;
            tap.looked = store.begin();
        }
    }
    while (!taps.empty()) {
        const std::uint64_t from = std::ranges::min_element(taps, {}, &Tap::looked)->looked;
        if (from == store.end() || std::chrono::steady_clock::now() >= until) {
            return;
        }
        std::uint64_t stop = std::min(store.end(), from + turn);
        std::vector<std::vector<Tap*>> ofChannel(feed.getChannels().size());
        for (Tap& tap : taps) {
            if (tap.looked == from) {
                ofChannel[tap.signal.channel].push_back(&tap);
            } else {
                stop = std::min(stop, tap.looked);
            }
        }
        store.forEach(from, stop, [&](std::uint64_t, const StoredMessage& message) {
            for (Tap* const tap : ofChannel[message.channel]) {
                look(*tap, message);
            }
        });
        for (Tap& tap : taps) {
            tap.looked = std::max(tap.looked, stop);
        }
    }
}

}  // namespace station
