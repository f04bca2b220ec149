#pragma once

#include <QAbstractItemModel>
#include <QSortFilterProxyModel>
#include <vector>

#include "station/gui/live_columns.h"
#include "station/view/live_feed.h"
#include "station/view/live_filter.h"

namespace station {

/// A tree: the channels, and below each a row for every identifier that came. What is in the rows
/// changes without a notification; views are drawn again when it is time to.
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
        columns
    };

    explicit IdentifierModel(const LiveFeed& liveFeed) : feed(&liveFeed) {}

    /// Takes over what the feed has now. It isn't owned and stays until the next update.
    void update(const LiveFeed& from);
    void setTimeForm(TimeForm newForm) { form = newForm; }
    /// Null for a channel.
    const IdentifierRow* getRow(const QModelIndex& index) const;
    /// Of the channel, or of the channel that the identifier is below.
    std::size_t getChannel(const QModelIndex& index) const;
    /// What the column is sorted by, where it is a number.
    double getNumber(const QModelIndex& index) const;

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& = {}) const override { return columns; }
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    QVariant data(const QModelIndex& index, int role) const override;

  private:
    /// Whether the feed has other channels and rows by now, and this will be updated soon.
    bool isStale() const { return feed->getGeneration() != generation; }
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
