#pragma once

#include <QAbstractTableModel>
#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QStackedWidget>
#include <QTableView>
#include <QTimer>
#include <QWidget>
#include <memory>
#include <vector>

#include "station/gui/live_feed.h"

namespace station {

/// A table that is filled with a picture of the feed now and then. Rows that stay keep what the
/// view knows of them, such as the selection.
class LiveModel : public QAbstractTableModel {
  public:
    /// Takes over what the feed has now. It isn't owned and stays until the next update.
    void update(const LiveFeed& from) {
        feed = &from;
        takeOver();
    }

    int rowCount(const QModelIndex& parent = {}) const override {
        return parent.isValid() ? 0 : count;
    }
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    QVariant data(const QModelIndex& index, int role) const override;

  protected:
    LiveModel(const LiveFeed& liveFeed, QStringList columnTitles, QList<int> numberColumns);

    virtual void takeOver() = 0;

    virtual QString text(std::size_t row, int column) const = 0;
    virtual QString toolTip(std::size_t, int) const { return {}; }
    /// Puts fresh rows in the place of the present ones.
    template <typename Rows>
    void take(Rows& rows, Rows fresh);

    const LiveFeed* feed;

  private:
    const QStringList titles;
    int count = 0;             ///< rows
    const QList<int> numbers;  ///< columns whose texts stand on the right
};

/// A row for each channel, with its last message.
class ChannelModel final : public LiveModel {
  public:
    explicit ChannelModel(const LiveFeed& liveFeed);

  private:
    void takeOver() override;
    QString text(std::size_t row, int column) const override;
    QString toolTip(std::size_t row, int column) const override;

    std::vector<LiveChannel> channels;
};

/// A row for each of the last messages, oldest first.
class MessageModel final : public LiveModel {
  public:
    explicit MessageModel(const LiveFeed& liveFeed);

  private:
    void takeOver() override;
    QString text(std::size_t row, int column) const override;

    std::vector<LiveMessage> messages;
};

/// What comes in, as the user likes to see it: a row for each channel, or the last messages. It
/// draws five times a second whatever the traffic. A pause holds the picture, in both forms, while
/// all goes on behind it; form and filter can be chosen in a held picture as in the present one.
class LivePanel final : public QWidget {
  public:
    explicit LivePanel(LiveFeed& liveFeed);

  private:
    QTableView* makeTable(LiveModel& model, const char* name, const QList<int>& widths);
    /// What is to be seen: the feed, or its picture from the beginning of the pause.
    const LiveFeed& shown() const { return held ? *held : feed; }
    void setPaused(bool isPaused);
    void tick();
    /// Draws the form that is to be seen.
    void update();
    void takeFilter();

    LiveFeed& feed;
    std::unique_ptr<LiveFeed> held;  ///< null without a pause
    ChannelModel channelModel;
    MessageModel messageModel;
    QComboBox* mode;
    QPushButton* pause;
    QLineEdit* filter;
    QStackedWidget* tables;
    QTableView* messages = nullptr;
    QTimer timer;
};

}  // namespace station
