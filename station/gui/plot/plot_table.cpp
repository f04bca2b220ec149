#include "station/gui/plot/plot_table.h"

#include <QHeaderView>
#include <algorithm>

#include "station/gui/plot/plot_drawing.h"

namespace station {
namespace {

enum PlotColumn {
    NameColumn,
    UnitColumn,
    AColumn,
    BColumn,
    DifferenceColumn,
    MinColumn,
    MaxColumn
};

QString valueText(double value) {
    constexpr int digits = 9;
    return QString::number(value, 'g', digits);
}

/// Of what is held of a point: more than one value only where it isn't held as it is.
QString extentText(const SignalExtent& extent) {
    if (!extent.hasValues()) {
        return "no number";
    }
    return extent.low == extent.high ? valueText(extent.low)
                                     : valueText(extent.low) + " … " + valueText(extent.high);
}

bool isValue(const std::optional<SignalExtent>& extent) {
    return extent && extent->low == extent->high;
}

}  // namespace

PlotTable::PlotTable() {
    setObjectName("plotTable");
    setAccessibleName("Signals and their values at the cursors");
    setColumnCount(MaxColumn + 1);
    setHorizontalHeaderLabels({"Signal", "Unit", "A", "B", "B − A", "Min", "Max"});
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setTabKeyNavigation(false);
    setWordWrap(false);
    setContextMenuPolicy(Qt::CustomContextMenu);
    verticalHeader()->hide();
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    verticalHeader()->setDefaultSectionSize(verticalHeader()->minimumSectionSize());
    horizontalHeader()->setHighlightSections(false);
    horizontalHeader()->setSectionResizeMode(NameColumn, QHeaderView::Stretch);
    setColumnWidth(UnitColumn, 60);
    connect(this, &QWidget::customContextMenuRequested, this, [this](const QPoint& position) {
        QTableWidgetItem* const item = itemAt(position);
        const int row = item != nullptr ? item->row() : -1;
        if (row >= 0 && onMenu) {
            onMenu(signalOf(row), viewport()->mapToGlobal(position));
        }
    });
}

void PlotTable::keyPressEvent(QKeyEvent* event) {
    const int row = currentRow();
    const int key = event->key();
    if (row >= 0 && key == Qt::Key_Delete && onRemove) {
        onRemove(signalOf(row));
    } else if (row >= 0 && (key == Qt::Key_Menu || key == Qt::Key_Return) && onMenu) {
        const QRect cell = visualItemRect(item(row, NameColumn));
        onMenu(signalOf(row), viewport()->mapToGlobal(cell.bottomLeft()));
    } else {
        QTableWidget::keyPressEvent(event);
    }
}

void PlotTable::rebuild(const PlotView::PlotSignals& plotSignals) {
    setRowCount(0);
    for (std::size_t i = 0; i < plotSignals.size(); ++i) {
        if (plotSignals[i] == nullptr) {
            continue;
        }
        const int row = rowCount();
        insertRow(row);
        for (int column = 0; column <= MaxColumn; ++column) {
            auto* const cell = new QTableWidgetItem;
            if (column >= AColumn) {
                cell->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
            }
            setItem(row, column, cell);
        }
        QTableWidgetItem& name = *item(row, NameColumn);
        name.setText(plotSignals[i]->name);
        name.setData(Qt::UserRole, QVariant::fromValue<qulonglong>(i));
        name.setData(Qt::DecorationRole, drawnColor(plotSignals[i]->color, palette()));
        item(row, UnitColumn)->setText(plotSignals[i]->unit);
    }
}

std::size_t PlotTable::signalOf(int row) const {
    return item(row, NameColumn)->data(Qt::UserRole).toULongLong();
}

void PlotTable::showValues(const PlotView::PlotSignals& plotSignals, SignalSeries::Range shown,
                           const PlotView::Cursors& cursors) {
    const auto& [a, b] = cursors;
    SignalSeries::Range range = shown;
    if (a && b) {
        range = {std::min(*a, *b), std::max(*a, *b) + 1};
    }
    for (int row = 0; row < rowCount(); ++row) {
        const SignalSeries& series = plotSignals[signalOf(row)]->series;
        const auto atA = a ? series.before(*a) : std::nullopt;
        const auto atB = b ? series.before(*b) : std::nullopt;
        const auto all = series.extent(range);
        const bool hasValues = all && all->hasValues();
        const auto set = [&](int column, const QString& text) { item(row, column)->setText(text); };
        set(AColumn, atA ? extentText(*atA) : QString());
        set(BColumn, atB ? extentText(*atB) : QString());
        set(DifferenceColumn,
            isValue(atA) && isValue(atB) ? valueText(atB->low - atA->low) : QString());
        set(MinColumn, hasValues ? valueText(all->low) : QString());
        set(MaxColumn, hasValues ? valueText(all->high) : QString());
    }
}

}  // namespace station
