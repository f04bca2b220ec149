#pragma once

#include <QAbstractItemModel>
#include <QSortFilterProxyModel>
#include <optional>
#include <vector>

#include "station/gui/live_columns.h"
#include "station/view/live_feed.h"
#include "station/view/live_filter.h"
#include "station/view/signal_taps.h"

namespace station {

/// A tree: the channels, below each a row for every identifier that came, and below that, where a
/// database defines it, its signals, which can be dragged. What is in the rows changes without a
/// notification; views are drawn again when it is time to.
class IdentifierModel final : public QAbstractItemModel {
  public:
    enum Column {
        Name,
        Messages,
        Rate,
        Cycle,
        LeastCycle,
        MostCycle,
        Age,
        Length,
        Flags,
        Data,
        Time,
        Lost,
        Load,
        columns
    };

    explicit IdentifierModel(const LiveFeed& liveFeed) : feed(&liveFeed) {}

    /// Takes over what the feed has now. It isn't owned and stays until the next update.
    void update(const LiveFeed& from);
    void setTimeForm(TimeForm newForm) { form = newForm; }
    /// Of all channels.
    std::size_t countRows() const { return rowsSeen; }
    /// Null for a channel, and for a signal.
    const IdentifierRow* getRow(const QModelIndex& index) const;
    /// Empty for what is no signal.
    std::optional<SignalTaps::Signal> getSignal(const QModelIndex& index) const;
    /// What a drag of a signal carries.
    QByteArray toKey(const SignalTaps::Signal& signal) const;
    /// Empty for other bytes, and for one of channels that there were before.
    std::optional<SignalTaps::Signal> fromKey(const QByteArray& key) const;
    /// Of the channel, or of the channel that the identifier is below.
    std::size_t getChannel(const QModelIndex& index) const;
    /// What the column is sorted by, where it is a number.
    double getNumber(const QModelIndex& index) const;

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& = {}) const override { return columns; }
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QModelIndexList& indexes) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    QVariant data(const QModelIndex& index, int role) const override;

  private:
    /// Whether the feed has other channels and rows by now, and this will be updated soon.
    bool isStale() const { return feed->getGeneration() != generation; }
    enum class Level { Channel, Identifier, Signal };
    static Level levelOf(const QModelIndex& index);
    /// Of an identifier's place below its channel.
    const IdentifierRow& rowAt(std::size_t channel, std::size_t row) const;
    /// Null: no database defines it.
    const Decoder::Message* findMessage(const IdentifierRow& row) const;
    QString toolTip(const QModelIndex& index) const;
    QString signalText(const QModelIndex& index, int column) const;
    QString channelText(std::size_t channel, int column) const;
    QString rowText(const IdentifierRow& row, int column) const;
    QString timeText(const IdentifierRow& row) const;

    const LiveFeed* feed;
    TimeForm form = TimeForm::SinceStart;
    std::uint64_t generation = 0;
    std::vector<std::vector<std::size_t>> rowsOf;  ///< of each channel, places in the table
    std::size_t rowsSeen = 0;                      ///< of the table
};

/// The same tree as the user wants it: filtered, and sorted by a column.
class IdentifierOrder final : public QSortFilterProxyModel {
  public:
    explicit IdentifierOrder(IdentifierModel& identifierModel);

    void setFilter(LiveFilter newFilter);

  protected:
    bool filterAcceptsRow(int row, const QModelIndex& parent) const override;
    bool lessThan(const QModelIndex& left, const QModelIndex& right) const override;

  private:
    IdentifierModel& model;
    LiveFilter filter;
};

}  // namespace station
