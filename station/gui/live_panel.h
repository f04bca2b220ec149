#pragma once

#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QStackedWidget>
#include <QTableView>
#include <QTimer>
#include <QWidget>

#include "station/gui/live_models.h"

namespace station {

/// What comes in, as the user likes to see it: a row for each channel, or the last messages. It
/// draws five times a second whatever the traffic, and a pause holds the picture and nothing else.
class LivePanel final : public QWidget {
  public:
    explicit LivePanel(LiveFeed& liveFeed);

  private:
    QTableView* makeTable(LiveModel& model, const char* name, const QList<int>& widths);
    void update();
    void takeFilter();

    LiveFeed& feed;
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
