#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <limits>

/// Arithmetic that both time values share. Nothing here overflows: what does not fit saturates, so
/// a hostile timestamp from the network gives an odd time and nothing worse.
namespace gnss_arithmetic {

inline constexpr std::int64_t secondsPerDay = 86400;
inline constexpr std::int64_t secondsPerWeek = 604800;
/// 6 January 1980, the start of week 0, in seconds since 1 January 1970.
inline constexpr std::int64_t weekEpochUnixSeconds = 315964800;
/// The same day, counted in days since 30 December 1899.
inline constexpr double weekEpochDayCount = 29226.0;
/// 1 January 1970, counted in days since 30 December 1899.
inline constexpr std::int64_t unixEpochDayCount = 25569;
inline constexpr double int64Limit = 9223372036854775808.0;

/// `value` cut towards zero; not-a-number counts as 0.
constexpr std::int64_t cut(double value) {
    if (value >= int64Limit) {
        return std::numeric_limits<std::int64_t>::max();
    }
    if (value < -int64Limit) {
        return std::numeric_limits<std::int64_t>::min();
    }
    return value == value ? static_cast<std::int64_t>(value) : 0;
}

/// What `cut` cuts off, with the sign of `value`; 0.0 for infinities and not-a-number.
constexpr double fractionOf(double value) {
    const bool fits = value > -int64Limit && value < int64Limit;
    return fits ? value - static_cast<double>(static_cast<std::int64_t>(value)) : 0.0;
}

constexpr std::int64_t add(std::int64_t a, std::int64_t b) {
    using Limits = std::numeric_limits<std::int64_t>;
    if (b > 0) {
        return a > Limits::max() - b ? Limits::max() : a + b;
    }
    return a < Limits::min() - b ? Limits::min() : a + b;
}

constexpr std::int32_t toInt32(std::int64_t value) {
    using Limits = std::numeric_limits<std::int32_t>;
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(value, Limits::min(), Limits::max()));
}

struct SplitSeconds {
    std::int64_t whole;
    double fraction;  ///< from 0.0 up to but not including 1.0
};

/// Floors `seconds`, so that the fraction is never negative.
constexpr SplitSeconds split(double seconds) {
    SplitSeconds parts{cut(seconds), fractionOf(seconds)};
    if (parts.fraction < 0.0) {
        parts.fraction += 1.0;
        --parts.whole;
    }
    if (parts.fraction >= 1.0) {  // the fraction was too small to differ from a whole second
        parts.fraction = 0.0;
        ++parts.whole;
    }
    return parts;
}

}  // namespace gnss_arithmetic

/// One moment as a calendar date in UTC, with all fields derived at once and in step.
///
/// Every message's timestamp passes through here on its way to a `GNSSTime`, which needs only
/// `unixTime` and `fraction`. All is inline integer arithmetic without a call, so a compiler drops
/// the calendar fields where nobody looks at them.
///
/// A moment before 1970 becomes the start of 1970. The calendar fields stop at the last day of the
/// year 32767; `dayCount` and `unixTime` go on, and saturate at the ends of 64 bits.
class GNSSDateTime {
  public:
    std::int32_t hour = 0;
    std::int32_t minute = 0;
    std::int32_t second = 0;  ///< 0 to 59: leap seconds are not counted
    double fraction = 0.0;    ///< of a second, from 0.0 up to but not including 1.0
    std::int32_t day = 0;     ///< 1 to 31
    std::int32_t month = 0;   ///< 1 to 12
    std::int32_t year = 0;
    double dayCount = 0.0;      ///< days since 30 December 1899, with their fraction
    std::int64_t unixTime = 0;  ///< whole seconds since 1 January 1970

    /// Values out of their ranges carry over: hour 25 is one o'clock of the next day, month 0 is
    /// December of the year before.
    constexpr GNSSDateTime(std::int32_t hours, std::int32_t minutes, double seconds,
                           std::int32_t dayOfMonth, std::int32_t monthOfYear,
                           std::int32_t fullYear) {
        const auto parts = gnss_arithmetic::split(seconds);
        fraction = parts.fraction;
        const std::int64_t days = daysToMonth(monthOfYear, fullYear) + dayOfMonth - 1;
        finish(gnss_arithmetic::add(days * gnss_arithmetic::secondsPerDay +
                                        std::int64_t{hours} * 3600 + std::int64_t{minutes} * 60,
                                    parts.whole));
    }

