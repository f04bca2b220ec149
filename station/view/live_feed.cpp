#include "station/view/live_feed.h"

#include <algorithm>

#include "station/recording/bus_record.h"

namespace station {

namespace {

/// 0 for a channel without a module.
std::uint32_t colorOf(const ChannelSummary& channel, const std::vector<Module>& modules) {
    if (channel.module >= modules.size()) {
        return 0;
    }
    const auto& channels = modules[channel.module].channels;
    const auto found = std::ranges::find(channels, channel.interfaceId, &Channel::interfaceId);
    return found != channels.end() ? found->color : 0;
}

}  // namespace

void LiveFeed::begin(const Summary& summary, const Decoders& decoders) {
    channels.clear();
    buses.clear();
    for (const ChannelSummary& channel : summary.channels) {
        channels.push_back(
            {channel.name, channel.busName, channel.bus, colorOf(channel, summary.modules)});
        buses.push_back(channel.bus);
    }
    setDecoders(decoders);
    clear();
    follow(summary);
    mark = Clock::now();
}

void LiveFeed::setDecoders(const Decoders& decoders) {
    for (std::size_t i = 0; i < channels.size(); ++i) {
        channels[i].decoder = i < decoders.size() ? decoders[i] : nullptr;
    }
    awaitsDecoders = false;
    ++generation;
}

void LiveFeed::follow(const Summary& summary) {
    using std::chrono::nanoseconds;
    startUtc =
        std::chrono::duration_cast<nanoseconds>(summary.startTime.time_since_epoch()).count();
    const std::chrono::duration<double> elapsed(summary.seconds);
    nowUtc = startUtc + std::chrono::duration_cast<nanoseconds>(elapsed).count();
    load = summary.getLoad();
    for (std::size_t i = 0; i < std::min(channels.size(), summary.channels.size()); ++i) {
        channels[i].lost = summary.channels[i].getLost();
        channels[i].load = summary.channels[i].load;
        channels[i].account = summary.channels[i].describeAccount();
    }
}

void LiveFeed::clear() {
    for (LiveChannel& channel : channels) {
        channel = {channel.name, channel.busName, channel.bus, channel.color, {}, 0, channel.load,
                   {},           channel.decoder};
    }
    messages.clear();
    identifiers.clear();
    looked = messages.end();
    missed = 0;
    ++generation;
}

void LiveFeed::refresh(Clock::time_point now, std::chrono::milliseconds slice) {
    constexpr double window = 1.0;         // seconds
    constexpr std::uint64_t turn = 16384;  // messages between two looks at the time
    const auto until = Clock::now() + slice;
    if (looked < messages.begin()) {
        missed += messages.begin() - looked;
        looked = messages.begin();
    }
    do {
        const std::uint64_t stop = std::min(messages.end(), looked + turn);
        messages.forEach(looked, stop, [&](std::uint64_t, const StoredMessage& stored) {
            identifiers.add(BusMessage(stored, buses[stored.channel]));
        });
        looked = stop;
    } while (looked < messages.end() && Clock::now() < until);
    const double passed = std::chrono::duration<double>(now - mark).count();
    if (passed >= window) {
        for (LiveChannel& channel : channels) {
            channel.traffic.updateRate(passed);
        }
        identifiers.updateRates(passed);
        mark = now;
    }
}

void LiveFeed::setHeld(bool isHeld) {
    messages.setMost(isHeld ? heldShare : memory - heldShare);
}

void LiveFeed::onMessage(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
                         std::size_t size) {
    if (channel >= channels.size()) {
        return;
    }
    LiveChannel& into = channels[channel];
    StoredMessage message{channel, utcNanoseconds, static_cast<const std::uint8_t*>(record), size};
    if (into.bus == BusType::Can && size == CanRecord::size) {
        message.size = offsetof(CanFrame, data) + CanRecord(record).length;
    } else if (into.bus != BusType::Lin || size != LinRecord::size) {
        return;
    }
    into.traffic.note(utcNanoseconds);
    messages.add(message);
}

}  // namespace station
