#include "station/gui/row_view.h"

#include <QPainter>
#include <algorithm>

namespace station {

RowView::RowView() : header(new QHeaderView(Qt::Horizontal, this)) {
    header->setHighlightSections(false);
    header->setStretchLastSection(true);
    setSelectionBehavior(SelectRows);
    setSelectionMode(ExtendedSelection);
    setEditTriggers(NoEditTriggers);
    setHorizontalScrollMode(ScrollPerPixel);
    connect(header, &QHeaderView::sectionResized, this, &RowView::layOut);
    connect(header, &QHeaderView::sectionMoved, this, &RowView::layOut);
}

void RowView::setModel(QAbstractItemModel* newModel) {
    QAbstractItemView::setModel(newModel);
    header->setModel(newModel);
    connect(newModel, &QAbstractItemModel::rowsInserted, this, &RowView::layOut);
    connect(newModel, &QAbstractItemModel::rowsRemoved, this, &RowView::layOut);
    connect(newModel, &QAbstractItemModel::modelReset, this, &RowView::layOut);
    updateGeometries();
}

int RowView::rowHeight() const {
    constexpr int margin = 4;
    return fontMetrics().height() + margin;
}

int RowView::pageRows() const {
    return std::max(viewport()->height() / rowHeight(), 1);
}

QRect RowView::visualRect(const QModelIndex& index) const {
    if (!index.isValid()) {
        return {};
    }
    const int row = index.row() - verticalScrollBar()->value();
    // Far away is far enough, and can't overflow.
    const int near = std::clamp(row, -pageRows() - 1, pageRows() + 1);
    return {header->sectionViewportPosition(index.column()), near * rowHeight(),
            header->sectionSize(index.column()), rowHeight()};
}

QModelIndex RowView::indexAt(const QPoint& point) const {
    const int row = verticalScrollBar()->value() + point.y() / rowHeight();
    const int column = header->logicalIndexAt(point.x());
    return point.y() >= 0 && row < rowCount() && column >= 0 ? model()->index(row, column)
                                                             : QModelIndex();
}

void RowView::scrollTo(const QModelIndex& index, ScrollHint hint) {
    if (!index.isValid()) {
        return;
    }
    const int first = verticalScrollBar()->value();
    const int row = index.row();
    const int last = first + pageRows() - 1;
    if (hint == PositionAtCenter) {
        verticalScrollBar()->setValue(row - pageRows() / 2);
    } else if (row < first || hint == PositionAtTop) {
        verticalScrollBar()->setValue(row);
    } else if (row > last || hint == PositionAtBottom) {
        verticalScrollBar()->setValue(row - pageRows() + 1);
    }
}

QSize RowView::viewportSizeHint() const {
    constexpr int rows = 10;
    return {header->length(), rows * rowHeight()};
}

QModelIndex RowView::moveCursor(CursorAction action, Qt::KeyboardModifiers) {
    const int rows = rowCount();
    if (rows == 0) {
        return {};
    }
    const QModelIndex current = currentIndex();
    int row = current.isValid() ? current.row() : verticalScrollBar()->value();
    switch (action) {
        case MoveUp:
        case MovePrevious:
            row -= current.isValid() ? 1 : 0;
            break;
        case MoveDown:
        case MoveNext:
            row += current.isValid() ? 1 : 0;
            break;
        case MovePageUp:
            row -= pageRows();
            break;
        case MovePageDown:
            row += pageRows();
            break;
        case MoveHome:
            row = 0;
            break;
        case MoveEnd:
            row = rows - 1;
            break;
        case MoveLeft:
        case MoveRight:
            break;
    }
    return model()->index(std::clamp(row, 0, rows - 1), std::max(current.column(), 0));
}

void RowView::setSelection(const QRect& area, QItemSelectionModel::SelectionFlags command) {
    const int rows = rowCount();
    if (rows == 0) {
        return;
    }
    const auto rowAt = [&](int y) {
        const int below = y >= 0 ? y / rowHeight() : (y + 1) / rowHeight() - 1;
        return std::clamp(verticalScrollBar()->value() + below, 0, rows - 1);
    };
    const QRect whole = area.normalized();
    const QModelIndex first = model()->index(rowAt(whole.top()), 0);
    const QModelIndex last = model()->index(rowAt(whole.bottom()), model()->columnCount() - 1);
    selectionModel()->select({first, last}, command);
}

QRegion RowView::visualRegionForSelection(const QItemSelection&) const {
    return viewport()->rect();  // it is drawn at once
}

void RowView::paintEvent(QPaintEvent*) {
    QPainter painter(viewport());
    const int first = verticalScrollBar()->value();
    const int end = std::min(first + pageRows() + 1, rowCount());
    QStyleOptionViewItem plain;
    initViewItemOption(&plain);
    plain.showDecorationSelected = true;
    for (int row = first; row < end; ++row) {
        const bool isSelected = selectionModel()->isRowSelected(row);
        for (int column = 0; column < model()->columnCount(); ++column) {
            const QModelIndex index = model()->index(row, column);
            QStyleOptionViewItem option = plain;
            option.rect = visualRect(index);
            if (!option.rect.intersects(viewport()->rect())) {
                continue;
            }
            option.state.setFlag(QStyle::State_Selected, isSelected);
            option.state.setFlag(QStyle::State_Active, isActiveWindow());
            itemDelegate()->paint(&painter, option, index);
        }
    }
}

void RowView::layOut() {
    updateGeometries();
    viewport()->update();
}

void RowView::updateGeometries() {
    const int height = header->sizeHint().height();
    setViewportMargins(0, height, 0, 0);
    const QRect area = viewport()->geometry();
    header->setGeometry(area.left(), area.top() - height, area.width(), height);
    verticalScrollBar()->setPageStep(pageRows());
    verticalScrollBar()->setRange(0, std::max(rowCount() - pageRows(), 0));
    horizontalScrollBar()->setPageStep(area.width());
    horizontalScrollBar()->setRange(0, std::max(header->length() - area.width(), 0));
    QAbstractItemView::updateGeometries();
}

void RowView::scrollContentsBy(int x, int) {
    if (x != 0) {
        header->setOffset(horizontalScrollBar()->value());
    }
    viewport()->update();
}

}  // namespace station