    /// `days` since 30 December 1899. A day count of today resolves about a microsecond.
    constexpr explicit GNSSDateTime(double days) {
        // Whole days and the time of day go separate ways: the product of both would be rounded
        // across a full second that the fraction has not reached.
        const double secondOfDay =
            gnss_arithmetic::fractionOf(days) * static_cast<double>(gnss_arithmetic::secondsPerDay);
        fraction = gnss_arithmetic::fractionOf(secondOfDay);
        constexpr std::int64_t limit =
            std::numeric_limits<std::int64_t>::max() / gnss_arithmetic::secondsPerDay / 2;
        const std::int64_t wholeDays = std::clamp(gnss_arithmetic::cut(days), -limit, limit);
        finish((wholeDays - gnss_arithmetic::unixEpochDayCount) * gnss_arithmetic::secondsPerDay +
               gnss_arithmetic::cut(secondOfDay));
    }

    /// `seconds` is added to `unixSeconds` and may be negative or above 1.0.
    constexpr GNSSDateTime(std::int64_t unixSeconds, double seconds) {
        const auto parts = gnss_arithmetic::split(seconds);
        fraction = parts.fraction;
        finish(gnss_arithmetic::add(unixSeconds, parts.whole));
    }

    constexpr GNSSDateTime(const GNSSDateTime& other, double seconds)
        : GNSSDateTime(other.hour, other.minute, other.second + other.fraction + seconds, other.day,
                       other.month, other.year) {}

    /// Seconds from `a` to `b`, that is, b minus a.
    static constexpr double Difference(const GNSSDateTime& a, const GNSSDateTime& b) {
        return static_cast<double>(b.unixTime - a.unixTime) + b.fraction - a.fraction;
    }
    friend constexpr double operator-(const GNSSDateTime& b, const GNSSDateTime& a) {
        return Difference(a, b);
    }

  private:
    /// The last one that the standard library's calendar counts.
    static constexpr int lastYear = 32767;

    /// Days from 1 January 1970 to the first of a month in the years 0 to `lastYear`, to which
    /// other years are clamped.
    static constexpr std::int64_t daysToMonth(std::int32_t monthOfYear, std::int32_t fullYear) {
        const std::int64_t months = std::clamp<std::int64_t>(
            std::int64_t{fullYear} * 12 + monthOfYear - 1, 0, std::int64_t{lastYear} * 12 + 11);
        const std::chrono::year calendarYear(static_cast<int>(months / 12));
        const auto monthIndex = static_cast<unsigned>(months % 12);
        return std::chrono::sys_days(calendarYear / std::chrono::month(monthIndex + 1) / 1)
            .time_since_epoch()
            .count();
    }

    /// Derives all fields but `fraction`, which is set before.
    constexpr void finish(std::int64_t unixSeconds) {
        if (unixSeconds < 0) {
            unixSeconds = 0;
            fraction = 0.0;
        }
        unixTime = unixSeconds;
        const std::int64_t days = unixSeconds / gnss_arithmetic::secondsPerDay;
        const std::int64_t secondOfDay = unixSeconds - days * gnss_arithmetic::secondsPerDay;
        dayCount = (static_cast<double>(secondOfDay) + fraction) /
                       static_cast<double>(gnss_arithmetic::secondsPerDay) +
                   static_cast<double>(days + gnss_arithmetic::unixEpochDayCount);
        hour = static_cast<std::int32_t>(secondOfDay / 3600);
        minute = static_cast<std::int32_t>(secondOfDay / 60 % 60);
        second = static_cast<std::int32_t>(secondOfDay % 60);

        using std::chrono::sys_days;
        constexpr std::int64_t lastDay =
            sys_days(std::chrono::year(lastYear) / 12 / 31).time_since_epoch().count();
        const std::chrono::year_month_day date(
            sys_days(std::chrono::days(std::min(days, lastDay))));
        day = static_cast<std::int32_t>(static_cast<unsigned>(date.day()));
        month = static_cast<std::int32_t>(static_cast<unsigned>(date.month()));
        year = static_cast<int>(date.year());
    }
};

