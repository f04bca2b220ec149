#include "station/view/live_filter.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <optional>

#include "station/errors.h"

namespace station {
namespace {

constexpr std::string_view separators = " ,\t";

std::string lower(std::string_view text) {
    std::string result(text);
    std::ranges::transform(result, result.begin(), [](unsigned char c) { return std::tolower(c); });
    return result;
}

bool contains(const std::string& text, const std::string& part) {
    return lower(text).find(part) != std::string::npos;
}

/// Empty for what is no number.
std::optional<std::uint32_t> readNumber(std::string_view digits) {
    digits.remove_prefix(digits.starts_with("0x") || digits.starts_with("0X") ? 2 : 0);
    std::uint32_t number = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, number, 16);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

/// Takes the next word, with its quotes, from the front; empty at the end.
std::string_view takeWord(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(separators), text.size()));
    bool isQuoted = false;
    const auto ends = [&](char c) {
        isQuoted = isQuoted != (c == '"');
        return !isQuoted && separators.find(c) != separators.npos;
    };
    const auto end = std::find_if(text.begin(), text.end(), ends);
    const auto length = static_cast<std::size_t>(end - text.begin());
    if (isQuoted) {
        throw UserError(fmt::format("{} has no quote at its end", text));
    }
    const std::string_view word = text.substr(0, length);
    text.remove_prefix(length);
    return word;
}

}  // namespace

LiveFilter LiveFilter::parse(std::string_view text, const std::vector<std::string>& channels,
                             NameOf nameOf) {
    LiveFilter filter;
    filter.messageName = std::move(nameOf);
    for (auto word = takeWord(text); !word.empty(); word = takeWord(text)) {
        filter.terms.push_back(readTerm(word, channels));
    }
    return filter;
}

LiveFilter::Term LiveFilter::readTerm(std::string_view word,
                                      const std::vector<std::string>& channels) {
    Term term;
    const std::string_view whole = word;
    term.excludes = word.starts_with('!');
    word.remove_prefix(term.excludes ? 1 : 0);
    const std::size_t middle = std::min(word.find_first_of(":-"), word.size());
    const bool hasTwo = middle < word.size();
    const auto first = readNumber(word.substr(0, middle));
    const auto last = hasTwo ? readNumber(word.substr(middle + 1)) : first;
    if (first && last) {
        const bool isMask = hasTwo && word[middle] == ':';
        if (!isMask && *last < *first) {
            throw UserError(fmt::format("\"{}\" ends before it begins", whole));
        }
        term.kind = isMask ? Term::Kind::Mask : Term::Kind::Range;
        term.first = *first;
        term.last = *last;
        return term;
    }
    std::string name = lower(word);
    std::erase(name, '"');
    if (name.empty() || (first && hasTwo)) {
        throw UserError(fmt::format(
            "\"{}\" is no filter: write identifiers in hexadecimal, \"100\", \"100-1FF\" or "
            "\"100:7F0\" (with a mask), or names; with ! in front what isn't wanted",
            whole));
    }
    term.name = std::move(name);
    for (const std::string& channel : channels) {
        term.channels.push_back(contains(channel, term.name));
    }
    const bool isChannel = std::ranges::find(term.channels, true) != term.channels.end();
    term.kind = isChannel ? Term::Kind::Channel : Term::Kind::Message;
    return term;
}

bool LiveFilter::matches(const Term& term, const Identity& message) const {
    switch (term.kind) {
        case Term::Kind::Range:
            return message.id >= term.first && message.id <= term.last;
        case Term::Kind::Mask:
            return ((message.id ^ term.first) & term.last) == 0;
        case Term::Kind::Channel:
            return message.channel < term.channels.size() && term.channels[message.channel];
        case Term::Kind::Message:
            return messageName && contains(messageName(message), term.name);
    }
    return false;
}

bool LiveFilter::passes(const Identity& message) const {
    return judge(message, false);
}

bool LiveFilter::passesChannel(std::size_t channel) const {
    return judge({channel}, true);
}

bool LiveFilter::judge(const Identity& message, bool byChannelAlone) const {
    struct Wanted {
        bool isThere = false;
        bool isMet = false;
    };
    Wanted ofChannel;
    Wanted ofMessage;
    for (const Term& term : terms) {
        const bool isChannel = term.kind == Term::Kind::Channel;
        if (byChannelAlone && !isChannel) {
            continue;
        }
        const bool isHit = matches(term, message);
        if (term.excludes && isHit) {
            return false;
        }
        if (!term.excludes) {
            Wanted& wanted = isChannel ? ofChannel : ofMessage;
            wanted.isThere = true;
            wanted.isMet = wanted.isMet || isHit;
        }
    }
    return ofChannel.isThere == ofChannel.isMet && ofMessage.isThere == ofMessage.isMet;
}

}  // namespace station
