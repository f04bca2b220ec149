#include "station/gui/live_panel.h"

#include <QApplication>
#include <QClipboard>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QScrollBar>
#include <QSettings>
#include <QShortcut>
#include <QSplitter>
#include <QVBoxLayout>
#include <algorithm>
#include <functional>

#include "station/errors.h"
#include "station/gui/bytes_delegate.h"
#include "station/gui/live_columns.h"
#include "station/gui/live_export.h"

namespace station {
namespace {

constexpr auto slice = std::chrono::milliseconds(15);  // of the event loop, for a form at a time

enum Form { Identifiers, Messages };

/// As wide as that text.
int widthOf(const QString& text, const QFont& font) {
    constexpr int margins = 14;
    return QFontMetrics(font).horizontalAdvance(text) + margins;
}

}  // namespace

LivePanel::LivePanel(LiveFeed& liveFeed)
    : feed(liveFeed),
      identifierModel(feed),
      identifierOrder(identifierModel),
      messageModel(feed),
      mode(new QComboBox),
      times(new QComboBox),
      pause(new QPushButton("&Pause")),
      filter(new QLineEdit),
      search(new QLineEdit),
      status(new QLabel),
      sides(new QSplitter(Qt::Horizontal)),
      forms(new QStackedWidget),
      tree(new QTreeView),
      list(new RowView),
      plot(feed),
      plotButton(new QPushButton("Pl&ot")) {
    auto* const layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    makeBar();
    sides->addWidget(forms);
    sides->addWidget(plot.getPanel());
    sides->setSizes({1000, 1000});  // a ratio
    layout->addWidget(sides, 1);
    layout->addWidget(status);
    makeTree();
    makeList();
    makePlot();
    restoreLayout();
    status->setObjectName("liveStatus");
    status->setWordWrap(true);
    status->setSizePolicy(QSizePolicy::Ignored,
                          QSizePolicy::Preferred);  // no text widens the window
    connect(mode, &QComboBox::currentIndexChanged, this, [this](int index) {
        forms->setCurrentIndex(index);
        update();
    });
    addForm("Overwrite: by identifier", tree);
    addForm("Scroll: all messages", list);
    connect(&timer, &QTimer::timeout, this, [this] { tick(); });
    constexpr int period = 40;  // milliseconds
    timer.start(period);
    update();
}

void LivePanel::addForm(const QString& name, QWidget* form) {
    forms->addWidget(form);
    mode->addItem(name);
    if (forms->count() - 1 == lastForm) {
        mode->setCurrentIndex(lastForm);
    }
}

void LivePanel::makeBar() {
    auto* const clear = new QPushButton("C&lear");
    auto* const saving = new QPushButton("&Export...");
    mode->setObjectName("liveMode");
    times->setObjectName("liveTimes");
    times->addItems({"Times since start", "Times in UTC", "Differences"});
    pause->setObjectName("livePause");
    pause->setCheckable(true);
    clear->setObjectName("liveClear");
    saving->setObjectName("liveExport");
    saving->setToolTip("Writes the messages that are kept and pass the filter into a file");
    filter->setObjectName("liveFilter");
    filter->setPlaceholderText("Filter: 100, 100-1FF, 123:7F0, names; ! excludes");
    filter->setMinimumWidth(widthOf("Filter: 100, 100-", filter->font()));
    filter->setClearButtonEnabled(true);
    search->setObjectName("liveFind");
    search->setPlaceholderText("Find");
    search->setToolTip("Return: the next one");
    search->setMinimumWidth(widthOf("Find", search->font()));
    search->setClearButtonEnabled(true);
    auto* const bar = new QHBoxLayout;
    for (QWidget* const widget :
         std::initializer_list<QWidget*>{mode, times, pause, clear, saving, plotButton}) {
        bar->addWidget(widget);
    }
    for (QPushButton* const button : {pause, clear, saving, plotButton}) {  // room for the filter
        button->setMaximumWidth(widthOf(button->text(), button->font()) + 10);
    }
    bar->addWidget(filter, 2);
    bar->addWidget(search, 1);
    static_cast<QVBoxLayout*>(layout())->addLayout(bar);

    connect(times, &QComboBox::currentIndexChanged, this, [this](int index) {
        identifierModel.setTimeForm(static_cast<TimeForm>(index));
        messageModel.setTimeForm(static_cast<TimeForm>(index));
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
    connect(saving, &QPushButton::clicked, this, [this] { exportRows(); });
    connect(filter, &QLineEdit::textChanged, this, [this] { takeFilter(); });
    connect(search, &QLineEdit::returnPressed, this, [this] { find(); });
    const auto addKey = [this](const QKeySequence& keys, auto action) {
        auto* const shortcut = new QShortcut(keys, this);
        shortcut->setContext(Qt::WidgetWithChildrenShortcut);
        connect(shortcut, &QShortcut::activated, this, action);
    };
    addKey(QKeySequence::Find, [this] { search->setFocus(); });
    addKey(QKeySequence::FindNext, [this] { find(); });
}

void LivePanel::makeTree() {
    tree->setObjectName("liveIdentifiers");
    tree->setModel(&identifierOrder);
    tree->setUniformRowHeights(true);
    tree->setSelectionMode(QAbstractItemView::ExtendedSelection);
    tree->setEditTriggers(QAbstractItemView::NoEditTriggers);
    tree->setSortingEnabled(true);
    tree->sortByColumn(IdentifierModel::Name, Qt::AscendingOrder);
    tree->setItemDelegateForColumn(IdentifierModel::Data, new BytesDelegate(tree));
    const QFont fixed = fixedFont();
    using Model = IdentifierModel;
    const std::pair<int, const char*> widest[] = {
        {Model::Messages, "999999999"},
        {Model::Rate, "9999999"},
        {Model::Cycle, "99999.999"},
        {Model::LeastCycle, "99999.999"},
        {Model::MostCycle, "99999.999"},
        {Model::Age, "9999.9"},
        {Model::Length, "Length"},
        {Model::Flags, "ext FD"},
        {Model::Data, "00 00 00 00 00 00 00 00 00 00 00 00 "},
        {Model::Time, "99:99:99.999999"}};
    constexpr int nameWidth = 220;
    tree->setColumnWidth(Model::Name, nameWidth);
    for (const auto& [column, text] : widest) {
        tree->setColumnWidth(column, widthOf(text, fixed));
    }
    tree->header()->setStretchLastSection(false);
    tree->header()->moveSection(Model::Data, 1);  // beside the name, also where room is short
    new QShortcut(
        QKeySequence::Copy, tree, this, [this] { copyRows(); }, Qt::WidgetShortcut);
    // A channel that comes back stands as the user has left it.
    const auto channelOf = [this](const QModelIndex& index) {
        return identifierModel.getChannel(identifierOrder.mapToSource(index));
    };
    connect(tree, &QTreeView::collapsed, this, [this, channelOf](const QModelIndex& index) {
        if (!index.parent().isValid()) {
            folded.insert(channelOf(index));
        }
    });
    connect(tree, &QTreeView::expanded, this,
            [this, channelOf](const QModelIndex& index) { folded.erase(channelOf(index)); });
}

void LivePanel::makeList() {
    list->setObjectName("liveMessages");
    list->setModel(&messageModel);
    const QFont fixed = fixedFont();
    using Model = MessageModel;
    const std::pair<int, QString> widest[] = {{Model::Time, "99:99:99.999999"},
                                              {Model::Channel, QString(24, 'n')},
                                              {Model::Identifier, "18DA00F1x"},
                                              {Model::Length, "Length"},
                                              {Model::Flags, "ext FD"}};
    for (const auto& [column, text] : widest) {
        list->getHeader()->resizeSection(column, widthOf(text, fixed));
    }
    new QShortcut(
        QKeySequence::Copy, list, this, [this] { copyRows(); }, Qt::WidgetShortcut);
}

void LivePanel::makePlot() {
    plot.getPanel()->setObjectName("plot");
    plot.getPanel()->hide();
    plotButton->setObjectName("showPlot");
    plotButton->setCheckable(true);
    plotButton->setToolTip("Shows a plot: drag signals into it, or double-click them");
    tree->setDragEnabled(true);
    connect(plotButton, &QPushButton::toggled, plot.getPanel(), &QWidget::setVisible);
    connect(tree, &QTreeView::activated, this, [this](const QModelIndex& index) {
        if (const auto signal = identifierModel.getSignal(identifierOrder.mapToSource(index))) {
            addToPlot(*signal);
        }
    });
    plot.getPanel()->setOnDrop([this](const QByteArray& key) {
        if (const auto signal = identifierModel.fromKey(key)) {
            addToPlot(*signal);
        }
    });
}

void LivePanel::addToPlot(const SignalTaps::Signal& signal) {
    plotButton->setChecked(true);
    plot.add(shown(), signal);
}

void LivePanel::restoreLayout() {
    const QSettings settings;
    tree->header()->restoreState(settings.value("liveIdentifiers").toByteArray());
    list->getHeader()->restoreState(settings.value("liveMessages").toByteArray());
    times->setCurrentIndex(std::clamp(settings.value("liveTimes").toInt(), 0, 2));
    lastForm = settings.value("liveForm").toInt();
    sides->restoreState(settings.value("livePlot").toByteArray());
}

void LivePanel::saveLayout() const {
    QSettings settings;
    settings.setValue("liveIdentifiers", tree->header()->saveState());
    settings.setValue("liveMessages", list->getHeader()->saveState());
    settings.setValue("liveTimes", times->currentIndex());
    settings.setValue("liveForm", forms->currentIndex());
    settings.setValue("livePlot", sides->saveState());
}

/// The models are brought to the present picture before the held one goes.
void LivePanel::setPaused(bool isPaused) {
    feed.refresh(LiveFeed::Clock::now());
    const auto before = std::exchange(held, isPaused ? std::make_unique<LiveFeed>(feed) : nullptr);
    plot.getPanel()->setPaused(isPaused);
    updateTree();
    updateList();
    update();
}

void LivePanel::tick() {
    constexpr int picture = 5;  // ticks
    if (++ticks % picture == 0 && isVisible()) {
        update();
    } else {
        feed.refresh(LiveFeed::Clock::now(), slice);
    }
}

void LivePanel::update() {
    feed.refresh(LiveFeed::Clock::now(), slice);
    // Both keep messages beside those that the feed goes on to keep.
    feed.setHeld(held != nullptr || (exporting && exporting->isRunning()));
    plot.update(slice);
    if (filterOf != shown().getGeneration()) {
        takeFilter();
    }
    if (forms->currentIndex() == Messages) {
        updateList();
    } else if (forms->currentIndex() == Identifiers) {
        updateTree();
    }
    showStatus();
}

void LivePanel::updateTree() {
    const std::size_t before = identifierModel.countRows();
    identifierModel.update(shown());
    const auto now = LiveFeed::Clock::now();
    // By name it only changes with the rows.
    const bool isOther = identifierModel.countRows() != before ||
                         (identifierOrder.sortColumn() != IdentifierModel::Name && !held);
    if (isOther && now >= nextOrder) {
        constexpr auto period = std::chrono::seconds(1);
        constexpr int share = 20;  // of the event loop's time, however many rows there are
        identifierOrder.invalidate();
        const auto end = LiveFeed::Clock::now();
        nextOrder = end + std::max<LiveFeed::Clock::duration>(period, (end - now) * share);
    }
    for (int row = 0; row < identifierOrder.rowCount(); ++row) {
        const QModelIndex channel = identifierOrder.index(row, 0);
        const auto place = identifierModel.getChannel(identifierOrder.mapToSource(channel));
        tree->setExpanded(channel, !folded.contains(place));
    }
    tree->viewport()->update();
}

/// The list follows its end unless the user has scrolled away from it; then the row under his eye
/// stays there.
void LivePanel::updateList() {
    QScrollBar* const bar = list->verticalScrollBar();
    const bool isAtEnd = bar->value() == bar->maximum();
    const int top = bar->value();
    const int gone = messageModel.update(shown(), slice);
    bar->setValue(isAtEnd ? bar->maximum() : std::max(top - gone, 0));
    list->viewport()->update();
}

void LivePanel::showStatus() {
    const LiveFeed& from = shown();
    const MessageStore& store = from.getMessages();
    QStringList texts;
    const bool isList = forms->currentIndex() == Messages;
    if (isList) {
        texts.append(QString("%L1 of the last %L2 messages")
                         .arg(messageModel.rowCount())
                         .arg(store.end() - store.begin()));
    }
    if (const std::uint64_t left = from.getIdentifiers().getLeftOut(); left > 0) {
        texts.append(QString("%L1 messages of more than %L2 identifiers aren't shown by identifier")
                         .arg(left)
                         .arg(IdentifierTable::most));
    }
    if (const auto missed = isList ? messageModel.getList().getMissed() : from.getMissed();
        missed > 0) {
        texts.append(QString("%L1 came too fast to be shown").arg(missed));
    }
    if (const auto load = from.getLoad(); load && !isList) {
        texts.append(QString("Bus load %1 in the mean of the buses whose bit rate is given")
                         .arg(QString::fromStdString(loadText(*load))));
    }
    if (from.isAwaitingDecoders()) {
        texts.append("The databases are being read");
    }
    if (held) {
        texts.append("Paused: the measurement goes on");
    }
    if (const std::uint64_t missed = plot.getMissed(); missed > 0) {
        texts.append(QString("%L1 were gone before they were plotted").arg(missed));
    }
    if (exporting) {
        texts.append(QString::fromStdString(exporting->describe()));
    }
    if (LiveFeed::Clock::now() < noticeEnd) {
        texts.append(notice);
    }
    status->setText(texts.join("; "));
}

void LivePanel::notify(const QString& text) {
    constexpr auto shownFor = std::chrono::seconds(8);
    notice = text;
    noticeEnd = LiveFeed::Clock::now() + shownFor;
    showStatus();
}

void LivePanel::takeFilter() {
    std::vector<std::string> names;
    for (const LiveChannel& channel : shown().getChannels()) {
        names.push_back(channel.name);
    }
    QPalette palette;
    QString reason;
    filterOf = shown().getGeneration();
    try {
        // A copy, as an export asks on its own thread.
        const auto nameOf = [channels =
                                 shown().getChannels()](const LiveFilter::Identity& message) {
            const Decoder::Message* const found =
                message.channel < channels.size()
                    ? channels[message.channel].findMessage(message.id, message.isExtended)
                    : nullptr;
            return found != nullptr ? found->getDefinition().name : std::string();
        };
        parsed = LiveFilter::parse(filter->text().toStdString(), names, nameOf);
        identifierOrder.setFilter(parsed);
        messageModel.setFilter(parsed);
        update();
    } catch (const UserError& error) {  // while it is being typed, too
        palette.setColor(QPalette::Text, Qt::red);
        reason = error.what();
    }
    filter->setPalette(palette);
    filter->setToolTip(reason);
}

/// Null where another form takes care of itself.
QAbstractItemView* LivePanel::shownView() const {
    switch (forms->currentIndex()) {
        case Identifiers:
            return tree;
        case Messages:
            return list;
        default:
            return nullptr;
    }
}

/// Goes on from the row that is chosen, and from the first one behind the last.
void LivePanel::find() {
    constexpr auto patience = std::chrono::milliseconds(200);
    const QString wanted = search->text();
    if (shownView() == nullptr) {
        return;
    }
    QAbstractItemView& view = *shownView();
    const QAbstractItemModel& model = *view.model();
    const auto until = LiveFeed::Clock::now() + patience;
    if (wanted.isEmpty() || model.rowCount() == 0) {
        return;
    }
    const QModelIndex start = view.currentIndex().siblingAtColumn(0);
    QModelIndex at = nextRow(model, start);
    const QModelIndex first = at;
    do {
        if (rowText(model, at).contains(wanted, Qt::CaseInsensitive)) {
            view.setCurrentIndex(at);
            view.scrollTo(at, QAbstractItemView::PositionAtCenter);
            return;
        }
        at = nextRow(model, at);
    } while (at != first && LiveFeed::Clock::now() < until);
    if (at != first) {  // goes on from there
        view.setCurrentIndex(at);
    }
    notify(at == first ? "\"" + wanted + "\" isn't there"
                       : "Nothing found so far: press Return to go on");
}

/// In the order in which they are shown.
void LivePanel::copyRows() {
    if (shownView() == nullptr || !shownView()->selectionModel()->hasSelection()) {
        return;
    }
    const QAbstractItemView& view = *shownView();
    const QAbstractItemModel& model = *view.model();
    const QItemSelectionModel& selection = *view.selectionModel();
    constexpr qsizetype most = 20000;  // in a moment
    QStringList rows;
    const std::function<void(const QModelIndex&)> add = [&](const QModelIndex& parent) {
        for (int row = 0; row < model.rowCount(parent) && rows.size() < most; ++row) {
            const QModelIndex index = model.index(row, 0, parent);
            if (selection.isSelected(index)) {
                rows.append(rowText(model, index));
            }
            add(index);
        }
    };
    if (&view == tree) {
        add({});
    } else {
        QItemSelection ranges = selection.selection();
        std::ranges::sort(ranges, {}, &QItemSelectionRange::top);
        for (const QItemSelectionRange& range : ranges) {
            for (int row = range.top(); row <= range.bottom() && rows.size() < most; ++row) {
                rows.append(rowText(model, model.index(row, 0)));
            }
        }
    }
    QApplication::clipboard()->setText(rows.join('\n'));
    if (rows.size() == most) {
        notify(QString("The first %L1 rows are copied: export more").arg(most));
    }
}

void LivePanel::exportRows() {
    if (exporting && exporting->isRunning()) {
        notify("Wait until the file before is written");
        return;
    }
    askExportPath(this, [this](const QString& path) {
        exporting.reset();
        try {
            exporting = std::make_unique<LiveExport>(shown(), parsed, path.toStdString());
        } catch (const std::exception& error) {
            notify(error.what());
        }
    });
}

}  // namespace station
