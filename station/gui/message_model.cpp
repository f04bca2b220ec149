#include "station/gui/message_model.h"

#include <QColor>
#include <algorithm>
#include <limits>

namespace station {

void MessageModel::reset() {
    beginResetModel();
    list.clear();
    goneBefore = 0;
    count = 0;
    endResetModel();
}

int MessageModel::update(const LiveFeed& from, std::chrono::milliseconds slice) {
    feed = &from;
    if (std::exchange(generation, from.getGeneration()) != from.getGeneration()) {
        reset();
    }
    list.update(from.getMessages(), from.getBuses(), from.getNow(), slice);
    const auto gone = static_cast<int>(
        std::min<std::uint64_t>(list.getGone() - goneBefore, static_cast<std::uint64_t>(count)));
    goneBefore = list.getGone();
    if (gone > 0) {
        beginRemoveRows({}, 0, gone - 1);
        count -= gone;
        endRemoveRows();
    }
    const auto rows =
        static_cast<int>(std::min<std::size_t>(list.size(), std::numeric_limits<int>::max()));
    if (rows > count) {
        beginInsertRows({}, count, rows - 1);
        count = rows;
        endInsertRows();
    }
    return gone;
}

void MessageModel::setFilter(LiveFilter filter) {
    list.setFilter(std::move(filter));
    reset();
}

void MessageModel::setTimeForm(TimeForm newForm) {
    form = newForm;
    if (count > 0) {
        Q_EMIT dataChanged(index(0, Time), index(count - 1, Time));
    }
}

std::optional<BusMessage> MessageModel::getMessage(int row) const {
    if (row < 0 || static_cast<std::size_t>(row) >= list.size()) {
        return {};
    }
    const auto message = feed->getMessages().find(list.getNumber(static_cast<std::size_t>(row)));
    if (!message || message->channel >= feed->getBuses().size()) {
        return {};
    }
    return BusMessage(*message, feed->getBuses()[message->channel]);
}

QVariant MessageModel::headerData(int section, Qt::Orientation orientation, int role) const {
    static const QStringList titles = {"Time", "Channel", "Identifier", "Length", "Flags", "Data"};
    return orientation == Qt::Horizontal && role == Qt::DisplayRole ? titles.value(section)
                                                                    : QVariant();
}

QVariant MessageModel::data(const QModelIndex& index, int role) const {
    const int column = index.column();
    switch (role) {
        case Qt::DisplayRole:
            return text(index.row(), column);
        case Qt::DecorationRole: {
            const auto message = column == Channel ? getMessage(index.row()) : std::nullopt;
            return message ? QVariant(QColor(feed->getChannels()[message->channel].color))
                           : QVariant();
        }
        case Qt::FontRole:
            return column == Channel ? QVariant() : fixedFont();
        case Qt::TextAlignmentRole:
            return column == Time || column == Length ? QVariant(Qt::AlignRight | Qt::AlignVCenter)
                                                      : QVariant();
        default:
            return {};
    }
}

QString MessageModel::text(int row, int column) const {
    const auto message = getMessage(row);
    if (!message) {
        return {};
    }
    switch (column) {
        case Time:
            return timeText(row, *message);
        case Channel:
            return QString::fromStdString(feed->getChannels()[message->channel].name);
        case Identifier:
            return QString::fromStdString(identifierText(*message));
        case Length:
            return QString::number(message->length);
        case Flags:
            return QString::fromStdString(flagsText(*message));
        default:
            return QString::fromStdString(dataText(*message));
    }
}

QString MessageModel::timeText(int row, const BusMessage& message) const {
    switch (form) {
        case TimeForm::SinceStart:
            return secondsText(message.utc - feed->getStart());
        case TimeForm::Absolute:
            return clockText(message.utc);
        case TimeForm::Differences:
            break;
    }
    const auto before = getMessage(row - 1);
    return before ? secondsText(message.utc - before->utc) : QString();
}

}  // namespace station
