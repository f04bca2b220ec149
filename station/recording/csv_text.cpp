#include "station/recording/csv_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

namespace station {

void CsvTime::updateDay(std::int64_t newDay) {
    const std::chrono::year_month_day date{std::chrono::sys_days(std::chrono::days(newDay))};
    day = newDay;
    dayText = fmt::format("{:04}-{:02}-{:02}T", static_cast<int>(date.year()),
                          static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
}

void CsvTime::put(LineCursor& line, std::int64_t utcNanoseconds) {
    constexpr std::uint64_t perSecond = 1'000'000'000;
    constexpr std::uint64_t secondsPerDay = 86'400;
    const auto time = static_cast<std::uint64_t>(std::max<std::int64_t>(utcNanoseconds, 0));
    const std::uint64_t second = time / perSecond;
    if (const auto itsDay = static_cast<std::int64_t>(second / secondsPerDay); itsDay != day) {
        updateDay(itsDay);
    }
    line.put(dayText);
    line.putDecimal(second / 3'600 % 24, 2);
    line.put(':');
    line.putDecimal(second / 60 % 60, 2);
    line.put(':');
    line.putDecimal(second % 60, 2);
    line.put('.');
    line.putDecimal(time % perSecond, 9);
    line.put('Z');
}

}  // namespace station
