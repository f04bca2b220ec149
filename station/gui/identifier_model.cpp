#include "station/gui/identifier_model.h"

#include <QColor>
#include <utility>

namespace station {
namespace {

constexpr double nanosecondsPerMillisecond = 1e6;
constexpr std::size_t noChannel = static_cast<std::size_t>(-1);

QString milliseconds(std::int64_t nanoseconds) {
    constexpr int decimals = 3;
    return QString::number(static_cast<double>(nanoseconds) / nanosecondsPerMillisecond, 'f',
                           decimals);
}

}  // namespace

/// An index of an identifier has its channel's number, from 1, as its own.
QModelIndex IdentifierModel::index(int row, int column, const QModelIndex& parent) const {
    if (!hasIndex(row, column, parent)) {
        return {};
    }
    return createIndex(row, column,
                       parent.isValid() ? static_cast<quintptr>(parent.row()) + 1 : quintptr{0});
}

QModelIndex IdentifierModel::parent(const QModelIndex& child) const {
    return child.internalId() == 0
               ? QModelIndex()
               : createIndex(static_cast<int>(child.internalId()) - 1, 0, quintptr{0});
}

int IdentifierModel::rowCount(const QModelIndex& parent) const {
    if (!parent.isValid()) {
        return static_cast<int>(rowsOf.size());
    }
    const bool isChannel = parent.internalId() == 0 && parent.column() == 0;
    return isChannel ? static_cast<int>(rowsOf[static_cast<std::size_t>(parent.row())].size()) : 0;
}

void IdentifierModel::update(const LiveFeed& from) {
    feed = &from;
    const auto& rows = from.getIdentifiers().getRows();
    const bool isOther = std::exchange(generation, from.getGeneration()) != from.getGeneration();
    if (isOther || rows.size() < rowsSeen) {
        beginResetModel();
        rowsOf.assign(from.getChannels().size(), {});
        rowsSeen = 0;
        endResetModel();
    }
    std::vector<std::vector<std::size_t>> fresh(rowsOf.size());
    for (; rowsSeen < rows.size(); ++rowsSeen) {
        fresh[rows[rowsSeen].last.channel].push_back(rowsSeen);
    }
    for (std::size_t channel = 0; channel < fresh.size(); ++channel) {
        if (!fresh[channel].empty()) {
            auto& there = rowsOf[channel];
            const int first = static_cast<int>(there.size());
            const int last = first + static_cast<int>(fresh[channel].size()) - 1;
            beginInsertRows(index(static_cast<int>(channel), 0), first, last);
            there.insert(there.end(), fresh[channel].begin(), fresh[channel].end());
            endInsertRows();
        }
    }
}

std::size_t IdentifierModel::getChannel(const QModelIndex& index) const {
    if (!index.isValid()) {
        return noChannel;
    }
    return index.internalId() == 0 ? static_cast<std::size_t>(index.row())
                                   : static_cast<std::size_t>(index.internalId()) - 1;
}

const IdentifierRow* IdentifierModel::getRow(const QModelIndex& index) const {
    if (!index.isValid() || index.internalId() == 0 || isStale()) {
        return nullptr;
    }
    const std::size_t place = rowsOf[getChannel(index)][static_cast<std::size_t>(index.row())];
    return &feed->getIdentifiers().getRows()[place];
}

double IdentifierModel::getNumber(const QModelIndex& index) const {
    if (isStale()) {
        return 0;
    }
    const IdentifierRow* const row = getRow(index);
    const LiveChannel& channel = feed->getChannels()[getChannel(index)];
    const ChannelTraffic& traffic = row != nullptr ? row->traffic : channel.traffic;
    switch (index.column()) {
        case Name:
            return row != nullptr ? row->last.id : index.row();
        case Messages:
            return static_cast<double>(traffic.getCount());
        case Rate:
            return traffic.getRate();
        case Cycle:
            return row != nullptr ? static_cast<double>(row->cycle) : 0;
        case LeastCycle:
            return row != nullptr ? static_cast<double>(row->leastCycle) : 0;
        case MostCycle:
            return row != nullptr ? static_cast<double>(row->mostCycle) : 0;
        case Age:
            return -static_cast<double>(traffic.getLast());
        case Length:
            return row != nullptr ? static_cast<double>(row->last.length) : 0;
        case Lost:
            return static_cast<double>(channel.lost);
        default:
            return static_cast<double>(traffic.getLast());
    }
}

QVariant IdentifierModel::headerData(int section, Qt::Orientation orientation, int role) const {
    static const QStringList titles = {"Channel, identifier",
                                       "Messages",
                                       "Rate /s",
                                       "Cycle ms",
                                       "Least ms",
                                       "Most ms",
                                       "Age s",
                                       "Length",
                                       "Flags",
                                       "Data",
                                       "Time",
                                       "Lost"};
    static const QStringList toolTips = {
        {},
        {},
        {},
        "Time between the last two messages",
        "Least time between two messages",
        "Most time between two messages",
        "Time since the last message",
        "Data bytes",
        "ext: identifier of 29 bits. FD: CAN FD. Whether the bit rate was switched isn't recorded.",
        "Bytes that changed within the last seconds are marked",
        "Of the last message",
        "Messages of the channel"};
    if (orientation != Qt::Horizontal) {
        return {};
    }
    return role == Qt::DisplayRole   ? titles.value(section)
           : role == Qt::ToolTipRole ? toolTips.value(section)
                                     : QVariant();
}

QVariant IdentifierModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || isStale()) {
        return {};
    }
    const IdentifierRow* const row = getRow(index);
    const int column = index.column();
    switch (role) {
        case Qt::DisplayRole:
            return row != nullptr ? rowText(*row, column) : channelText(getChannel(index), column);
        case Qt::ToolTipRole:
            if (row == nullptr && column == Lost) {
                QStringList lines;
                for (const std::string& text : feed->getChannels()[getChannel(index)].account) {
                    lines.append(QString::fromStdString(text));
                }
                return lines.join('\n');
            }
            return {};
        case Qt::DecorationRole:
            return row == nullptr && column == Name
                       ? QVariant(QColor(feed->getChannels()[getChannel(index)].color))
                       : QVariant();
        case Qt::FontRole:
            return row != nullptr || column != Name ? QVariant(fixedFont()) : QVariant();
        case Qt::TextAlignmentRole:
            return column != Name && column != Flags && column != Data
                       ? QVariant(Qt::AlignRight | Qt::AlignVCenter)
                       : QVariant();
        case changedBytesRole:
            return row != nullptr && column == Data ? QVariant::fromValue<qulonglong>(row->changed)
                                                    : QVariant();
        default:
            return {};
    }
}

