#include "station/gui/live_models.h"

namespace station {
namespace {

/// To the microsecond.
QString secondsText(double seconds) {
    constexpr int decimals = 6;
    return QString::number(seconds, 'f', decimals);
}

}  // namespace

LiveModel::LiveModel(const LiveFeed& liveFeed, QStringList columnTitles, QList<int> numberColumns)
    : feed(liveFeed), titles(std::move(columnTitles)), numbers(std::move(numberColumns)) {}

int LiveModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(titles.size());
}

QVariant LiveModel::headerData(int section, Qt::Orientation orientation, int role) const {
    return orientation == Qt::Horizontal && role == Qt::DisplayRole ? titles.value(section)
                                                                    : QVariant();
}

QVariant LiveModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid()) {
        return {};
    }
    if (role == Qt::DisplayRole) {
        return text(static_cast<std::size_t>(index.row()), index.column());
    }
    if (role == Qt::TextAlignmentRole && numbers.contains(index.column())) {
        return QVariant(Qt::AlignRight | Qt::AlignVCenter);
    }
    return {};
}

template <typename Change>
void LiveModel::resize(std::size_t rows, const Change& change) {
    const int before = rowCount();
    const int after = static_cast<int>(rows);
    if (after > before) {
        beginInsertRows({}, before, after - 1);
        change();
        endInsertRows();
    } else if (after < before) {
        beginRemoveRows({}, after, before - 1);
        change();
        endRemoveRows();
    } else {
        change();
    }
    if (after > 0) {
        Q_EMIT dataChanged(index(0, 0), index(after - 1, columnCount() - 1));
    }
}

ChannelModel::ChannelModel(const LiveFeed& liveFeed)
    : LiveModel(liveFeed, {"Channel", "Bus", "Messages", "Rate /s", "Identifier", "Data", "Time s"},
                {2, 3, 6}) {}

void ChannelModel::update() {
    resize(feed.getChannels().size(), [this] { channels = feed.getChannels(); });
}

int ChannelModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(channels.size());
}

QString ChannelModel::text(std::size_t row, int column) const {
    const LiveChannel& channel = channels[row];
    switch (column) {
        case 0:
            return QString::fromStdString(channel.name);
        case 1:
            return QString::fromStdString(channel.busName);
        case 2:
            return QString::number(channel.traffic.getCount());
        case 3:
            return QString::number(channel.traffic.getRate(), 'f', 0);
        case 4:
            return QString::fromStdString(identifierText(channel.last, channel.bus));
        case 5:
            return QString::fromStdString(dataText(channel.last, channel.bus));
        default:
            return channel.traffic.getCount() == 0 ? QString()
                                                   : secondsText(feed.secondsOf(channel.last));
    }
}

MessageModel::MessageModel(const LiveFeed& liveFeed)
    : LiveModel(liveFeed, {"Time s", "Channel", "Identifier", "Length", "Data"}, {0, 3}) {}

void MessageModel::update() {
    std::vector<LiveMessage> last = feed.lastMessages();
    resize(last.size(), [&] { messages = std::move(last); });
}

int MessageModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(messages.size());
}

QString MessageModel::text(std::size_t row, int column) const {
    const LiveMessage& message = messages[row];
    if (message.channel >= feed.getChannels().size()) {
        return {};  // of a measurement before
    }
    const LiveChannel& channel = feed.getChannels()[message.channel];
    switch (column) {
        case 0:
            return secondsText(feed.secondsOf(message));
        case 1:
            return QString::fromStdString(channel.name);
        case 2:
            return QString::fromStdString(identifierText(message, channel.bus));
        case 3:
            return QString::number(dataLength(message, channel.bus));
        default:
            return QString::fromStdString(dataText(message, channel.bus));
    }
}

}  // namespace station
