#include "station/host/station_data.h"

#include <algorithm>
#include <cmath>

#include "core/gnss_time.h"

namespace station {
namespace {

constexpr auto secondsPerDay = static_cast<double>(gnss_arithmetic::secondsPerDay);
constexpr auto unixEpochDayCount = static_cast<double>(gnss_arithmetic::unixEpochDayCount);
/// 1 January 2200, before the end of 64-bit nanoseconds.
constexpr double lastDayCount = 109572.0;
constexpr std::int64_t nanosecondsPerMicrosecond = 1000;

}  // namespace

void StationData::setStart(SystemClock::time_point time) {
    startNanoseconds = std::chrono::nanoseconds(time.time_since_epoch()).count();
    constexpr std::int64_t second = 1000000000;
    dayCount = GNSSDateTime(startNanoseconds / second,
                            static_cast<double>(startNanoseconds % second) * 1e-9)
                   .dayCount;
}

StationData::SystemClock::time_point StationData::getStart() const {
    return SystemClock::time_point(std::chrono::duration_cast<SystemClock::duration>(
        std::chrono::nanoseconds(startNanoseconds)));
}

HostResult StationData::getBufferState(std::int32_t* size, std::int32_t* position) {
    *size = MasterClock::bufferSize;
    *position = clock->getPositionInBuffer();
    return HostCode::success;
}

HostResult StationData::setStartTime(double newDayCount) {
    if (!(newDayCount >= unixEpochDayCount && newDayCount <= lastDayCount)) {
        return fail(HostCode::invalidArgument,
                    "the start time of the measurement is no day between 1970 and 2200");
    }
    dayCount = newDayCount;
    const double microseconds = (newDayCount - unixEpochDayCount) * secondsPerDay * 1e6;
    startNanoseconds = std::llround(microseconds) * nanosecondsPerMicrosecond;
    return HostCode::success;
}

HostResult StationData::findChannel(const std::int32_t* indices, std::int32_t count,
                                    HostChannel** channel) {
    return guarded([&] {
        return handOver(channels->find({indices, indices + std::max(count, 0)}), channel);
    });
}

}  // namespace station
