#include "station/gui/live_panel.h"

#include <QHeaderView>
#include <QLabel>
#include <QScrollBar>
#include <QVBoxLayout>

namespace station {
namespace {

constexpr int lostColumn = 7;  // of the channels

/// To the microsecond.
QString secondsText(double seconds) {
    constexpr int decimals = 6;
    return QString::number(seconds, 'f', decimals);
}

}  // namespace

LiveModel::LiveModel(const LiveFeed& liveFeed, QStringList columnTitles, QList<int> numberColumns)
    : feed(&liveFeed), titles(std::move(columnTitles)), numbers(std::move(numberColumns)) {}

int LiveModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(titles.size());
}

QVariant LiveModel::headerData(int section, Qt::Orientation orientation, int role) const {
    return orientation == Qt::Horizontal && role == Qt::DisplayRole ? titles.value(section)
                                                                    : QVariant();
}

QVariant LiveModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid()) {
        return {};
    }
    if (role == Qt::DisplayRole) {
        return text(static_cast<std::size_t>(index.row()), index.column());
    }
    if (role == Qt::ToolTipRole) {
        return toolTip(static_cast<std::size_t>(index.row()), index.column());
    }
    if (role == Qt::TextAlignmentRole && numbers.contains(index.column())) {
        return QVariant(Qt::AlignRight | Qt::AlignVCenter);
    }
    return {};
}

template <typename Rows>
void LiveModel::take(Rows& rows, Rows fresh) {
    const int before = rowCount();
    const int after = static_cast<int>(fresh.size());
    if (after > before) {
        beginInsertRows({}, before, after - 1);
    } else if (after < before) {
        beginRemoveRows({}, after, before - 1);
    }
    rows = std::move(fresh);
    count = after;
    if (after > before) {
        endInsertRows();
    } else if (after < before) {
        endRemoveRows();
    }
    if (after > 0) {
        Q_EMIT dataChanged(index(0, 0), index(after - 1, columnCount() - 1));
    }
}

ChannelModel::ChannelModel(const LiveFeed& liveFeed)
    : LiveModel(liveFeed,
                {"Channel", "Bus", "Messages", "Rate /s", "Identifier", "Data", "Time s", "Lost"},
                {2, 3, 6, lostColumn}) {}

void ChannelModel::takeOver() {
    take(channels, feed->getChannels());
}

QString ChannelModel::text(std::size_t row, int column) const {
    const LiveChannel& channel = channels[row];
    if (column == lostColumn) {
        return channel.account.empty() ? QString() : QString::number(channel.lost);
    }
    if (column > 3 && !channel.last) {
        return {};
    }
    switch (column) {
        case 0:
            return QString::fromStdString(channel.name);
        case 1:
            return QString::fromStdString(channel.busName);
        case 2:
            return QString::number(channel.traffic.getCount());
        case 3:
            return QString::number(channel.traffic.getRate(), 'f', 0);
        case 4:
            return QString::fromStdString(identifierText(*channel.last, channel.bus));
        case 5:
            return QString::fromStdString(dataText(*channel.last));
        default:
            return secondsText(feed->secondsOf(*channel.last));
    }
}

QString ChannelModel::toolTip(std::size_t row, int column) const {
    QStringList lines;
    for (const std::string& text : channels[row].account) {
        lines.append(QString::fromStdString(text));
    }
    return column == lostColumn ? lines.join('\n') : QString();
}

MessageModel::MessageModel(const LiveFeed& liveFeed)
    : LiveModel(liveFeed, {"Time s", "Channel", "Identifier", "Length", "Data"}, {0, 3}) {}

void MessageModel::takeOver() {
    take(messages, feed->lastMessages());
}

QString MessageModel::text(std::size_t row, int column) const {
    const LiveMessage& message = messages[row];
    if (message.channel >= feed->getChannels().size()) {
        return {};  // of a measurement before
    }
    const LiveChannel& channel = feed->getChannels()[message.channel];
    switch (column) {
        case 0:
            return secondsText(feed->secondsOf(message));
        case 1:
            return QString::fromStdString(channel.name);
        case 2:
            return QString::fromStdString(identifierText(message, channel.bus));
        case 3:
            return QString::number(message.length);
        default:
            return QString::fromStdString(dataText(message));
    }
}

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
    tables->addWidget(
        makeTable(channelModel, "liveChannels", {200, 70, 90, 80, 120, 280, 110, 60}));
    messages = makeTable(messageModel, "liveMessages", {110, 200, 120, 60, 500});
    tables->addWidget(messages);

    connect(mode, &QComboBox::currentIndexChanged, this, [this](int index) {
        tables->setCurrentIndex(index);
        update();
    });
    connect(pause, &QPushButton::toggled, this, [this](bool isPaused) { setPaused(isPaused); });
    connect(clear, &QPushButton::clicked, this, [this] {
        feed.clear();
        if (held) {
            held->clear();
        }
        update();
    });
    connect(filter, &QLineEdit::textEdited, this, [this] { takeFilter(); });
    connect(filter, &QLineEdit::textChanged, this, [this](const QString& text) {
        if (text.isEmpty()) {  // by the button that clears it, too
            takeFilter();
        }
    });
    connect(&timer, &QTimer::timeout, this, [this] { tick(); });
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

/// The models are brought to the present picture before the held one goes.
void LivePanel::setPaused(bool isPaused) {
    const auto before = std::exchange(held, isPaused ? std::make_unique<LiveFeed>(feed) : nullptr);
    channelModel.update(shown());
    messageModel.update(shown());
    update();
}

void LivePanel::tick() {
    feed.updateRates(LiveFeed::Clock::now());
    if (isVisible()) {
        update();
    }
}

/// The list follows its end unless the user has scrolled away from it.
void LivePanel::update() {
    if (tables->currentWidget() != messages) {
        channelModel.update(shown());
        return;
    }
    const QScrollBar* const bar = messages->verticalScrollBar();
    const bool isAtEnd = bar->value() == bar->maximum();
    messageModel.update(shown());
    if (isAtEnd) {
        messages->scrollToBottom();
    }
}

void LivePanel::takeFilter() {
    QPalette palette;
    QString reason;
    try {
        const auto parsed = IdentifierFilter::parse(filter->text().toStdString());
        feed.setFilter(parsed);
        if (held) {
            held->setFilter(parsed);
        }
        update();
    } catch (const UserError& error) {  // while it is being typed, too
        palette.setColor(QPalette::Text, Qt::red);
        reason = error.what();
    }
    filter->setPalette(palette);
    filter->setToolTip(reason);
}

}  // namespace station
