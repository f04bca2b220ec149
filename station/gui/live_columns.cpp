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

QString rowText(const QAbstractItemModel& model, const QModelIndex& row) {
    QStringList cells;
    for (int column = 0; column < model.columnCount(); ++column) {
        cells.append(row.siblingAtColumn(column).data().toString());
    }
    return cells.join('\t');
}

QModelIndex nextRow(const QAbstractItemModel& model, QModelIndex row) {
    if (model.rowCount(row) > 0) {
        return model.index(0, 0, row);
    }
    for (; row.isValid(); row = row.parent()) {
        if (const QModelIndex below = row.siblingAtRow(row.row() + 1); below.isValid()) {
            return below;
        }
    }
    return model.index(0, 0);
}

}  // namespace station
