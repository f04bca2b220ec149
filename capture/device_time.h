#pragma once

#include "capture/cmp_message.h"
#include "core/gnss_time.h"

/// Device time as the clocks take it: by way of a `GNSSDateTime`, and for times from 1980 to 2169,
/// as a module that knows the time sends them, by the same arithmetic without the detour.
inline GNSSTime toGnssTime(const DeviceTime& time) {
    using namespace gnss_arithmetic;
    const auto unixSeconds = static_cast<std::int64_t>(time.seconds);
    const double fraction = time.nanoseconds / 1e9;
    const std::int64_t seconds = unixSeconds - weekEpochUnixSeconds;
    if (seconds >= 0 && seconds < 10000 * secondsPerWeek) {
        return GNSSTime(static_cast<std::int32_t>(seconds / secondsPerWeek),
                        static_cast<double>(seconds % secondsPerWeek) + fraction);
    }
    return GNSSTime::FromDateTime(GNSSDateTime(unixSeconds, fraction));
}
