#include "station/gui/live_feed.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <span>

namespace station {
namespace {

constexpr double nanosecondsPerSecond = 1e9;

std::uint32_t identifierOf(const LiveMessage& message, BusType bus) {
    return bus == BusType::Can ? CanRecord(message.record.data()).id
                               : LinRecord(message.record.data()).id;
}

bool isWhole(std::size_t size, BusType bus) {
    return size == (bus == BusType::Can ? CanRecord::size : LinRecord::size);
}

}  // namespace

void LiveFeed::begin(const Summary& summary) {
    channels.clear();
    for (const ChannelSummary& channel : summary.channels) {
        channels.push_back({channel.name, channel.busName, channel.bus});
    }
    clear();
    setStart(summary.startTime);
    mark = Clock::now();
}

void LiveFeed::setStart(Summary::Clock::time_point start) {
    startUtc =
        std::chrono::duration_cast<std::chrono::nanoseconds>(start.time_since_epoch()).count();
}

double LiveFeed::secondsOf(const LiveMessage& message) const {
    return static_cast<double>(message.utc - startUtc) / nanosecondsPerSecond;
}

void LiveFeed::setFilter(IdentifierFilter newFilter) {
    filter = std::move(newFilter);
    clear();
}

void LiveFeed::clear() {
    for (LiveChannel& channel : channels) {
        channel = {channel.name, channel.busName, channel.bus};
    }
    ring.clear();
    oldest = 0;
}

void LiveFeed::updateRates(Clock::time_point now) {
    constexpr double window = 1.0;  // seconds
    const double passed = std::chrono::duration<double>(now - mark).count();
    if (passed < window) {
        return;
    }
    for (LiveChannel& channel : channels) {
        channel.traffic.updateRate(passed);
    }
    mark = now;
}

std::vector<LiveMessage> LiveFeed::lastMessages() const {
    std::vector<LiveMessage> messages(ring);
    std::rotate(messages.begin(), messages.begin() + static_cast<std::ptrdiff_t>(oldest),
                messages.end());
    return messages;
}

void LiveFeed::onMessage(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
                         std::size_t size) {
    if (channel >= channels.size() || !isWhole(size, channels[channel].bus)) {
        return;
    }
    LiveChannel& into = channels[channel];
    LiveMessage message;
    message.channel = channel;
    message.size = size;
    std::copy_n(static_cast<const std::uint8_t*>(record), size, message.record.begin());
    if (!filter.passes(identifierOf(message, into.bus))) {
        return;
    }
    message.utc = utcNanoseconds;
    into.traffic.note(utcNanoseconds);
    into.last = message;
    if (ring.size() < mostMessages) {
        ring.push_back(message);
    } else {
        ring[oldest] = message;
        oldest = (oldest + 1) % mostMessages;
    }
}

std::string identifierText(const LiveMessage& message, BusType bus) {
    if (message.size == 0) {
        return {};
    }
    if (bus == BusType::Lin) {
        return fmt::format("{}", LinRecord(message.record.data()).id);
    }
    const CanRecord can(message.record.data());
    return fmt::format("0x{:X}{}", can.id, can.extended ? " (ext)" : "");
}

std::size_t dataLength(const LiveMessage& message, BusType bus) {
    if (message.size == 0) {
        return 0;
    }
    return bus == BusType::Can ? CanRecord(message.record.data()).length
                               : LinRecord(message.record.data()).length;
}

std::string dataText(const LiveMessage& message, BusType bus) {
    const std::size_t length = dataLength(message, bus);
    const std::uint8_t* const data = bus == BusType::Can ? CanRecord(message.record.data()).data
                                                         : LinRecord(message.record.data()).data;
    return fmt::format("{:02X}", fmt::join(std::span(data, length), " "));
}

}  // namespace station
