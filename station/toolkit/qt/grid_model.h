#pragma once

#include <QAbstractTableModel>
#include <cstdint>
#include <vector>

#include "station/toolkit/model/draw_grid_args.h"

namespace station {

/// The rows of a grid that aren't hidden, as a model of Qt's, and what their cells showed when they
/// were last asked for. It asks for nothing itself: `GridView` does, for what can be seen, and
/// painting reads what is there.
///
/// A row that goes from sight is removed from the model, with what Qt keeps of it: its selection,
/// its open editor. No `dataChanged` is sent, for that would write into an open editor.
class GridModel final : public QAbstractTableModel {
  public:
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

    /// Begins again, without rows.
    void describe(QStringList columnTitles);
    /// Ascending.
    void showRows(const std::vector<std::int32_t>& gridRows);
    std::int32_t gridRow(const QModelIndex& index) const { return gridRow(index.row()); }
    std::int32_t gridRow(int row) const { return shown[static_cast<std::size_t>(row)].gridRow; }
    CellPlace place(const QModelIndex& index) const { return {gridRow(index), index.column()}; }

    /// What the cell showed when it was last asked for.
    const CellContent& content(const QModelIndex& index) const;
    bool isFresh(const QModelIndex& index) const { return cell(index).asked == round; }
    /// Whether it shows something else now.
    bool put(const QModelIndex& index, CellContent content);
    /// From now on no cell is fresh.
    void outdateAll() { ++round; }

    /// While it is locked, switches, combo boxes and numbers are shown only. Texts and colours can
    /// be changed all the same: they name things and set nothing up.
    void setLocked(bool isLocked) { locked = isLocked; }
    bool isLocked() const { return locked; }
    /// Whether a lock concerns the cell.
    bool isLockable(const QModelIndex& index) const;

    /// Makes this one cell editable for as long as its combo box is being opened.
    void setOpening(const QModelIndex& index) { opening = index; }

  private:
    struct Cell {
        CellContent content;
        std::uint64_t asked = 0;  ///< in which round
    };
    struct Row {
        std::int32_t gridRow = 0;
        std::vector<Cell> cells;
    };

    Cell& cell(const QModelIndex& index);
    const Cell& cell(const QModelIndex& index) const;

    QStringList titles;
    std::vector<Row> shown;
    std::uint64_t round = 1;
    bool locked = false;
    QPersistentModelIndex opening;
};

}  // namespace station
