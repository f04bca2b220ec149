#pragma once

#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSplitter>
#include <QStackedWidget>
#include <QTimer>
#include <QTreeView>
#include <QWidget>
#include <memory>
#include <set>

#include "station/gui/identifier_model.h"
#include "station/gui/live_export.h"
#include "station/gui/live_plot.h"
#include "station/gui/message_model.h"
#include "station/gui/row_view.h"

namespace station {

/// What comes in, as the user likes to see it: a row for each identifier, or all messages. It draws
/// five times a second whatever the traffic. A pause holds the picture, in both forms, while all
/// goes on behind it; form and filter can be chosen in a held picture as in the present one.
class LivePanel final : public QWidget {
  public:
    explicit LivePanel(LiveFeed& liveFeed);

    /// Another form of what is seen, which takes care of itself.
    void addForm(const QString& name, QWidget* form);
    /// Widths and order of columns, what is sorted by, and the form, in the user's settings.
    void saveLayout() const;

  private:
    void makeBar();
    void makeTree();
    void makeList();
    void restoreLayout();
    /// What is to be seen: the feed, or its picture from the beginning of the pause.
    const LiveFeed& shown() const { return held ? *held : feed; }
    void setPaused(bool isPaused);
    /// Takes what has come in small pieces; draws at each fifth.
    void tick();
    /// Draws the form that is to be seen.
    void update();
    void updateTree();
    void updateList();
    void showStatus();
    void takeFilter();
    void find();
    void copyRows();
    /// For a while, in the line below.
    void notify(const QString& text);
    QAbstractItemView* shownView() const;
    void exportRows();
    void makePlot();
    /// Shows the plot, too.
    void addToPlot(const SignalTaps::Signal& signal);

    LiveFeed& feed;
    std::unique_ptr<LiveFeed> held;  ///< null without a pause
    IdentifierModel identifierModel;
    IdentifierOrder identifierOrder;
    MessageModel messageModel;
    QComboBox* const mode;
    QComboBox* const times;
    QPushButton* const pause;
    QLineEdit* const filter;
    QLineEdit* const search;
    QLabel* const status;
    QSplitter* const sides;
    QStackedWidget* const forms;
    QTreeView* const tree;
    RowView* const list;
    LivePlot plot;
    QPushButton* const plotButton;
    std::set<std::size_t> folded;           ///< channels, by the user
    std::unique_ptr<LiveExport> exporting;  ///< the last one
    LiveFilter parsed;                      ///< the last that was right
    QString notice;
    LiveFeed::Clock::time_point noticeEnd;
    std::uint64_t filterOf = 0;  ///< generation for whose channels the filter was read
    LiveFeed::Clock::time_point nextOrder;
    int lastForm = 0;  ///< that the user had before
    unsigned ticks = 0;
    QTimer timer;
};

}  // namespace station
