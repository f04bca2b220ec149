#include "station/view/signal_taps.h"

#include <span>

namespace station {

const SignalDefinition* SignalTaps::find(const Signal& signal) const {
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

void SignalTaps::give(const Tapped& from, const Tap& to, const BusMessage& message) {
    from.message->decode(std::span(message.data.data(), message.length),
                         [&](const DecodedSignal& signal) {
                             if (signal.index == to.index) {
                                 to.take(message.utc, signal.value);
                             }
                         });
}

void SignalTaps::add(std::size_t number, const Signal& signal, Take take) {
    if (find(signal) == nullptr) {
        return;
    }
    const LiveChannel& channel = feed.getChannels()[signal.channel];
    const std::uint64_t key = BusMessage::keyOf(signal.channel, signal.id, signal.isExtended);
    feed.refresh(LiveFeed::Clock::now());  // what is in the store isn't given twice
    Tapped& place = tapped[key];
    place.decoder = channel.decoder;
    place.message = channel.findMessage(signal.id, signal.isExtended);
    const Tap& tap = place.taps.emplace_back(Tap{number, signal.index, std::move(take)});
    const MessageStore& store = feed.getMessages();
    for (std::uint64_t i = store.begin(); i < store.end(); ++i) {
        const StoredMessage stored = *store.find(i);
        if (stored.channel == signal.channel) {
            const BusMessage message(stored, channel.bus);
            if (message.key() == key) {
                give(place, tap, message);
            }
        }
    }
    feed.setOnEach([this](const BusMessage& message) { note(message); });
}

void SignalTaps::remove(std::size_t number) {
    for (auto place = tapped.begin(); place != tapped.end();) {
        std::erase_if(place->second.taps, [&](const Tap& tap) { return tap.number == number; });
        place = place->second.taps.empty() ? tapped.erase(place) : std::next(place);
    }
    if (tapped.empty()) {
        feed.setOnEach({});
    }
}

void SignalTaps::clear() {
    tapped.clear();
    feed.setOnEach({});
}

void SignalTaps::note(const BusMessage& message) {
    const auto place = tapped.find(message.key());
    if (place != tapped.end()) {
        for (const Tap& tap : place->second.taps) {
            give(place->second, tap, message);
        }
    }
}

}  // namespace station
