#pragma once

#include <QAbstractItemModel>
#include <QFont>
#include <QFontDatabase>
#include <QString>
#include <cstdint>

namespace station {

/// Role of a data cell: a bit for each byte that changed lately, as qulonglong.
inline constexpr int changedBytesRole = 0x0101;

inline constexpr const char* loadToolTip =
    "Share of the last second for which messages were on the bus, where its bit rate is given "
    "(Measurement > Databases and bit rates): with the stuff bits of random data, more than 8 "
    "bytes as CAN FD with its rate switched, LIN without the 40 % that nodes may take longer";

/// How times are shown.
enum class TimeForm { SinceStart, Absolute, Differences };

/// "0.001500" for nanoseconds.
QString secondsText(std::int64_t nanoseconds);
/// "12:34:56.789012", of the day in UTC.
QString clockText(std::int64_t utcNanoseconds);

/// The cells of a row, with tabulators between them.
QString rowText(const QAbstractItemModel& model, const QModelIndex& row);
/// The row behind that one, whether it can be seen or lies below one that is folded; the first one
/// behind the last. Of column 0.
QModelIndex nextRow(const QAbstractItemModel& model, QModelIndex row);

/// For identifiers, data and numbers.
inline QFont fixedFont() {
    return QFontDatabase::systemFont(QFontDatabase::FixedFont);
}

}  // namespace station
