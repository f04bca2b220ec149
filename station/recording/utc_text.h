#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>

#include "station/recording/text_parsing.h"

namespace station {

/// "2023-11-14T22:13:20.123456789Z" in nanoseconds since 1970; a fraction is optional, and so is
/// the "Z". A blank may be in place of the "T". Empty for other texts, and for times before 1970
/// or beyond what 64 bits hold, in April 2262.
inline std::optional<std::int64_t> parseUtc(std::string_view text) {
    constexpr std::int64_t perSecond = 1'000'000'000;
    constexpr std::size_t withoutFraction = 19;
    if (text.ends_with('Z')) {
        text.remove_suffix(1);
    }
    if (text.size() < withoutFraction || text[4] != '-' || text[7] != '-' ||
        (text[10] != 'T' && text[10] != ' ') || text[13] != ':' || text[16] != ':') {
        return std::nullopt;
    }
    const auto part = [&](std::size_t at, std::size_t size) {
        return parseNumber<unsigned>(text.substr(at, size));
    };
    const auto year = part(0, 4);
    const auto month = part(5, 2);
    const auto day = part(8, 2);
    const auto hour = part(11, 2);
    const auto minute = part(14, 2);
    const auto second = part(17, 2);
    const bool isWhole = text.size() == withoutFraction;
    const auto fraction =
        isWhole ? std::optional<std::int64_t>(0) : parseFraction(text.substr(withoutFraction));
    if (!year || !month || !day || !hour || !minute || !second || !fraction) {
        return std::nullopt;
    }
    const std::chrono::year_month_day date{std::chrono::year(static_cast<int>(*year)),
                                           std::chrono::month(*month), std::chrono::day(*day)};
    if (!date.ok() || *year < 1970 || *year > 2262 || *hour > 23 || *minute > 59 || *second > 59) {
        return std::nullopt;
    }
    const std::int64_t days = std::chrono::sys_days(date).time_since_epoch().count();
    const std::int64_t seconds = days * 86'400 + *hour * 3'600 + *minute * 60 + *second;
    std::int64_t time = 0;
    const bool isTooLate = __builtin_mul_overflow(seconds, perSecond, &time) ||
                           __builtin_add_overflow(time, *fraction, &time);
    return isTooLate ? std::nullopt : std::optional(time);
}

}  // namespace station
