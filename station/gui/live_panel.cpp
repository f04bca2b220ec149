#include "station/gui/live_panel.h"

#include <QHeaderView>
#include <QLabel>
#include <QScrollBar>
#include <QVBoxLayout>

namespace station {

LivePanel::LivePanel(LiveFeed& liveFeed)
    : feed(liveFeed),
      channelModel(feed),
      messageModel(feed),
      mode(new QComboBox),
      pause(new QPushButton("&Pause")),
      filter(new QLineEdit),
      tables(new QStackedWidget) {
    auto* const clear = new QPushButton("C&lear");
    mode->setObjectName("liveMode");
    mode->addItems({"Overwrite: a row for each channel", "Scroll: the last messages"});
    pause->setObjectName("livePause");
    pause->setCheckable(true);
    clear->setObjectName("liveClear");
    filter->setObjectName("liveFilter");
    filter->setPlaceholderText("all identifiers; or e.g. 0x100-0x1FF, 17");
    filter->setClearButtonEnabled(true);

    auto* const bar = new QHBoxLayout;
    bar->addWidget(mode);
    bar->addWidget(pause);
    bar->addWidget(clear);
    bar->addWidget(new QLabel("Filter:"));
    bar->addWidget(filter, 1);
    auto* const layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addLayout(bar);
    layout->addWidget(tables);
    tables->addWidget(makeTable(channelModel, "liveChannels", {200, 70, 90, 80, 120, 320, 110}));
    messages = makeTable(messageModel, "liveMessages", {110, 200, 120, 60, 500});
    tables->addWidget(messages);

    connect(mode, &QComboBox::currentIndexChanged, this, [this](int index) {
        tables->setCurrentIndex(index);
        update();
    });
    connect(pause, &QPushButton::toggled, this, [this] { update(); });
    connect(clear, &QPushButton::clicked, this, [this] {
        feed.clear();
        channelModel.update();
        messageModel.update();
    });
    connect(filter, &QLineEdit::textEdited, this, [this] { takeFilter(); });
    connect(filter, &QLineEdit::textChanged, this, [this](const QString& text) {
        if (text.isEmpty()) {  // by the button that clears it, too
            takeFilter();
        }
    });
    connect(&timer, &QTimer::timeout, this, [this] { update(); });
    constexpr int period = 200;  // milliseconds
    timer.start(period);
}

QTableView* LivePanel::makeTable(LiveModel& model, const char* name, const QList<int>& widths) {
    auto* const table = new QTableView;
    table->setObjectName(name);
    table->setModel(&model);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table->setTabKeyNavigation(false);
    table->setWordWrap(false);
    table->verticalHeader()->hide();
    table->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    table->verticalHeader()->setDefaultSectionSize(table->verticalHeader()->minimumSectionSize());
    table->horizontalHeader()->setHighlightSections(false);
    for (int column = 0; column < widths.size(); ++column) {
        table->setColumnWidth(column, widths[column]);
    }
    return table;
}

/// The list follows its end unless the user has scrolled away from it.
void LivePanel::update() {
    feed.updateRates(LiveFeed::Clock::now());
    if (pause->isChecked() || !isVisible()) {
        return;
    }
    if (tables->currentWidget() != messages) {
        channelModel.update();
        return;
    }
    const QScrollBar* const bar = messages->verticalScrollBar();
    const bool isAtEnd = bar->value() == bar->maximum();
    messageModel.update();
    if (isAtEnd) {
        messages->scrollToBottom();
    }
}

void LivePanel::takeFilter() {
    QPalette palette;
    QString reason;
    try {
        feed.setFilter(IdentifierFilter::parse(filter->text().toStdString()));
    } catch (const UserError& error) {  // while it is being typed, too
        palette.setColor(QPalette::Text, Qt::red);
        reason = error.what();
    }
    filter->setPalette(palette);
    filter->setToolTip(reason);
}

}  // namespace station
