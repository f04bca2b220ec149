#include "station/toolkit/qt/grid_view.h"

#include <QColorDialog>
#include <QHeaderView>
#include <QKeyEvent>
#include <QPointer>
#include <QSettings>

namespace station {

namespace CellType = Kestrova::Tessel::CellType;

GridView::GridView(CountedRef<DrawGrid> drawGrid)
    : grid(std::move(drawGrid)),
      delegate(model, grid, [this](const QModelIndex& index, CellInput input) {
          later([cell = model.place(index), isLockable = model.isLockable(index),
                 what = std::move(input)](GridView& self) {
              if (self.mayChange(cell, isLockable)) {
                  CountedRef<DrawGrid>(self.grid)->input(cell, what);
              }
          });
      }) {
    setModel(&model);
    setItemDelegate(&delegate);
    setSelectionBehavior(SelectRows);
    setSelectionMode(ExtendedSelection);
    setEditTriggers(DoubleClicked | EditKeyPressed | AnyKeyPressed);
    setHorizontalScrollMode(ScrollPerPixel);
    setWordWrap(false);
    verticalHeader()->hide();
    verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    verticalHeader()->setDefaultSectionSize(verticalHeader()->minimumSectionSize());
    horizontalHeader()->setHighlightSections(false);
    horizontalHeader()->setMinimumSectionSize(1);
    connect(selectionModel(), &QItemSelectionModel::selectionChanged, this,
            [this] { reportSelection(); });
    connect(horizontalHeader(), &QHeaderView::sectionResized, this, [this] {
        catchUpLater();
        keepWidths();
    });
    connect(this, &QAbstractItemView::clicked, this, [this](const QModelIndex& index) {
        if (clickModifiers == Qt::NoModifier) {
            act(index);
        }
    });
    grid->setView(this);
}

GridView::~GridView() {
    areWidthsTheUsers = false;
    grid->setView(nullptr);
    setModel(nullptr);
}

/// Runs it from the event loop, if this is still there.
template <typename Action>
void GridView::later(Action action) {
    QMetaObject::invokeMethod(
        this, [this, action] { action(*this); }, Qt::QueuedConnection);
}

void GridView::onColumnsChanged() {
    areColumnsDue = true;
    onCellsChanged();
}

void GridView::onCellsChanged() {
    model.outdateAll();
    catchUpLater();
}

void GridView::catchUpLater() {
    if (!isCatchingUp) {
        isCatchingUp = true;
        later([](GridView& self) { self.catchUp(); });
    }
}

/// Each question to the plug-in may be the last thing that this view lives to see.
void GridView::catchUp() {
    isCatchingUp = false;
    if (!isVisible()) {
        return;
    }
    if (std::exchange(areColumnsDue, false)) {
        describeColumns();
    }
    const QPointer<GridView> self(this);
    const CountedRef<DrawGrid> asked = grid;
    asked->askGroups();
    if (self && !areColumnsDue) {
        showRows();
        askForVisible();
    }
}

void GridView::describeColumns() {
    areWidthsTheUsers = false;
    QStringList titles;
    for (const DrawGrid::Column& column : grid->getColumns()) {
        titles.push_back(QString::fromStdString(column.title));
    }
    model.describe(std::move(titles));
    const QVariantList kept = QSettings().value(widthsKey()).toList();
    for (int column = 0; column < model.columnCount(); ++column) {
        setColumnWidth(column, kept.size() == model.columnCount()
                                   ? kept[column].toInt()
                                   : grid->getColumns()[static_cast<std::size_t>(column)].width);
    }
    areWidthsTheUsers = true;
}

QString GridView::widthsKey() const {
    return "columns/" + objectName();
}

/// In the user's settings: windows are made and described again with each setup.
void GridView::keepWidths() const {
    if (!areWidthsTheUsers || model.columnCount() == 0) {
        return;
    }
    QVariantList widths;
    for (int column = 0; column < model.columnCount(); ++column) {
        widths.append(columnWidth(column));
    }
    QSettings().setValue(widthsKey(), widths);
}

void GridView::showRows() {
    std::vector<std::int32_t> rows;
    for (std::int32_t row = 1; row < grid->countRows(); ++row) {
        if (grid->isShown(row)) {
            rows.push_back(row);
        }
    }
    isUserSelecting = false;
    model.showRows(rows);
    takeOverSelection();
    isUserSelecting = true;
}

void GridView::askForVisible() {
    const QPointer<GridView> self(this);
    const CountedRef<DrawGrid> asked = grid;
    const QRect area = viewport()->rect();
    const auto endOf = [](int last, int count) { return last < 0 ? count : last + 1; };
    const int endRow = endOf(rowAt(area.bottom()), model.rowCount());
    const int endColumn = endOf(columnAt(area.right()), model.columnCount());
    for (int row = std::max(rowAt(0), 0); row < endRow; ++row) {
        for (int column = std::max(columnAt(0), 0); column < endColumn; ++column) {
            const QModelIndex index = model.index(row, column);
            if (model.isFresh(index)) {
                continue;
            }
            CellContent content = asked->askCell(model.place(index));
            // A handler that has changed something has set off another catching up.
            if (!self || isCatchingUp) {
                return;
            }
            if (model.put(index, std::move(content))) {
                update(index);
            }
        }
    }
}

/// What the user has selected is the grid's.
void GridView::reportSelection() {
    if (!isUserSelecting) {
        return;
    }
    std::vector<std::int32_t> rows;
    for (const QItemSelectionRange& range : selectionModel()->selection()) {
        for (int row = range.top(); row <= range.bottom(); ++row) {
            if (const std::int32_t gridRow = model.gridRow(row); gridRow < grid->countRows()) {
                rows.push_back(gridRow);
            }
        }
    }
    grid->select(rows);
}

/// What isn't selected in the grid any more isn't here either.
void GridView::takeOverSelection() {
    for (int row = 0; row < model.rowCount(); ++row) {
        const QModelIndex index = model.index(row, 0);
        if (selectionModel()->isSelected(index) && !grid->isSelected(model.gridRow(row))) {
            selectionModel()->select(index,
                                     QItemSelectionModel::Deselect | QItemSelectionModel::Rows);
        }
    }
}

bool GridView::isThere(CellPlace cell) const {
    return grid->isShown(cell.row) &&
           static_cast<std::size_t>(cell.column) < grid->getColumns().size();
}

bool GridView::mayChange(CellPlace cell, bool isLockable) const {
    return isThere(cell) && !(isLockable && model.isLocked());
}

void GridView::setLocked(bool isLocked) {
    model.setLocked(isLocked);
    viewport()->update();
}

/// Whether a click does something in the cell.
bool GridView::acts(const QModelIndex& index) const {
    const CellContent& shows = model.content(index);
    if (model.isLocked() && model.isLockable(index)) {
        return false;
    }
    return shows.type == CellType::toggle || shows.type == CellType::comboBox ||
           shows.type == CellType::color ||
           (shows.type == CellType::groupExpander && shows.expander);
}

/// That one, and if its row is selected those of its column in the other selected rows.
std::vector<CellPlace> GridView::togglesBeside(const QModelIndex& index) const {
    std::vector<CellPlace> cells;
    const auto isSelected = [this](int row) {
        return selectionModel()->rowIntersectsSelection(row, rootIndex());
    };
    for (int row = 0; isSelected(index.row()) && row < model.rowCount(); ++row) {
        const QModelIndex other = index.siblingAtRow(row);
        if (isSelected(row) && model.content(other).type == CellType::toggle) {
            cells.push_back(model.place(other));
        }
    }
    return cells.empty() ? std::vector<CellPlace>{model.place(index)} : cells;
}

bool GridView::act(const QModelIndex& index) {
    if (!acts(index)) {
        return false;
    }
    const CellContent& shows = model.content(index);
    const CellPlace cell = model.place(index);
    switch (shows.type) {
        case CellType::toggle:
            later([cells = togglesBeside(index), on = !shows.checked](GridView& self) {
                const QPointer<GridView> there(&self);
                for (const CellPlace place : cells) {
                    if (there && there->mayChange(place, true)) {
                        CountedRef<DrawGrid>(there->grid)->switchToggle(place, on);
                    }
                }
            });
            break;
        case CellType::groupExpander:
            later([row = cell.row](GridView& self) {
                CountedRef<DrawGrid>(self.grid)->toggleGroup(row);
            });
            break;
        case CellType::comboBox:
            openComboBox(index);
            break;
        default:
            openColorDialog(index);
    }
    return true;
}

/// A click that does something in a cell leaves the selection as it is.
QItemSelectionModel::SelectionFlags GridView::selectionCommand(const QModelIndex& index,
                                                               const QEvent* event) const {
    const bool isMouse = event != nullptr && (event->type() == QEvent::MouseButtonPress ||
                                              event->type() == QEvent::MouseButtonRelease);
    const bool isPlain =
        isMouse && static_cast<const QMouseEvent*>(event)->modifiers() == Qt::NoModifier;
    return isPlain && index.isValid() && acts(index) ? QItemSelectionModel::NoUpdate
                                                     : QTableView::selectionCommand(index, event);
}

/// The items are asked for first; what the plug-in does then may take the cell away, or the view.
void GridView::openComboBox(const QModelIndex& index) {
    later([place = QPersistentModelIndex(index)](GridView& view) {
        const QPointer<GridView> self(&view);
        if (!place.isValid() || !view.mayChange(view.model.place(place), true)) {
            return;
        }
        QStringList items;
        for (const std::string& item :
             CountedRef<DrawGrid>(view.grid)->askComboItems(view.model.place(place))) {
            items.append(QString::fromStdString(item));
        }
        if (!self || !place.isValid() || !view.isVisible()) {
            return;
        }
        view.delegate.setItems(items);
        view.model.setOpening(place);
        view.edit(place);
        view.model.setOpening({});
        if (QComboBox* const box = view.delegate.openComboBox()) {
            box->showPopup();
        }
    });
}

void GridView::openColorDialog(const QModelIndex& index) {
    auto* const dialog = new QColorDialog(QColor::fromRgb(model.content(index).color), this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setOption(QColorDialog::DontUseNativeDialog);
    connect(
        dialog, &QColorDialog::colorSelected, this,
        [this, place = QPersistentModelIndex(index)](const QColor& color) {
            later([place, rgb = color.rgb() & RGB_MASK](GridView& self) {
                if (place.isValid() && self.isThere(self.model.place(place))) {
                    CountedRef<DrawGrid>(self.grid)->input(self.model.place(place), {"", rgb, 0});
                }
            });
        });
    dialog->open();
}

void GridView::keyPressEvent(QKeyEvent* event) {
    const QModelIndex index = currentIndex();
    const bool isPlain = (event->modifiers() & ~Qt::KeypadModifier) == Qt::NoModifier;
    const int key = event->key();
    const bool acts =
        key == Qt::Key_Space || key == Qt::Key_F2 || key == Qt::Key_Return || key == Qt::Key_Enter;
    if (isPlain && key == Qt::Key_Delete && onDelete) {
        later([](GridView& self) {
            if (!self.model.isLocked()) {
                std::function<void()>(self.onDelete)();
            }
        });
    } else if (!isPlain || !acts || !index.isValid() || !act(index)) {
        QTableView::keyPressEvent(event);
    }
}

/// From the last cell Tab goes on to the next control, as from the first one back.
bool GridView::focusNextPrevChild(bool next) {
    const QModelIndex index = currentIndex();
    const bool isLast =
        index.row() == model.rowCount() - 1 && index.column() == model.columnCount() - 1;
    const bool isFirst = index.row() == 0 && index.column() == 0;
    const bool leaves = !index.isValid() || (next ? isLast : isFirst);
    setTabKeyNavigation(!leaves);
    const bool isDone = QTableView::focusNextPrevChild(next);
    setTabKeyNavigation(true);
    return isDone;
}

void GridView::mouseReleaseEvent(QMouseEvent* event) {
    clickModifiers = event->modifiers();
    QTableView::mouseReleaseEvent(event);
}

void GridView::resizeEvent(QResizeEvent* event) {
    QTableView::resizeEvent(event);
    catchUpLater();
}

void GridView::scrollContentsBy(int dx, int dy) {
    QTableView::scrollContentsBy(dx, dy);
    catchUpLater();
}

void GridView::showEvent(QShowEvent* event) {
    QTableView::showEvent(event);
    catchUpLater();
}

}  // namespace station