/// Device time as week and second of the week, counted from 6 January 1980 without leap seconds.
///
/// A double of all the seconds since then would resolve a quarter of a microsecond and lose what
/// the capture modules deliver; within one week it resolves a tenth of a nanosecond. Invariant: the
/// second of the week is from 0.0 up to but not including 604800.0. A time whose week does not fit
/// into 32 bits saturates at the last or first week, and not-a-number counts as 0.0.
class GNSSTime {
  public:
    constexpr GNSSTime() = default;

    /// `seconds` may be negative or longer than a week: it is carried over into the week.
    constexpr GNSSTime(std::int32_t baseWeek, double seconds) : week(baseWeek) {
        if (seconds >= 0.0 && seconds < weekLength) {
            secondOfWeek = seconds;
        } else {
            carryOver(seconds);
        }
    }

    /// `days` since 30 December 1899.
    static constexpr GNSSTime FromDayCount(double days) {
        const double weeks = (days - gnss_arithmetic::weekEpochDayCount) / 7.0;
        return {gnss_arithmetic::toInt32(gnss_arithmetic::cut(weeks)),
                gnss_arithmetic::fractionOf(weeks) * weekLength};
    }

    static constexpr GNSSTime FromDateTime(const GNSSDateTime& dateTime) {
        const std::int64_t seconds =
            gnss_arithmetic::add(dateTime.unixTime, -gnss_arithmetic::weekEpochUnixSeconds);
        return {gnss_arithmetic::toInt32(seconds / gnss_arithmetic::secondsPerWeek),
                dateTime.fraction + static_cast<double>(seconds % gnss_arithmetic::secondsPerWeek)};
    }

    constexpr void AddSeconds(double seconds) { *this = GNSSTime(week, secondOfWeek + seconds); }

    /// Days since 30 December 1899, with their fraction.
    constexpr double ToDayCount() const {
        return week * 7.0 + gnss_arithmetic::weekEpochDayCount + secondOfWeek / 86400.0;
    }

    /// Whole seconds since 1 January 1970, cut towards the epoch of week 0.
    constexpr std::int64_t ToUnixTime() const {
        return gnss_arithmetic::cut(week * weekLength + secondOfWeek) +
               gnss_arithmetic::weekEpochUnixSeconds;
    }

    constexpr std::int32_t GetWeek() const { return week; }
    constexpr double GetSecondOfWeek() const { return secondOfWeek; }

    /// Seconds from `a` to `b`, that is, b minus a. The weeks are subtracted in 32 bits and wrap.
    static constexpr double Difference(const GNSSTime& a, const GNSSTime& b) {
        const auto weeks = static_cast<std::int32_t>(std::int64_t{b.week} - a.week);
        return (b.secondOfWeek - a.secondOfWeek) + weeks * weekLength;
    }
    friend constexpr double operator-(const GNSSTime& b, const GNSSTime& a) {
        return Difference(a, b);
    }
    friend constexpr bool operator==(const GNSSTime&, const GNSSTime&) = default;

  private:
    /// Out of the way of the usual time, which is in its week.
    [[gnu::noinline]] constexpr void carryOver(double seconds) {
        constexpr std::int64_t weekLimit = std::int64_t{1} << 33;
        std::int64_t weeks =
            std::clamp(gnss_arithmetic::cut(seconds / weekLength), -weekLimit, weekLimit);
        double rest = seconds - static_cast<double>(weeks) * weekLength;
        if (rest < 0.0) {
            rest += weekLength;
            --weeks;
        }
        if (rest >= weekLength) {  // too close to the next week to differ from it
            rest = 0.0;
            ++weeks;
        }
        week = gnss_arithmetic::toInt32(week + weeks);
        secondOfWeek = rest > 0.0 ? rest : 0.0;
    }

    static constexpr double weekLength = static_cast<double>(gnss_arithmetic::secondsPerWeek);

    std::int32_t week = 0;
    double secondOfWeek = 0.0;
};
