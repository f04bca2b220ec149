#include "station/gui/plot/plot_panel.h"

#include <QBuffer>
#include <QCheckBox>
#include <QColorDialog>
#include <QComboBox>
#include <QDragEnterEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QLabel>
#include <QMenu>
#include <QMimeData>
#include <QPicture>
#include <QPushButton>
#include <QSplitter>
#include <QToolButton>
#include <QVBoxLayout>
#include <algorithm>
#include <array>
#include <cmath>

#include "station/gui/plot/plot_drawing.h"
#include "station/gui/plot/plot_table.h"
#include "station/gui/plot/plot_view.h"

namespace station {
namespace {

constexpr std::int64_t nanoseconds = 1'000'000'000;  // a second
constexpr std::int64_t latestTime = 4'102'444'800 * nanoseconds;

/// Far apart, and neither black nor white.
constexpr std::array<QRgb, 8> signalColors = {0x1F77B4, 0xD62728, 0x2CA02C, 0xFF7F0E,
                                              0x9467BD, 0x17BECF, 0xE377C2, 0x8C564B};

QString timeText(double seconds) {
    constexpr int decimals = 6;
    return QString::number(seconds, 'f', decimals) + " s";
}

}  // namespace

PlotPanel::PlotPanel(std::size_t memoryForValues)
    : memory(memoryForValues),
      view(new PlotView(plotSignals)),
      table(new PlotTable),
      width(new QComboBox),
      followNewest(new QPushButton("&Follow")),
      pause(new QPushButton("&Pause")),
      autoscale(new QCheckBox("&Autoscale")),
      cursorsButton(new QPushButton("&Cursors")),
      exportButton(new QToolButton),
      cursorText(new QLabel),
      notice(new QLabel) {
    setAcceptDrops(true);
    table->setOnMenu([this](std::size_t number, QPoint at) { showMenu(number, at); });
    table->setOnRemove([this](std::size_t number) { removeByUser(number); });
    cursorText->setObjectName("plotCursors");
    cursorText->setTextInteractionFlags(Qt::TextSelectableByMouse);
    notice->setObjectName("plotNotice");
    notice->setWordWrap(true);
    auto* const below = new QWidget;
    auto* const lower = new QVBoxLayout(below);
    lower->setContentsMargins(0, 0, 0, 0);
    lower->addWidget(cursorText);
    lower->addWidget(table);
    auto* const parts = new QSplitter(Qt::Vertical);
    parts->addWidget(view);
    parts->addWidget(below);
    parts->setChildrenCollapsible(false);
    parts->setStretchFactor(0, 3);
    parts->setStretchFactor(1, 1);
    parts->setSizes({300, 100});  // a ratio
    auto* const layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(makeBar());
    layout->addWidget(parts, 1);
    layout->addWidget(notice);
    view->setOnChange([this] { showControls(); });
    view->setOnMenu([this](std::size_t number, QPoint at) { showMenu(number, at); });
    connect(&timer, &QTimer::timeout, this, [this] { tick(); });
    constexpr int period = 200;  // milliseconds
    timer.start(period);
    showNotice();
    showControls();
}

PlotPanel::~PlotPanel() {
    delete view;  // before the signals that it shows
}

QWidget* PlotPanel::makeBar() {
    const std::array<std::pair<const char*, std::int64_t>, 4> widths = {
        {{"10 s", 10}, {"1 min", 60}, {"10 min", 600}, {"All", 0}}};
    for (const auto& [text, seconds] : widths) {
        width->addItem(text, QVariant::fromValue<qlonglong>(seconds * nanoseconds));
    }
    width->setObjectName("plotWidth");
    width->setAccessibleName("Time shown");
    followNewest->setObjectName("plotFollow");
    followNewest->setCheckable(true);
    followNewest->setToolTip("Shows the newest values; so does a double click on the plot");
    pause->setObjectName("plotPause");
    pause->setCheckable(true);
    autoscale->setObjectName("plotAutoscale");
    cursorsButton->setObjectName("plotCursorsButton");
    cursorsButton->setCheckable(true);
    cursorsButton->setToolTip("A click on the plot sets cursor A, with Shift cursor B");
    exportButton->setObjectName("plotExport");
    exportButton->setText("&Export");
    exportButton->setPopupMode(QToolButton::InstantPopup);
    exportButton->setFocusPolicy(Qt::TabFocus);
    auto* const menu = new QMenu(exportButton);
    menu->addAction("Picture (&PNG)…", this, [this] {
        askPath("Save the picture", "plot.png", [this](const QString& path) { exportPng(path); });
    });
    menu->addAction("Values (&CSV)…", this, [this] {
        askPath("Save the values", "plot.csv", [this](const QString& path) { exportCsv(path); });
    });
    exportButton->setMenu(menu);

    connect(width, &QComboBox::activated, this, [this](int index) {
        view->follow(width->itemData(index).toLongLong());
        draw();
    });
    connect(followNewest, &QPushButton::clicked, this, [this] {
        view->follow();
        draw();
    });
    connect(pause, &QPushButton::toggled, this, [this](bool isPaused) { setPaused(isPaused); });
    connect(autoscale, &QCheckBox::clicked, this, [this](bool isOn) {
        view->setAutoscaled(isOn);
        draw();
    });
    connect(cursorsButton, &QPushButton::clicked, this, [this](bool isOn) { toggleCursors(isOn); });

    auto* const bar = new QWidget;
    auto* const row = new QHBoxLayout(bar);
    row->setContentsMargins(0, 0, 0, 0);
    for (QPushButton* const each : {followNewest, pause, cursorsButton}) {  // room for the list
        constexpr int margins = 24;
        each->setMaximumWidth(each->fontMetrics().horizontalAdvance(each->text()) + margins);
    }
    for (QWidget* const each : std::initializer_list<QWidget*>{
             width, followNewest, pause, autoscale, cursorsButton, exportButton}) {
        row->addWidget(each);
    }
    row->addStretch();
    return bar;
}

std::size_t PlotPanel::addSignal(const QString& name, const QString& unit, QColor color) {
    if (!color.isValid()) {
        color = QColor(signalColors[plotSignals.size() % signalColors.size()]);
    }
    plotSignals.push_back(std::make_unique<PlotSignal>());
    PlotSignal& added = *plotSignals.back();
    added.name = name;
    added.unit = unit;
    added.color = color;
    shareMemory();
    rebuild();
    return plotSignals.size() - 1;
}

void PlotPanel::removeSignal(std::size_t number) {
    if (isThere(number)) {
        plotSignals[number].reset();
        shareMemory();
        rebuild();
    }
}

bool PlotPanel::isThere(std::size_t number) const {
    return number < plotSignals.size() && plotSignals[number] != nullptr;
}

void PlotPanel::shareMemory() {
    const auto count = plotSignals.size() - static_cast<std::size_t>(std::count(
                                                plotSignals.begin(), plotSignals.end(), nullptr));
    for (const auto& each : plotSignals) {
        if (each != nullptr) {
            each->series.setMemory(std::min(memory / count, SignalSeries::defaultMemory));
        }
    }
}

void PlotPanel::append(std::size_t number, std::int64_t utcNanoseconds, double value) {
    if (!isThere(number)) {
        return;
    }
    hasChanged = true;
    if (utcNanoseconds < 0 || utcNanoseconds > latestTime) {
        ++impossible;
        return;
    }
    if (!hasStart) {
        setStart(utcNanoseconds);
    }
    plotSignals[number]->series.append(utcNanoseconds, value);
}

void PlotPanel::clear() {
    for (const auto& each : plotSignals) {
        if (each != nullptr) {
            each->series = SignalSeries();
        }
    }
    shareMemory();
    hasStart = false;
    impossible = 0;
    exportNotice.clear();
    view->setCursors({});
    view->follow();
    setPaused(pause->isChecked());
    draw();
}

void PlotPanel::setStart(std::int64_t utcNanoseconds) {
    view->setStart(utcNanoseconds);
    hasStart = true;
    hasChanged = true;
}

void PlotPanel::setPaused(bool isPaused) {
    pause->setChecked(isPaused);
    std::optional<std::int64_t> newest;
    for (const auto& each : plotSignals) {
        if (isPaused && each != nullptr && !each->series.isEmpty()) {
            newest = std::max(newest.value_or(0), each->series.getNewest());
        }
    }
    view->setEnd(newest);
    draw();
}

void PlotPanel::rebuild() {
    view->rebuild();
    table->rebuild(plotSignals);
    draw();
}

void PlotPanel::tick() {
    if (const auto error = file.takeResult()) {
        exportNotice = error->isEmpty() ? whatIsExported : "The export failed: " + *error + '.';
        exportButton->setEnabled(true);
        hasChanged = true;
    }
    if (isVisible() && hasChanged) {
        draw();
    }
}

void PlotPanel::draw() {
    hasChanged = false;
    view->redraw();
    showNotice();
    showControls();
}

void PlotPanel::showControls() {
    followNewest->setChecked(view->isFollowing());
    autoscale->setChecked(view->isAutoscaled());
    const auto& cursors = view->getCursors();
    cursorsButton->setChecked(cursors[0] || cursors[1]);
    showCursors();
    table->showValues(plotSignals, view->getShown(), view->getShownCursors());
}

void PlotPanel::showCursors() {
    const auto& [a, b] = view->getCursors();
    QStringList texts;
    if (a) {
        texts.append("A: " + timeText(secondsSince(view->getStart(), *a)));
    }
    if (b) {
        texts.append("B: " + timeText(secondsSince(view->getStart(), *b)));
    }
    if (a && b) {
        const double difference = static_cast<double>(*b - *a) / static_cast<double>(nanoseconds);
        texts.append("B − A: " + timeText(difference));
        if (*a != *b) {
            texts.append("1/(B − A): " + QString::number(1 / std::abs(difference), 'g', 9) + " Hz");
        }
    }
    cursorText->setText(texts.join("    "));
    cursorText->setVisible(!texts.isEmpty());
}

void PlotPanel::showNotice() {
    QStringList texts;
    std::uint64_t late = 0;
    for (const auto& each : plotSignals) {
        late += each != nullptr ? each->series.getLate() : 0;
    }
    if (table->rowCount() == 0) {
        texts.append("Drag a signal here to see its values over time.");
    }
    if (late > 0) {
        texts.append(QString("Not shown: %1 values that came behind later ones.").arg(late));
    }
    if (impossible > 0) {
        texts.append(
            QString("Not shown: %1 values with a time before 1970 or after 2099.").arg(impossible));
    }
    if (!exportNotice.isEmpty()) {
        texts.append(exportNotice);
    }
    notice->setText(texts.join('\n'));
    notice->setVisible(!texts.isEmpty());
}

void PlotPanel::toggleCursors(bool isOn) {
    PlotView::Cursors cursors;
    if (isOn) {
        const auto shown = view->getShown();
        const std::int64_t third = (shown.to - shown.from) / 3;
        cursors = {shown.from + third, shown.to - third};
    }
    view->setCursors(cursors);
    draw();
}

void PlotPanel::removeByUser(std::size_t number) {
    const bool wasThere = isThere(number);
    removeSignal(number);
    if (wasThere && onRemove) {
        onRemove(number);
    }
}

void PlotPanel::showMenu(std::size_t number, QPoint position) {
    auto* const menu = new QMenu(this);
    menu->setAttribute(Qt::WA_DeleteOnClose);
    const auto ifThere = [this, number](auto change) {
        return [this, number, change] {
            if (isThere(number)) {
                change(*plotSignals[number]);
                rebuild();
            }
        };
    };
    menu->addAction("&Remove", this, [this, number] { removeByUser(number); });
    menu->addAction("&Color…", this, [this, number, ifThere] {
        if (!isThere(number)) {
            return;
        }
        auto* const dialog = new QColorDialog(plotSignals[number]->color, this);
        dialog->setAttribute(Qt::WA_DeleteOnClose);
        connect(dialog, &QColorDialog::colorSelected, this, [ifThere](const QColor& color) {
            ifThere([color](PlotSignal& each) { each.color = color; })();
        });
        dialog->open();
    });
    QAction* const ownAxis = menu->addAction(
        "&Own axis", this, ifThere([](PlotSignal& each) { each.hasOwnAxis = !each.hasOwnAxis; }));
    ownAxis->setCheckable(true);
    ownAxis->setChecked(plotSignals[number]->hasOwnAxis);
    menu->popup(position);
}

void PlotPanel::askPath(const QString& title, const QString& name,
                        std::function<void(const QString&)> next) {
    auto* const dialog = new QFileDialog(this, title);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setDefaultSuffix(QFileInfo(name).suffix());
    dialog->selectFile(name);
    connect(dialog, &QFileDialog::fileSelected, this, std::move(next));
    dialog->open();
}

bool PlotPanel::exportPng(const QString& path) {
    if (file.isRunning()) {
        return false;
    }
    whatIsExported = "The picture is in " + path + '.';
    exportButton->setEnabled(false);
    file.start(writingOf(path, [recorded = view->record(), size = view->size()]() mutable {
        constexpr double scale = 2;  // for print
        QBuffer buffer;
        if (!recorded.isNull()) {
            buffer.open(QIODevice::WriteOnly);
            painted(std::exchange(recorded, QPicture()), size, scale).save(&buffer, "PNG");
        }
        return buffer.data();
    }));
    return true;
}

bool PlotPanel::exportCsv(const QString& path) {
    if (file.isRunning()) {
        return false;
    }
    std::vector<CsvPieces::Signal> parts;
    const SignalSeries::Range range = view->getShown();
    QStringList missing;
    for (const auto& each : plotSignals) {
        if (each == nullptr) {
            continue;
        }
        const SignalSeries& series = each->series;
        parts.push_back({each->name.toStdString(), each->unit.toStdString(), series.share()});
        if (series.extent({range.from, std::min(range.to, series.oldestPoint())})) {
            missing.append(each->name + " before " +
                           timeText(secondsSince(view->getStart(), series.oldestPoint())));
        }
    }
    whatIsExported = "The values are in " + path + '.';
    if (!missing.isEmpty()) {
        whatIsExported += " Not in it, as only least and greatest values are held that far back: " +
                          missing.join(", ") + '.';
    }
    exportButton->setEnabled(false);
    const auto pieces = std::make_shared<CsvPieces>(std::move(parts), range, view->getStart());
    file.start(writingOf(path, [pieces] { return pieces->next(); }));
    return true;
}

void PlotPanel::dragEnterEvent(QDragEnterEvent* event) {
    if (onDrop && event->mimeData()->hasFormat(mimeType)) {
        event->acceptProposedAction();
    }
}

void PlotPanel::dropEvent(QDropEvent* event) {
    if (onDrop && event->mimeData()->hasFormat(mimeType)) {
        event->acceptProposedAction();
        onDrop(event->mimeData()->data(mimeType));
    }
}

void PlotPanel::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    hasChanged = true;
}

void PlotPanel::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange) {
        rebuild();  // colors are drawn so that they can be seen on it
    }
}

}  // namespace station
