#pragma once

#include <QTableView>
#include <functional>
#include <vector>

#include "station/toolkit/model/draw_grid.h"
#include "station/toolkit/qt/cell_delegate.h"
#include "station/toolkit/qt/grid_model.h"

namespace station {

/// Shows a grid and lets the user work in it, with the mouse or with the keyboard alone: the arrows
/// and Tab move, F2 or typing edits, Space and Enter switch, pick and fold, Ctrl+A selects all,
/// Delete removes what is selected.
///
/// What it has to ask the plug-in for it asks in `catchUp`, once for all that has changed since,
/// and it passes on what the user does from the event loop too: so no function of Qt's is under way
/// in which a handler could pull the ground away. It asks for what can be seen and is out of date.
class GridView final : public QTableView, private DrawGridView {
  public:
    explicit GridView(CountedRef<DrawGrid> drawGrid);
    ~GridView() override;

    /// What Delete does.
    void setOnDelete(std::function<void()> handler) { onDelete = std::move(handler); }
    /// What a lock concerns see `GridModel::setLocked`; Delete does nothing then.
    void setLocked(bool isLocked);
    const GridModel& shown() const { return model; }

  protected:
    QItemSelectionModel::SelectionFlags selectionCommand(const QModelIndex& index,
                                                         const QEvent* event) const override;
    void keyPressEvent(QKeyEvent* event) override;
    bool focusNextPrevChild(bool next) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void scrollContentsBy(int dx, int dy) override;
    void showEvent(QShowEvent* event) override;

  private:
    void onColumnsChanged() override;
    void onCellsChanged() override;

    void catchUpLater();
    void catchUp();
    void describeColumns();
    QString widthsKey() const;
    void keepWidths() const;
    void showRows();
    void askForVisible();
    void reportSelection();
    void takeOverSelection();
    template <typename Action>
    void later(Action action);
    bool acts(const QModelIndex& index) const;
    /// What a click or Space does in the cell, by its type. False if that is nothing.
    std::vector<CellPlace> togglesBeside(const QModelIndex& index) const;
    bool act(const QModelIndex& index);
    void openComboBox(const QModelIndex& index);
    void openColorDialog(const QModelIndex& index);
    /// Whether there still is such a cell.
    bool isThere(CellPlace cell) const;
    /// The same, and that the user may change it; he may have begun before the lock.
    bool mayChange(CellPlace cell, bool isLockable) const;

    const CountedRef<DrawGrid> grid;
    GridModel model;
    CellDelegate delegate;
    std::function<void()> onDelete;
    bool areColumnsDue = true;
    bool isCatchingUp = false;  ///< it is under way to the event loop
    bool isUserSelecting = true;
    bool areWidthsTheUsers = false;        ///< those that change
    Qt::KeyboardModifiers clickModifiers;  ///< of the last click
};

}  // namespace station
