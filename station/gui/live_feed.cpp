#include "station/gui/live_feed.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <span>

#include "station/errors.h"

namespace station {
namespace {

constexpr double nanosecondsPerSecond = 1e9;

std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(' ');
    return first == text.npos ? std::string_view()
                              : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

std::uint32_t readNumber(std::string_view text) {
    std::string_view digits = trimmed(text);
    const bool isHex = digits.starts_with("0x") || digits.starts_with("0X");
    digits.remove_prefix(isHex ? 2 : 0);
    std::uint32_t number = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, number, isHex ? 16 : 10);
    if (error != std::errc() || stop != end) {
        throw UserError(fmt::format(
            "\"{}\" is no identifier: write numbers and ranges with commas, hexadecimal after 0x, "
            "as \"0x100-0x1FF, 17\"",
            trimmed(text)));
    }
    return number;
}

}  // namespace

IdentifierFilter IdentifierFilter::parse(std::string_view text) {
    IdentifierFilter filter;
    while (!trimmed(text).empty()) {
        const std::size_t comma = std::min(text.find(','), text.size());
        const std::string_view range = text.substr(0, comma);
        text.remove_prefix(std::min(comma + 1, text.size()));
        const std::size_t dash = std::min(range.find('-'), range.size());
        const std::uint32_t first = readNumber(range.substr(0, dash));
        const std::uint32_t last = dash < range.size() ? readNumber(range.substr(dash + 1)) : first;
        if (last < first) {
            throw UserError(fmt::format("\"{}\" ends before it begins", trimmed(range)));
        }
        filter.ranges.emplace_back(first, last);
    }
    return filter;
}

bool IdentifierFilter::passes(std::uint32_t identifier) const {
    return ranges.empty() || std::any_of(ranges.begin(), ranges.end(), [&](const auto& range) {
               return identifier >= range.first && identifier <= range.second;
           });
}

void MessageRing::add(const LiveMessage& message) {
    if (messages.size() < most) {
        messages.push_back(message);
    } else {
        messages[oldest] = message;
        oldest = (oldest + 1) % most;
    }
}

void MessageRing::clear() {
    messages.clear();
    oldest = 0;
}

std::vector<LiveMessage> MessageRing::inOrder() const {
    std::vector<LiveMessage> ordered(messages);
    std::rotate(ordered.begin(), ordered.begin() + static_cast<std::ptrdiff_t>(oldest),
                ordered.end());
    return ordered;
}

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

void LiveFeed::setAccounts(const Summary& summary) {
    for (std::size_t i = 0; i < std::min(channels.size(), summary.channels.size()); ++i) {
        channels[i].lost = summary.channels[i].getLost();
        channels[i].account = summary.channels[i].describeAccount();
    }
}

double LiveFeed::secondsOf(const LiveMessage& message) const {
    return static_cast<double>(message.utc - startUtc) / nanosecondsPerSecond;
}

void LiveFeed::setFilter(IdentifierFilter newFilter) {
    std::vector<LiveMessage> known = all.inOrder();
    const std::vector<LiveMessage> passed = passing.inOrder();
    known.insert(known.end(), passed.begin(), passed.end());
    for (const LiveChannel& channel : channels) {
        for (const auto& message : {channel.newest, channel.last}) {
            if (message) {
                known.push_back(*message);
            }
        }
    }
    const auto isEarlier = [](const auto& a, const auto& b) { return a.number < b.number; };
    const auto isSame = [](const auto& a, const auto& b) { return a.number == b.number; };
    std::sort(known.begin(), known.end(), isEarlier);
    known.erase(std::unique(known.begin(), known.end(), isSame), known.end());

    filter = std::move(newFilter);
    passing.clear();
    for (LiveChannel& channel : channels) {
        channel.last.reset();
    }
    for (const LiveMessage& message : known) {
        if (filter.passes(message.id)) {
            show(message);
        }
    }
}

void LiveFeed::show(const LiveMessage& message) {
    channels[message.channel].last = message;
    if (!filter.passesAll()) {
        passing.add(message);
    }
}

void LiveFeed::clear() {
    for (LiveChannel& channel : channels) {
        channel = {channel.name, channel.busName, channel.bus};
    }
    all.clear();
    passing.clear();
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
    std::vector<LiveMessage> messages = (filter.passesAll() ? all : passing).inOrder();
    // They came channel by channel, and late where one's clock is behind.
    std::ranges::stable_sort(messages, {}, [](const LiveMessage& message) {
        return std::pair(message.utc, message.channel);
    });
    return messages;
}

void LiveFeed::onMessage(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
                         std::size_t size) {
    if (channel >= channels.size()) {
        return;
    }
    LiveChannel& into = channels[channel];
    LiveMessage message;
    message.number = received++;
    message.channel = channel;
    message.utc = utcNanoseconds;
    const auto take = [&](const auto& decoded) {
        message.id = decoded.id;
        message.length = decoded.length;
        std::copy_n(decoded.data, decoded.length, message.data.begin());
    };
    if (into.bus == BusType::Can && size == CanRecord::size) {
        const CanRecord can(record);
        take(can);
        message.isExtended = can.extended;
    } else if (into.bus == BusType::Lin && size == LinRecord::size) {
        take(LinRecord(record));
    } else {
        return;
    }
    into.traffic.note(utcNanoseconds);
    into.newest = message;
    all.add(message);
    if (filter.passes(message.id)) {
        show(message);
    }
}

std::string identifierText(const LiveMessage& message, BusType bus) {
    return bus == BusType::Lin
               ? fmt::format("{}", message.id)
               : fmt::format("0x{:X}{}", message.id, message.isExtended ? " (ext)" : "");
}

std::string dataText(const LiveMessage& message) {
    return fmt::format("{:02X}", fmt::join(std::span(message.data.data(), message.length), " "));
}

}  // namespace station