QString IdentifierModel::channelText(std::size_t channel, int column) const {
    const LiveChannel& shown = feed->getChannels()[channel];
    switch (column) {
        case Name:
            return QString("%1 (%2)").arg(QString::fromStdString(shown.name),
                                          QString::fromStdString(shown.busName));
        case Messages:
            return QString::number(shown.traffic.getCount());
        case Rate:
            return QString::number(shown.traffic.getRate(), 'f', 0);
        case Lost:
            return shown.account.empty() ? QString() : QString::number(shown.lost);
        default:
            return {};
    }
}

QString IdentifierModel::rowText(const IdentifierRow& row, int column) const {
    switch (column) {
        case Name:
            return QString::fromStdString(identifierText(row.last));
        case Messages:
            return QString::number(row.traffic.getCount());
        case Rate:
            return QString::number(row.traffic.getRate(), 'f', row.traffic.getRate() < 10 ? 1 : 0);
        case Cycle:
            return row.hasCycle() ? milliseconds(row.cycle) : QString();
        case LeastCycle:
            return row.hasCycle() ? milliseconds(row.leastCycle) : QString();
        case MostCycle:
            return row.hasCycle() ? milliseconds(row.mostCycle) : QString();
        case Age: {
            constexpr double nanosecondsPerSecond = 1e9;
            const auto age = std::max<std::int64_t>(feed->getNow() - row.last.utc, 0);
            return QString::number(static_cast<double>(age) / nanosecondsPerSecond, 'f', 1);
        }
        case Length:
            return QString::number(row.last.length);
        case Flags:
            return QString::fromStdString(flagsText(row.last));
        case Data:
            return QString::fromStdString(dataText(row.last));
        case Time:
            return timeText(row);
        default:
            return {};
    }
}

QString IdentifierModel::timeText(const IdentifierRow& row) const {
    switch (form) {
        case TimeForm::SinceStart:
            return secondsText(row.last.utc - feed->getStart());
        case TimeForm::Absolute:
            return clockText(row.last.utc);
        case TimeForm::Differences:
            break;
    }
    return row.hasCycle() ? secondsText(row.cycle) : QString();
}

IdentifierOrder::IdentifierOrder(IdentifierModel& identifierModel) : model(identifierModel) {
    setDynamicSortFilter(false);  // all of it changes all the time
    setSourceModel(&model);
}

void IdentifierOrder::setFilter(LiveFilter newFilter) {
    filter = std::move(newFilter);
    invalidate();
}

bool IdentifierOrder::filterAcceptsRow(int row, const QModelIndex& parent) const {
    const QModelIndex index = model.index(row, 0, parent);
    const std::size_t channel = model.getChannel(index);
    const IdentifierRow* const identifier = model.getRow(index);
    return identifier == nullptr
               ? filter.passesChannel(channel)
               : filter.passes({channel, identifier->last.id, identifier->last.isExtended});
}

bool IdentifierOrder::lessThan(const QModelIndex& left, const QModelIndex& right) const {
    const int column = left.column();
    if (column == IdentifierModel::Data || column == IdentifierModel::Flags) {
        const QString a = model.data(left, Qt::DisplayRole).toString();
        const QString b = model.data(right, Qt::DisplayRole).toString();
        return a < b;
    }
    return model.getNumber(left) < model.getNumber(right);
}

}  // namespace station
