#include "station/gui/plot/plot_view.h"

#include <algorithm>
#include <cmath>

#include "station/gui/plot/plot_drawing.h"

namespace station {
namespace {

constexpr std::int64_t shortest = 1000;                                   // nanoseconds
constexpr std::int64_t longest = std::int64_t{400} * 86'400'000'000'000;  // more than a year
constexpr int grip = 5;                                                   // pixels beside a cursor

QCPRange withMargin(QCPRange range) {
    constexpr double margin = 0.05;
    const double size = range.size();
    const double more = size > 0 ? size * margin : std::max(std::abs(range.lower) * margin, 1e-9);
    return size == 0 && range.lower == 0 ? QCPRange(-1, 1)
                                         : QCPRange(range.lower - more, range.upper + more);
}

}  // namespace

PlotView::PlotView(const PlotSignals& signalsToShow) : plotSignals(signalsToShow) {
    setObjectName("plotView");
    setAccessibleName("Plot");
    setAccessibleDescription(
        "Arrow keys move and zoom in time, Page Up and Page Down zoom values, A and B set "
        "cursors, with Ctrl or Shift the arrow keys move cursor A or B, Home follows the newest.");
    setFocusPolicy(Qt::StrongFocus);
    setMouseTracking(true);
    setLocale(QLocale::c());
    setAutoAddPlottableToLegend(false);
    axisRect()->insetLayout()->take(legend);  // it would hide values; the panel's table is one
    legend->setVisible(false);
    legend->setFillOrder(QCPLayoutGrid::foColumnsFirst);
    legend->setBorderPen(Qt::NoPen);
    xAxis->setLabel("Time s");
    xAxis->setNumberFormat("f");
    for (const char* const name : {"A", "B"}) {
        auto* const line = new QCPItemStraightLine(this);
        line->point1->setTypeY(QCPItemPosition::ptAxisRectRatio);
        line->point2->setTypeY(QCPItemPosition::ptAxisRectRatio);
        line->setLayer("overlay");
        auto* const label = new QCPItemText(this);
        label->position->setTypeY(QCPItemPosition::ptAxisRectRatio);
        label->setPositionAlignment(Qt::AlignLeft | Qt::AlignBottom);
        label->setText(name);
        label->setPadding({3, 0, 3, 0});
        label->setLayer("overlay");
        cursorItems.push_back({line, label});
    }
    rebuild();
}

void PlotView::rebuild() {
    std::map<QString, QCPRange> ranges;
    for (const auto& [key, axis] : valueAxes) {
        ranges[key] = axis->range();
    }
    clearGraphs();
    for (const auto& [key, axis] : valueAxes) {
        axisRect()->removeAxis(axis);
    }
    signalGraphs.clear();
    valueAxes.clear();
    legend->clearItems();
    for (std::size_t i = 0; i < plotSignals.size(); ++i) {
        if (plotSignals[i] != nullptr) {
            QCPGraph* const graph = addGraph(xAxis, axisFor(i));
            graph->setAdaptiveSampling(false);  // the columns are that already
            graph->setName(plotSignals[i]->name);
            graph->addToLegend();
            signalGraphs[i] = graph;
        }
    }
    for (const auto& [key, axis] : valueAxes) {
        if (const auto range = ranges.find(key); range != ranges.end()) {
            axis->setRange(range->second);
        }
    }
    yAxis->setVisible(valueAxes.empty());
    yAxis->setTickLabels(false);
    takePalette();
}

QCPAxis* PlotView::axisFor(std::size_t index) {
    const PlotSignal& plotSignal = *plotSignals[index];
    const QString& unit = plotSignal.unit;
    const QString key = plotSignal.hasOwnAxis ? "signal " + QString::number(index) : "unit " + unit;
    if (const auto axis = valueAxes.find(key); axis != valueAxes.end()) {
        return axis->second;
    }
    const bool isLeft = valueAxes.size() % 2 == 0;
    QCPAxis* const axis = axisRect()->addAxis(isLeft ? QCPAxis::atLeft : QCPAxis::atRight);
    axis->setLabel(!plotSignal.hasOwnAxis ? unit
                   : unit.isEmpty()       ? plotSignal.name
                                          : plotSignal.name + " [" + unit + ']');
    axis->setLayer("axes");
    axis->grid()->setLayer("grid");
    axis->grid()->setVisible(valueAxes.empty());  // several would be a net
    valueAxes[key] = axis;
    return axis;
}

void PlotView::takePalette() {
    const QColor text = palette().color(QPalette::Text);
    const QColor background = palette().color(QPalette::Base);
    setBackground(background);
    colorAxis(*xAxis, text, *this);
    colorAxis(*yAxis, text, *this);
    for (const auto& [key, axis] : valueAxes) {
        const auto graphs = axis->graphs();
        QColor color = text;
        for (const auto& [index, graph] : signalGraphs) {
            const QColor own = drawnColor(plotSignals[index]->color, palette());
            graph->setPen(QPen(own));
            if (graphs.size() == 1 && graphs.front() == graph) {
                color = own;
            }
        }
        colorAxis(*axis, color, *this);
    }
    for (const CursorItems& items : cursorItems) {
        items.line->setPen(QPen(text, 1, Qt::DashLine));
        items.label->setColor(background);
        items.label->setBrush(text);
        items.label->setFont(font());
    }
    legend->setTextColor(text);
    legend->setFont(font());
    legend->setBrush(background);
}

std::optional<PlotView::Range> PlotView::held() const {
    std::optional<Range> all;
    for (const auto& plotSignal : plotSignals) {
        if (plotSignal != nullptr && !plotSignal->series.isEmpty()) {
            const SignalSeries& series = plotSignal->series;
            const std::int64_t newest =
                std::min(series.getNewest(), end.value_or(series.getNewest()));
            all = Range{std::min(all ? all->from : series.getOldest(), series.getOldest()),
                        std::max(all ? all->to : newest, newest)};
        }
    }
    return all;
}

void PlotView::follow(std::int64_t newWidth) {
    width = newWidth;
    follow();
}

void PlotView::followNewest() {
    if (const auto all = held()) {
        const std::int64_t size =
            std::clamp(width != 0 ? width : all->to - all->from + 1, shortest, longest);
        shown = {all->to + 1 - size, all->to + 1};
    }
}

void PlotView::redraw() {
    if (isFollowingNewest) {
        followNewest();
    }
    drawTimeAxis();
    for (const auto& [index, graph] : signalGraphs) {
        drawSignal(*plotSignals[index], *graph);
    }
    if (isAutoscaling) {
        for (const auto& [key, axis] : valueAxes) {
            bool hasAny = false;
            QCPRange all;
            for (const QCPGraph* const graph : axis->graphs()) {
                bool hasValues = false;
                const QCPRange its = graph->getValueRange(hasValues, QCP::sdBoth, xAxis->range());
                all = !hasValues ? all : hasAny ? all.expanded(its) : its;
                hasAny = hasAny || hasValues;
            }
            if (hasAny) {
                axis->setRange(withMargin(all));
            }
        }
    }
    drawCursors();
    replot(rpQueuedRefresh);
}

/// As many decimals as tell the numbers apart.
void PlotView::drawTimeAxis() {
    xAxis->setRange(secondsSince(start, shown.from), secondsSince(start, shown.to));
    const double aTick = xAxis->range().size() / 5;
    xAxis->setNumberPrecision(
        std::clamp(1 - static_cast<int>(std::floor(std::log10(aTick))), 0, 9));
}

void PlotView::drawSignal(const PlotSignal& plotSignal, QCPGraph& graph) {
    const auto columns = static_cast<std::size_t>(std::max(axisRect()->width(), 1));
    const SignalSeries& series = plotSignal.series;
    const std::int64_t to = getShown().to;
    std::vector<SignalExtent> extents;
    if (const auto earlier = series.before(shown.from - 1)) {
        extents.push_back(*earlier);
    }
    // The columns are those of the picture also where it isn't filled.
    const double share = static_cast<double>(std::max<std::int64_t>(to - shown.from, 0)) /
                         static_cast<double>(shown.to - shown.from);
    const auto filled = static_cast<std::size_t>(std::ceil(static_cast<double>(columns) * share));
    const auto inside = series.envelope({shown.from, to}, filled);
    extents.insert(extents.end(), inside.begin(), inside.end());
    if (const auto later = series.after(to); later && (!end || later->first <= *end)) {
        extents.push_back(*later);
    }
    graph.data()->set(lineOf(extents, start), true);
    constexpr std::size_t pixelsApart = 12;
    const bool isSparse = inside.size() * pixelsApart < filled;
    graph.setScatterStyle(isSparse ? QCPScatterStyle(QCPScatterStyle::ssDisc, 4)
                                   : QCPScatterStyle(QCPScatterStyle::ssNone));
}

QPicture PlotView::record() {
    constexpr int inARow = 4;
    plotLayout()->addElement(1, 0, legend);
    plotLayout()->setRowStretchFactor(1, 0.001);
    legend->setWrap(inARow);
    legend->setVisible(true);
    setPlottingHint(QCP::phFastPolylines);  // of thick lines, which are slow otherwise
    QPicture recorded;
    {
        QCPPainter painter(&recorded);
        painter.setMode(QCPPainter::pmNoCaching);  // of texts, as pixmaps of the screen
        toPainter(&painter, QWidget::width(), height());
    }
    setPlottingHint(QCP::phFastPolylines, false);
    legend->setVisible(false);
    plotLayout()->take(legend);
    plotLayout()->simplify();
    redraw();
    return recorded;
}

void PlotView::drawCursors() {
    for (std::size_t i = 0; i < cursors.size(); ++i) {
        const CursorItems& items = cursorItems[i];
        const bool isShown = cursors[i] && *cursors[i] >= shown.from && *cursors[i] <= shown.to;
        items.line->setVisible(isShown);
        items.label->setVisible(isShown);
        if (isShown) {
            const double seconds = secondsSince(start, *cursors[i]);
            items.line->point1->setCoords(seconds, 0);
            items.line->point2->setCoords(seconds, 1);
            items.label->position->setCoords(seconds, 1);
        }
    }
}

std::int64_t PlotView::utcAt(double x) const {
    const double share = (x - axisRect()->left()) / std::max(axisRect()->width(), 1);
    return shown.from +
           std::llround(std::clamp(share, -1.0, 2.0) * static_cast<double>(shown.to - shown.from));
}

PlotView::Range PlotView::getShown() const {
    return {shown.from, end ? std::min(shown.to, *end + 1) : shown.to};
}

PlotView::Cursors PlotView::getShownCursors() const {
    Cursors times = cursors;
    for (auto& time : times) {
        time = time && end ? std::min(*time, *end) : time;
    }
    return times;
}

double PlotView::pixelOf(std::int64_t utc) const {
    const auto since = static_cast<long double>(utc) - static_cast<long double>(shown.from);
    const auto size = static_cast<long double>(shown.to - shown.from);
    return axisRect()->left() + static_cast<double>(since / size) * axisRect()->width();
}

std::optional<std::size_t> PlotView::cursorAt(const QPoint& position) const {
    for (std::size_t i = 0; i < cursors.size() && axisRect()->rect().contains(position); ++i) {
        if (cursors[i] && std::abs(pixelOf(*cursors[i]) - position.x()) <= grip) {
            return i;
        }
    }
    return std::nullopt;
}

QCPAxis* PlotView::valueAxisAt(const QPoint& position) const {
    const QRect inside = axisRect()->rect();
    if (position.y() < inside.top() || position.y() > inside.bottom()) {
        return nullptr;
    }
    QCPAxis* found = nullptr;
    for (const auto& [key, axis] : valueAxes) {
        const int away = axis->axisType() == QCPAxis::atLeft ? inside.left() - position.x()
                                                             : position.x() - inside.right();
        if (away > axis->offset() && (found == nullptr || axis->offset() > found->offset())) {
            found = axis;
        }
    }
    return found;
}

void PlotView::show(Range range) {
    constexpr std::int64_t limit = std::int64_t{1} << 62;
    const std::int64_t size = std::clamp(range.to - range.from, shortest, longest);
    range.from = std::clamp(range.from, -limit, limit);
    shown = {range.from, range.from + size};
    isFollowingNewest = false;
}

void PlotView::zoomTime(double factor, double x) {
    const std::int64_t center = utcAt(x);
    const auto before = static_cast<double>(center - shown.from) * factor;
    const auto size = std::clamp(static_cast<double>(shown.to - shown.from) * factor,
                                 static_cast<double>(shortest), static_cast<double>(longest));
    const std::int64_t from = center - std::llround(std::min(before, size));
    show({from, from + std::llround(size)});
}

void PlotView::zoomValues(const QCPAxis* only, double factor, double y) {
    for (const auto& [key, axis] : valueAxes) {
        if (only == nullptr || axis == only) {
            axis->scaleRange(factor, axis->pixelToCoord(y));
        }
    }
    isAutoscaling = false;
}

void PlotView::moveCursor(std::size_t cursor, std::int64_t utc) {
    cursors[cursor] = std::clamp(utc, shown.from, shown.to);
}

void PlotView::changed() {
    redraw();
    if (onChange) {
        onChange();
    }
}

void PlotView::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) {
        return;
    }
    const QPoint position = event->position().toPoint();
    cursorsBeforeClick = cursors;
    drag = Drag{position, shown, {}, cursorAt(position)};
    QCPAxis* const axis = valueAxisAt(position);
    drag->movesTime = axis == nullptr;
    for (const auto& [key, other] : valueAxes) {
        if (other == axis || (axis == nullptr && !isAutoscaling)) {
            drag->values[other] = other->range();
        }
    }
}

