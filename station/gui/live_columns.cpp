#include "station/gui/live_columns.h"

#include <QDateTime>
#include <QTimeZone>

namespace station {

QString secondsText(std::int64_t nanoseconds) {
    constexpr double nanosecondsPerSecond = 1e9;
    constexpr int decimals = 6;
    return QString::number(static_cast<double>(nanoseconds) / nanosecondsPerSecond, 'f', decimals);
}

QString clockText(std::int64_t utcNanoseconds) {
    constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;
    std::int64_t seconds = utcNanoseconds / nanosecondsPerSecond;
    std::int64_t rest = utcNanoseconds % nanosecondsPerSecond;
    if (rest < 0) {
        rest += nanosecondsPerSecond;
        --seconds;
    }
    const auto time = QDateTime::fromSecsSinceEpoch(seconds, Qt::UTC).time();
    return QString("%1.%2").arg(time.toString("HH:mm:ss")).arg(rest / 1000, 6, 10, QChar('0'));
}

}  // namespace station
