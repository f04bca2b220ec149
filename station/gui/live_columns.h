#pragma once

#include <QFont>
#include <QFontDatabase>
#include <QString>
#include <cstdint>

namespace station {

/// Role of a data cell: a bit for each byte that changed lately, as qulonglong.
inline constexpr int changedBytesRole = 0x0101;

/// How times are shown.
enum class TimeForm { SinceStart, Absolute, Differences };

/// "0.001500" for nanoseconds.
QString secondsText(std::int64_t nanoseconds);
/// "12:34:56.789012", of the day in UTC.
QString clockText(std::int64_t utcNanoseconds);

/// For identifiers, data and numbers.
inline QFont fixedFont() {
    return QFontDatabase::systemFont(QFontDatabase::FixedFont);
}

}  // namespace station
