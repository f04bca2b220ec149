#include "station/gui/identifier_model.h"

#include <fmt/format.h>

#include <QColor>
#include <QMimeData>
#include <QTextDocument>
#include <algorithm>
#include <functional>
#include <span>
#include <utility>

#include "station/gui/plot/plot_panel.h"

namespace station {
namespace {

constexpr double nanosecondsPerMillisecond = 1e6;
constexpr std::size_t noChannel = static_cast<std::size_t>(-1);
constexpr unsigned channelBits = 16;
constexpr quintptr channelMask = (quintptr{1} << channelBits) - 1;

QString milliseconds(std::int64_t nanoseconds) {
    constexpr int decimals = 3;
    return QString::number(static_cast<double>(nanoseconds) / nanosecondsPerMillisecond, 'f',
                           decimals);
}

/// "12.5 km/h", or "1 (Reverse)".
QString valueText(const DecodedSignal& signal) {
    constexpr int digits = 10;
    QString text = QString::number(signal.value, 'g', digits);
    if (!signal.unit->empty()) {
        text += ' ' + QString::fromStdString(*signal.unit);
    }
    return signal.text != nullptr ? text + " (" + QString::fromStdString(*signal.text) + ')' : text;
}

}  // namespace

// The number of an index says what is above it: nothing above a channel, above an identifier its
// channel, from 1, in the lower bits, and above a signal also the identifier's row, from 1.

IdentifierModel::Level IdentifierModel::levelOf(const QModelIndex& index) {
    return index.internalId() == 0                  ? Level::Channel
           : index.internalId() >> channelBits == 0 ? Level::Identifier
                                                    : Level::Signal;
}

QModelIndex IdentifierModel::index(int row, int column, const QModelIndex& parent) const {
    if (!hasIndex(row, column, parent)) {
        return {};
    }
    if (!parent.isValid()) {
        return createIndex(row, column, quintptr{0});
    }
    const auto above = static_cast<quintptr>(parent.row()) + 1;
    return createIndex(
        row, column, parent.internalId() == 0 ? above : above << channelBits | parent.internalId());
}

QModelIndex IdentifierModel::parent(const QModelIndex& child) const {
    switch (levelOf(child)) {
        case Level::Channel:
            return {};
        case Level::Identifier:
            return createIndex(static_cast<int>(child.internalId()) - 1, 0, quintptr{0});
        case Level::Signal:
            break;
    }
    return createIndex(static_cast<int>(child.internalId() >> channelBits) - 1, 0,
                       child.internalId() & channelMask);
}

int IdentifierModel::rowCount(const QModelIndex& parent) const {
    if (!parent.isValid()) {
        return static_cast<int>(rowsOf.size());
    }
    if (parent.column() != 0 || levelOf(parent) == Level::Signal) {
        return 0;
    }
    if (levelOf(parent) == Level::Channel) {
        return static_cast<int>(rowsOf[static_cast<std::size_t>(parent.row())].size());
    }
    const IdentifierRow* const row = getRow(parent);
    const Decoder::Message* const message = row != nullptr ? findMessage(*row) : nullptr;
    return message != nullptr ? static_cast<int>(message->getDefinition().signals.size()) : 0;
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
    return levelOf(index) == Level::Channel
               ? static_cast<std::size_t>(index.row())
               : static_cast<std::size_t>(index.internalId() & channelMask) - 1;
}

const IdentifierRow& IdentifierModel::rowAt(std::size_t channel, std::size_t row) const {
    return feed->getIdentifiers().getRows()[rowsOf[channel][row]];
}

const IdentifierRow* IdentifierModel::getRow(const QModelIndex& index) const {
    if (!index.isValid() || isStale() || levelOf(index) != Level::Identifier) {
        return nullptr;
    }
    return &rowAt(getChannel(index), static_cast<std::size_t>(index.row()));
}

const Decoder::Message* IdentifierModel::findMessage(const IdentifierRow& row) const {
    return feed->getChannels()[row.last.channel].findMessage(row.last.id, row.last.isExtended);
}

std::optional<SignalTaps::Signal> IdentifierModel::getSignal(const QModelIndex& index) const {
    if (!index.isValid() || isStale() || levelOf(index) != Level::Signal) {
        return {};
    }
    const BusMessage& last =
        rowAt(getChannel(index), static_cast<std::size_t>(index.internalId() >> channelBits) - 1)
            .last;
    return SignalTaps::Signal{last.channel, last.id, last.isExtended,
                              static_cast<std::size_t>(index.row())};
}

QByteArray IdentifierModel::toKey(const SignalTaps::Signal& signal) const {
    const qulonglong words[] = {generation, signal.channel, signal.id,
                                signal.isExtended ? 1ULL : 0ULL, signal.index};
    QByteArrayList texts;
    for (const qulonglong word : words) {
        texts.append(QByteArray::number(word));
    }
    return texts.join(' ');
}

std::optional<SignalTaps::Signal> IdentifierModel::fromKey(const QByteArray& key) const {
    std::vector<qulonglong> words;
    for (const QByteArray& word : key.split(' ')) {
        bool isNumber = false;
        words.push_back(word.toULongLong(&isNumber));
        if (!isNumber) {
            return {};
        }
    }
    constexpr std::size_t count = 5;
    if (words.size() != count || words[0] != generation || isStale()) {
        return {};
    }
    return SignalTaps::Signal{words[1], static_cast<std::uint32_t>(words[2]), words[3] != 0,
                              words[4]};
}

Qt::ItemFlags IdentifierModel::flags(const QModelIndex& index) const {
    const Qt::ItemFlags usual = QAbstractItemModel::flags(index);
    return getSignal(index) ? usual | Qt::ItemIsDragEnabled | Qt::ItemNeverHasChildren : usual;
}

QStringList IdentifierModel::mimeTypes() const {
    return {PlotPanel::mimeType};
}

/// Of the first signal among them.
QMimeData* IdentifierModel::mimeData(const QModelIndexList& indexes) const {
    auto* const carried = new QMimeData;
    for (const QModelIndex& index : indexes) {
        if (const auto signal = getSignal(index)) {
            carried->setData(PlotPanel::mimeType, toKey(*signal));
            break;
        }
    }
    return carried;
}

double IdentifierModel::getNumber(const QModelIndex& index) const {
    if (isStale()) {
        return 0;
    }
    if (levelOf(index) == Level::Signal) {
        return index.row();
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
        case Flags:
            return row != nullptr ? (row->last.isExtended ? 2 : 0) + (isFd(row->last) ? 1 : 0) : 0;
        case Lost:
            return static_cast<double>(channel.lost);
        case Load:
            return channel.load ? channel.load->lately : 0.0;
        default:
            return static_cast<double>(traffic.getLast());
    }
}

QVariant IdentifierModel::headerData(int section, Qt::Orientation orientation, int role) const {
    struct Header {
        const char* title;
        const char* toolTip = nullptr;
    };
    static constexpr Header headers[columns] = {
        {"Channel, identifier"},
        {"Messages"},
        {"Rate /s"},
        {"Cycle ms", "Time between the last two messages"},
        {"Least ms", "Least time between two messages"},
        {"Most ms", "Most time between two messages"},
        {"Age s", "Time since the last message"},
        {"Length", "Data bytes"},
        {"Flags",
         "ext: identifier of 29 bits. FD: CAN FD. Whether the bit rate was switched isn't "
         "recorded."},
        {"Data", "Bytes that changed within the last seconds are marked"},
        {"Time", "Of the last message"},
        {"Lost", "Messages of the channel"},
        {"Bus load", loadToolTip}};
    if (orientation != Qt::Horizontal || section < 0 || section >= columns) {
        return {};
    }
    return role == Qt::DisplayRole   ? QString(headers[section].title)
           : role == Qt::ToolTipRole ? QString(headers[section].toolTip)
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
            if (levelOf(index) == Level::Signal) {
                return signalText(index, column);
            }
            return row != nullptr ? rowText(*row, column) : channelText(getChannel(index), column);
        case Qt::ToolTipRole:
            if (levelOf(index) == Level::Channel && column == Lost) {
                QStringList lines;
                for (const std::string& text : feed->getChannels()[getChannel(index)].account) {
                    lines.append(QString::fromStdString(text));
                }
                return lines.join('\n');
            }
            return column == Name || column == Cycle ? QVariant(toolTip(index)) : QVariant();
        case Qt::DecorationRole:
            return levelOf(index) == Level::Channel && column == Name
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
        case Load:
            return shown.load ? QString::fromStdString(loadText(shown.load->lately)) : QString();
        default:
            return {};
    }
}

