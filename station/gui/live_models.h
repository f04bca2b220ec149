#pragma once

#include <QAbstractTableModel>
#include <vector>

#include "station/gui/live_feed.h"

namespace station {

/// A table that is filled with a picture of the feed now and then. Rows that stay keep what the
/// view knows of them, such as the selection.
class LiveModel : public QAbstractTableModel {
  public:
    /// Takes over what the feed has now.
    virtual void update() = 0;

    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    QVariant data(const QModelIndex& index, int role) const override;

  protected:
    LiveModel(const LiveFeed& liveFeed, QStringList columnTitles, QList<int> numberColumns);

    virtual QString text(std::size_t row, int column) const = 0;
    /// Calls `change`, which brings the table from its number of rows to that one.
    template <typename Change>
    void resize(std::size_t rows, const Change& change);

    const LiveFeed& feed;

  private:
    const QStringList titles;
    const QList<int> numbers;  ///< columns whose texts stand on the right
};

/// A row for each channel, with its last message.
class ChannelModel final : public LiveModel {
  public:
    explicit ChannelModel(const LiveFeed& liveFeed);

    void update() override;
    int rowCount(const QModelIndex& parent = {}) const override;

  private:
    QString text(std::size_t row, int column) const override;

    std::vector<LiveChannel> channels;
};

/// A row for each of the last messages, oldest first.
class MessageModel final : public LiveModel {
  public:
    explicit MessageModel(const LiveFeed& liveFeed);

    void update() override;
    int rowCount(const QModelIndex& parent = {}) const override;

  private:
    QString text(std::size_t row, int column) const override;

    std::vector<LiveMessage> messages;
};

}  // namespace station
