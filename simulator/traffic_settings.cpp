#include "simulator/traffic_settings.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>

#include "simulator/failure.h"

namespace sim {
namespace {

constexpr std::array<std::uint8_t, 16> canFdLengths = {0, 1,  2,  3,  4,  5,  6,  7,
                                                       8, 12, 16, 20, 24, 32, 48, 64};
constexpr unsigned maxLength = 64;
constexpr unsigned maxLinLength = 8;

unsigned parseLength(std::string_view text, std::string_view whole) {
    unsigned value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value > maxLength)
        throw Failure(ExitCode::WrongUse,
                      fmt::format("--length {}: give a number of data bytes from 0 to 64, or a "
                                  "range such as 4-8",
                                  whole));
    return value;
}

}  // namespace

LengthRange LengthRange::parse(std::string_view text) {
    const auto dash = text.find('-');
    LengthRange range;
    range.from = parseLength(text.substr(0, dash), text);
    range.to =
        dash == std::string_view::npos ? range.from : parseLength(text.substr(dash + 1), text);
    if (range.from > range.to)
        throw Failure(ExitCode::WrongUse,
                      fmt::format("--length {}: the shorter length comes first", text));
    const bool possible = std::any_of(canFdLengths.begin(), canFdLengths.end(),
                                      [&](unsigned n) { return n >= range.from && n <= range.to; });
    if (!possible)
        throw Failure(ExitCode::WrongUse,
                      fmt::format("--length {}: CAN FD knows no such length; possible are 0 to 8, "
                                  "12, 16, 20, 24, 32, 48 and 64",
                                  text));
    return range;
}

std::vector<std::uint8_t> LengthRange::lengthsFor(Bus bus, Framing framing) const {
    const unsigned least = bus == Bus::Lin || framing == Framing::AsamCmp ? 1 : 0;
    const unsigned most = bus == Bus::Lin ? maxLinLength : maxLength;
    const unsigned low = std::clamp(from, least, most);
    const unsigned high = std::clamp(to, low, most);
    std::vector<std::uint8_t> result;
    for (const std::uint8_t length : canFdLengths)
        if (length >= low && length <= high)
            result.push_back(length);
    return result;
}

std::uint64_t MessageSchedule::countBefore(std::int64_t endNs) const {
    const auto second = static_cast<std::uint64_t>(nsPerSecond);
    const auto end = static_cast<std::uint64_t>(endNs);
    return end / second * perSecond + (end % second * perSecond + second - 1) / second;
}

}  // namespace sim
