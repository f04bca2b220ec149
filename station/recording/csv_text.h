#pragma once

#include <cstdint>
#include <string>

#include "station/recording/text_cursor.h"

namespace station {

/// Writes times as "2023-11-14T22:13:20.123456789Z", quickly where most are of one day.
class CsvTime {
  public:
    static constexpr std::size_t size = 30;

    /// A time before 1970 counts as 0.
    void put(LineCursor& line, std::int64_t utcNanoseconds);

  private:
    void updateDay(std::int64_t newDay);

    std::int64_t day = -1;  ///< since 1970, of the time before
    std::string dayText;    ///< "2023-11-14T"
};

}  // namespace station