void PlotView::mouseMoveEvent(QMouseEvent* event) {
    const QPoint position = event->position().toPoint();
    if (!drag) {
        setCursor(cursorAt(position) ? Qt::SplitHCursor : Qt::ArrowCursor);
        return;
    }
    const QPoint moved = position - drag->from;
    constexpr int least = 3;
    if (!drag->hasMoved && moved.manhattanLength() < least) {
        return;
    }
    drag->hasMoved = true;
    if (drag->cursor) {
        moveCursor(*drag->cursor, utcAt(position.x()));
        changed();
        return;
    }
    if (drag->movesTime) {
        const double share = static_cast<double>(moved.x()) / std::max(axisRect()->width(), 1);
        const auto size = drag->shown.to - drag->shown.from;
        const std::int64_t by = std::llround(share * static_cast<double>(size));
        show({drag->shown.from - by, drag->shown.to - by});
    }
    for (const auto& [axis, range] : drag->values) {
        const double by = range.size() * moved.y() / std::max(axisRect()->height(), 1);
        axis->setRange(range.lower + by, range.upper + by);
        isAutoscaling = false;
    }
    changed();
}

void PlotView::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || !drag) {
        return;
    }
    const bool isClick = !drag->hasMoved && !drag->cursor;
    drag.reset();
    const QPoint position = event->position().toPoint();
    if (isClick && axisRect()->rect().contains(position)) {
        moveCursor(event->modifiers().testFlag(Qt::ShiftModifier) ? 1 : 0, utcAt(position.x()));
        changed();
    }
}

