#include "station/gui/live_panel.h"

#include <QApplication>
#include <QClipboard>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QScrollBar>
#include <QSettings>
#include <QShortcut>
#include <QSplitter>
#include <QVBoxLayout>
#include <algorithm>

#include "station/errors.h"
#include "station/gui/bytes_delegate.h"
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

QString rowText(const QAbstractItemModel& model, const QModelIndex& row) {
    QStringList cells;
    for (int column = 0; column < model.columnCount(); ++column) {
        cells.append(row.siblingAtColumn(column).data().toString());
    }
    return cells.join('\t');
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
      forms(new QStackedWidget),
      tree(new QTreeView),
      list(new RowView),
      plotPanel(new PlotPanel),
      plotButton(new QPushButton("Pl&ot")),
      taps(feed) {
    auto* const layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    makeBar();
    auto* const sides = new QSplitter(Qt::Horizontal);
    sides->addWidget(forms);
    sides->addWidget(plotPanel);
    layout->addWidget(sides, 1);
    layout->addWidget(status);
    makeTree();
    makeList();
    makePlot();
    addForm("Overwrite: by identifier", tree);
    addForm("Scroll: all messages", list);
    restoreLayout();
    status->setObjectName("liveStatus");
    connect(mode, &QComboBox::currentIndexChanged, this, [this](int index) {
        forms->setCurrentIndex(index);
        update();
    });
    connect(&timer, &QTimer::timeout, this, [this] { tick(); });
    constexpr int period = 200;  // milliseconds
    timer.start(period);
    update();
}

void LivePanel::addForm(const QString& name, QWidget* form) {
    forms->addWidget(form);
    mode->addItem(name);
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
    filter->setClearButtonEnabled(true);
    search->setObjectName("liveFind");
    search->setPlaceholderText("Find (Return: next)");
    search->setClearButtonEnabled(true);
    auto* const bar = new QHBoxLayout;
    for (QWidget* const widget :
         std::initializer_list<QWidget*>{mode, times, pause, clear, saving, plotButton}) {
        bar->addWidget(widget);
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
    const std::pair<int, const char*> widest[] = {{Model::Messages, "999999999"},
                                                  {Model::Rate, "9999999"},
                                                  {Model::Cycle, "99999.999"},
                                                  {Model::LeastCycle, "99999.999"},
                                                  {Model::MostCycle, "99999.999"},
                                                  {Model::Age, "9999.9"},
                                                  {Model::Length, "Length"},
                                                  {Model::Flags, "ext FD"},
                                                  {Model::Data, "00 00 00 00 00 00 00 00 "},
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
    // What is folded stays so, what is new is unfolded.
    connect(&identifierOrder, &QAbstractItemModel::modelReset, tree,
            [this] { tree->expandToDepth(0); });
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
    plotPanel->setObjectName("plot");
    plotPanel->hide();
    plotButton->setObjectName("showPlot");
    plotButton->setCheckable(true);
    plotButton->setToolTip("Shows a plot: drag signals into it, or double-click them");
    tree->setDragEnabled(true);
    connect(plotButton, &QPushButton::toggled, plotPanel, &QWidget::setVisible);
    connect(tree, &QTreeView::activated, this, [this](const QModelIndex& index) {
        if (const auto signal = identifierModel.getSignal(identifierOrder.mapToSource(index))) {
            plot(*signal);
        }
    });
    plotPanel->setOnDrop([this](const QByteArray& key) {
        if (const auto signal = IdentifierModel::fromKey(key)) {
            plot(*signal);
        }
    });
    plotPanel->setOnRemove([this](std::size_t number) {
        taps.remove(number);
        std::erase_if(plotted, [&](const Plotted& entry) { return entry.number == number; });
    });
}

void LivePanel::plot(const SignalTaps::Signal& signal) {
    plotButton->setChecked(true);
    const SignalDefinition* const definition = taps.find(signal);
    if (definition == nullptr) {
        return;
    }
    const std::string& channel = feed.getChannels()[signal.channel].name;
    const std::size_t number =
        plotPanel->addSignal(QString::fromStdString(definition->name + " (" + channel + ')'),
                             QString::fromStdString(definition->unit));
    plotted.push_back({number, channel, definition->name, signal});
    tap(number, signal);
}

void LivePanel::tap(std::size_t number, const SignalTaps::Signal& signal) {
    plotPanel->setStart(feed.getStart());
    taps.add(number, signal, [this, number](std::int64_t utc, double value) {
        plotPanel->append(number, utc, value);
    });
}

/// Another measurement may have other channels and databases: the signals are found by their names.
void LivePanel::renewPlot() {
    plotOf = feed.getGeneration();
    plotPanel->clear();
    taps.clear();
    const auto& channels = feed.getChannels();
    for (Plotted& entry : std::vector(plotted)) {
        const auto channel = std::ranges::find(channels, entry.channel, &LiveChannel::name);
        entry.signal.channel = static_cast<std::size_t>(channel - channels.begin());
        const SignalDefinition* const definition = taps.find(entry.signal);
        if (definition != nullptr && definition->name == entry.name) {
            tap(entry.number, entry.signal);
        } else {
            plotPanel->removeSignal(entry.number);
            std::erase_if(plotted, [&](const Plotted& one) { return one.number == entry.number; });
        }
    }
}

void LivePanel::restoreLayout() {
    const QSettings settings;
    tree->header()->restoreState(settings.value("liveIdentifiers").toByteArray());
    list->getHeader()->restoreState(settings.value("liveMessages").toByteArray());
    times->setCurrentIndex(std::clamp(settings.value("liveTimes").toInt(), 0, 2));
}

void LivePanel::saveLayout() const {
    QSettings settings;
    settings.setValue("liveIdentifiers", tree->header()->saveState());
    settings.setValue("liveMessages", list->getHeader()->saveState());
    settings.setValue("liveTimes", times->currentIndex());
}

/// The models are brought to the present picture before the held one goes.
void LivePanel::setPaused(bool isPaused) {
    feed.refresh(LiveFeed::Clock::now());
    const auto before = std::exchange(held, isPaused ? std::make_unique<LiveFeed>(feed) : nullptr);
    feed.setHeld(isPaused);
    plotPanel->setPaused(isPaused);
    updateTree();
    updateList();
    update();
}

void LivePanel::tick() {
    if (isVisible()) {
        update();
    } else {
        feed.refresh(LiveFeed::Clock::now());
    }
}

void LivePanel::update() {
    feed.refresh(LiveFeed::Clock::now());
    if (plotOf != feed.getGeneration()) {
        renewPlot();
    }
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
    constexpr auto period = std::chrono::seconds(1);
    const int before = identifierOrder.rowCount();
    identifierModel.update(shown());
    if (const auto now = LiveFeed::Clock::now(); now >= nextOrder && !held) {
        nextOrder = now + period;
        identifierOrder.invalidate();
    }
    if (before == 0) {
        tree->expandToDepth(0);
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
    if (held) {
        texts.append("Paused: the measurement goes on");
    }
    if (exporting) {
        texts.append(QString::fromStdString(exporting->describe()));
    } else if (!exportFailure.isEmpty()) {
        texts.append(exportFailure);
    }
    status->setText(texts.join("; "));
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
        const auto nameOf = [&feed = feed](const LiveFilter::Identity& message) {
            const Decoder::Message* const found =
                message.channel < feed.getChannels().size()
                    ? feed.getChannels()[message.channel].findMessage(message.id,
                                                                      message.isExtended)
                    : nullptr;
            return found != nullptr ? found->getDefinition().name : std::string();
        };
        const auto parsed = LiveFilter::parse(filter->text().toStdString(), names, nameOf);
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

QAbstractItemView* LivePanel::shownView() const {
    return forms->currentIndex() == Messages ? static_cast<QAbstractItemView*>(list) : tree;
}

/// Goes on from the row that is chosen, and from the first one behind the last.
void LivePanel::find() {
    constexpr auto patience = std::chrono::milliseconds(200);
    const QString wanted = search->text();
    QAbstractItemView& view = *shownView();
    const QAbstractItemModel& model = *view.model();
    const auto until = LiveFeed::Clock::now() + patience;
    const auto next = [&](const QModelIndex& at) {
        const QModelIndex below =
            &view == tree && at.isValid() ? tree->indexBelow(at) : at.siblingAtRow(at.row() + 1);
        return below.isValid() ? below.siblingAtColumn(0) : model.index(0, 0);
    };
    if (wanted.isEmpty() || model.rowCount() == 0) {
        return;
    }
    const QModelIndex start = view.currentIndex().siblingAtColumn(0);
    QModelIndex at = next(start);
    const QModelIndex first = at;
    do {
        if (rowText(model, at).contains(wanted, Qt::CaseInsensitive)) {
            view.setCurrentIndex(at);
            view.scrollTo(at, QAbstractItemView::PositionAtCenter);
            return;
        }
        at = next(at);
    } while (at != first && LiveFeed::Clock::now() < until);
    if (at != first) {  // goes on from there
        view.setCurrentIndex(at);
    }
    status->setText(at == first ? "\"" + wanted + "\" isn't there"
                                : "Nothing found so far: press Return to go on");
}

void LivePanel::copyRows() const {
    const QAbstractItemView& view = *shownView();
    constexpr qsizetype most = 20000;  // in a moment
    QStringList rows;
    QModelIndexList chosen;
    for (const QItemSelectionRange& range : view.selectionModel()->selection()) {
        for (int row = range.top(); row <= range.bottom() && chosen.size() < most; ++row) {
            chosen.append(view.model()->index(row, 0, range.parent()));
        }
    }
    std::ranges::sort(chosen, [&](const QModelIndex& a, const QModelIndex& b) {
        return std::pair(a.parent().row(), a.row()) < std::pair(b.parent().row(), b.row());
    });
    for (const QModelIndex& row : chosen) {
        rows.append(rowText(*view.model(), row));
    }
    QApplication::clipboard()->setText(rows.join('\n'));
    if (chosen.size() == most) {
        status->setText(QString("The first %L1 rows are copied: export more").arg(most));
    }
}

void LivePanel::exportRows() {
    updateList();
    auto* const dialog = new QFileDialog(this, "Export the messages that pass the filter");
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    QStringList endings;
    for (const RecordingFormat& format : getRecordingFormats()) {
        endings.append(QString("%1 (*%2)").arg(format.what, format.ending));
    }
    dialog->setNameFilters(endings);
    connect(dialog, &QFileDialog::fileSelected, this, [this](const QString& path) {
        try {
            exporting =
                std::make_unique<LiveExport>(shown(), messageModel.getList(), path.toStdString());
        } catch (const std::exception& error) {
            exportFailure = error.what();
        }
    });
    dialog->open();
}

}  // namespace station