/// What the database says of it.
QString IdentifierModel::toolTip(const QModelIndex& index) const {
    const bool isSignal = levelOf(index) == Level::Signal;
    const IdentifierRow* const row = getRow(isSignal ? index.parent() : index);
    const Decoder::Message* const message = row != nullptr ? findMessage(*row) : nullptr;
    if (message == nullptr) {
        return {};
    }
    const MessageDefinition& definition = message->getDefinition();
    std::string text;
    if (isSignal) {
        const SignalDefinition& signal = definition.signals[static_cast<std::size_t>(index.row())];
        text = signal.minimum == signal.maximum
                   ? signal.name
                   : fmt::format("{}, {} to {} {}", signal.name, signal.minimum, signal.maximum,
                                 signal.unit);
        text += '\n' + signal.comment;
    } else {
        text = definition.name;
        if (!definition.sender.empty()) {
            text += ", sent by " + definition.sender;
        }
        if (definition.cycleTime) {
            text += fmt::format(", every {:g} ms", *definition.cycleTime * 1000);
        }
        text += '\n' + definition.comment;
    }
    return Qt::convertFromPlainText(QString::fromStdString(text).trimmed(), Qt::WhiteSpaceNormal);
}

/// The value as it was in the last message; none if that didn't have the signal.
QString IdentifierModel::signalText(const QModelIndex& index, int column) const {
    const IdentifierRow* const row = getRow(index.parent());
    const Decoder::Message* const message = row != nullptr ? findMessage(*row) : nullptr;
    const auto place = static_cast<std::size_t>(index.row());
    if (message == nullptr || place >= message->getDefinition().signals.size()) {
        return {};
    }
    if (column == Name) {
        return QString::fromStdString(message->getDefinition().signals[place].name);
    }
    QString text;
    if (column == Data) {
        message->decode(std::span(row->last.data.data(), row->last.length),
                        [&](const DecodedSignal& signal) {
                            if (signal.index == place) {
                                text = valueText(signal);
                            }
                        });
    }
    return text;
}

QString IdentifierModel::rowText(const IdentifierRow& row, int column) const {
    switch (column) {
        case Name: {
            const Decoder::Message* const message = findMessage(row);
            return QString::fromStdString(
                identifierText(row.last) +
                (message != nullptr ? "  " + message->getDefinition().name : ""));
        }
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
    if (model.getSignal(index)) {
        return true;
    }
    return identifier == nullptr
               ? filter.passesChannel(channel)
               : filter.passes({channel, identifier->last.id, identifier->last.isExtended});
}

bool IdentifierOrder::lessThan(const QModelIndex& left, const QModelIndex& right) const {
    const IdentifierRow* const a = model.getRow(left);
    const IdentifierRow* const b = model.getRow(right);
    if (left.column() == IdentifierModel::Data && a != nullptr && b != nullptr) {
        const auto dataOf = [](const IdentifierRow& row) {
            return std::span(row.last.data.data(), row.last.length);
        };
        return std::ranges::lexicographical_compare(dataOf(*a), dataOf(*b));
    }
    return model.getNumber(left) < model.getNumber(right);
}

}  // namespace station