/// Its first click was no cursor.
void PlotView::mouseDoubleClickEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) {
        cursors = cursorsBeforeClick;
        drag.reset();
        follow();
        changed();
    }
}

void PlotView::wheelEvent(QWheelEvent* event) {
    const QPoint turned = event->angleDelta();
    constexpr double aStep = 120;
    const double steps = (turned.y() != 0 ? turned.y() : turned.x()) / aStep;
    const double factor = std::pow(0.8, steps);
    const QPoint position = event->position().toPoint();
    const QCPAxis* const axis = valueAxisAt(position);
    if (axis != nullptr || event->modifiers().testFlag(Qt::ControlModifier)) {
        zoomValues(axis, factor, position.y());
    } else {
        zoomTime(factor, position.x());
    }
    event->accept();
    changed();
}

void PlotView::keyPressEvent(QKeyEvent* event) {
    constexpr double zoom = 0.8;
    const QPoint middle = axisRect()->rect().center();
    const int key = event->key();
    const int direction =
        key == Qt::Key_Left || key == Qt::Key_Up || key == Qt::Key_PageUp ? 1 : -1;
    switch (key) {
        case Qt::Key_Left:
        case Qt::Key_Right: {
            const std::int64_t size = shown.to - shown.from;
            const bool isB = event->modifiers().testFlag(Qt::ShiftModifier);
            if (isB || event->modifiers().testFlag(Qt::ControlModifier)) {
                const std::int64_t pixel = std::max<std::int64_t>(size / axisRect()->width(), 1);
                const std::size_t cursor = isB ? 1 : 0;
                moveCursor(cursor, cursors[cursor].value_or(utcAt(middle.x())) - direction * pixel);
            } else {
                show({shown.from - direction * size / 10, shown.to - direction * size / 10});
            }
            break;
        }
        case Qt::Key_Up:
        case Qt::Key_Down:
            zoomTime(std::pow(zoom, direction), middle.x());
            break;
        case Qt::Key_PageUp:
        case Qt::Key_PageDown:
            zoomValues(nullptr, std::pow(zoom, direction), middle.y());
            break;
        case Qt::Key_A:
        case Qt::Key_B:
            moveCursor(key == Qt::Key_A ? 0 : 1, utcAt(middle.x()));
            break;
        case Qt::Key_Home:
            follow();
            break;
        default:
            QCustomPlot::keyPressEvent(event);
            return;
    }
    changed();
}

void PlotView::contextMenuEvent(QContextMenuEvent* event) {
    const auto* const wanted = plottableAt<QCPGraph>(QPointF(event->pos()));
    for (const auto& [index, graph] : signalGraphs) {
        if (graph == wanted && onMenu) {
            onMenu(index, event->globalPos());
        }
    }
}

void PlotView::changeEvent(QEvent* event) {
    QCustomPlot::changeEvent(event);
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::FontChange) {
        takePalette();
        redraw();
    }
}

}  // namespace station
