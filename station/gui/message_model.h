#pragma once

#include <QAbstractTableModel>
#include <optional>

#include "station/gui/live_columns.h"
#include "station/view/live_feed.h"
#include "station/view/message_list.h"

namespace station {

/// A row for each message that came and passes the filter, in the order of time.
class MessageModel final : public QAbstractTableModel {
  public:
    enum Column { Time, Channel, Identifier, Length, Flags, Data, columns };

    explicit MessageModel(const LiveFeed& liveFeed) : feed(&liveFeed) {}

    /// Takes over what the feed has now, for about that long; how many rows have gone from the
    /// front. It isn't owned and stays until the next update.
    int update(const LiveFeed& from, std::chrono::milliseconds slice);
    void setFilter(LiveFilter filter);
    void setTimeForm(TimeForm newForm);
    const MessageList& getList() const { return list; }
    /// Empty if it is gone again.
    std::optional<BusMessage> getMessage(int row) const;

    int rowCount(const QModelIndex& parent = {}) const override {
        return parent.isValid() ? 0 : count;
    }
    int columnCount(const QModelIndex& parent = {}) const override {
        return parent.isValid() ? 0 : columns;
    }
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    QVariant data(const QModelIndex& index, int role) const override;

  private:
    void reset();
    QString text(int row, int column) const;
    QString timeText(int row, const BusMessage& message) const;

    const LiveFeed* feed;
    MessageList list;
    TimeForm form = TimeForm::SinceStart;
    std::uint64_t generation = 0;
    std::uint64_t goneBefore = 0;
    int count = 0;  ///< rows
};

}  // namespace station
