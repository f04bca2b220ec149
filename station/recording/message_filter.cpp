#include "station/recording/message_filter.h"

#include <algorithm>
#include <limits>

#include "station/recording/bus_record.h"
#include "station/recording/text_parsing.h"
#include "station/recording/utc_text.h"

namespace station {

void MessageFilter::addChannel(const ChannelDescription& channel) {
    const bool isWanted =
        options.channels.empty() || std::ranges::count(options.channels, channel.name) != 0;
    channels.push_back({channel, isWanted});
}

bool MessageFilter::passes(std::size_t channel, std::int64_t utcNanoseconds, const void* record,
                           std::size_t size) {
    if (!hasFirst) {
        constexpr auto latest = std::numeric_limits<std::int64_t>::max();
        const auto resolve = [&](const std::optional<Moment>& moment, std::int64_t none) {
            std::int64_t sum = 0;
            return !moment                 ? none
                   : !moment->isSinceFirst ? moment->nanoseconds
                   : __builtin_add_overflow(moment->nanoseconds, utcNanoseconds, &sum) ? latest
                                                                                       : sum;
        };
        hasFirst = true;
        from = resolve(options.from, std::numeric_limits<std::int64_t>::min());
        to = resolve(options.to, latest);
    }
    return channels[channel].isWanted && utcNanoseconds >= from && utcNanoseconds < to &&
           (options.identifiers.empty() ||
            isIdentifierWanted(channels[channel].description.bus, record, size));
}

bool MessageFilter::isIdentifierWanted(BusType bus, const void* record, std::size_t size) const {
    const bool isCan = bus == BusType::Can;
    if (size != (isCan ? CanRecord::size : LinRecord::size)) {
        return true;  // the recordings count it as lost
    }
    const std::uint32_t identifier = isCan ? CanRecord(record).id : LinRecord(record).id;
    return std::ranges::any_of(options.identifiers, [&](const Identifiers& wanted) {
        return wanted.first <= identifier && identifier <= wanted.last;
    });
}

std::vector<std::string> MessageFilter::getUnknownChannels() const {
    std::vector<std::string> unknown;
    std::ranges::copy_if(options.channels, std::back_inserter(unknown), [&](const auto& name) {
        return std::ranges::none_of(
            channels, [&](const Channel& channel) { return channel.description.name == name; });
    });
    return unknown;
}

std::optional<MessageFilter::Moment> parseMoment(std::string_view text) {
    if (const auto utc = parseUtc(text)) {
        return MessageFilter::Moment{*utc, false};
    }
    const bool isWhole = text.find('.') == std::string_view::npos;
    const auto seconds = parseSeconds(isWhole ? std::string(text) + ".0" : std::string(text));
    return seconds ? std::optional(MessageFilter::Moment{*seconds, true}) : std::nullopt;
}

std::optional<MessageFilter::Identifiers> parseIdentifiers(std::string_view text) {
    const std::size_t dash = text.find('-');
    const auto first = parseDecimalOrHex<std::uint32_t>(text.substr(0, dash));
    const auto last = dash == std::string_view::npos
                          ? first
                          : parseDecimalOrHex<std::uint32_t>(text.substr(dash + 1));
    return first && last && *first <= *last && *last <= CanFrame::identifierMask
               ? std::optional(MessageFilter::Identifiers{*first, *last})
               : std::nullopt;
}

}  // namespace station
