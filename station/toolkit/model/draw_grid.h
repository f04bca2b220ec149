#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/toolkit_grid.h"
#include "station/toolkit/model/draw_grid_args.h"

namespace station {

/// Shows a grid. Notified of what is out of date; it asks for it when it next shows it, and not
/// within these calls.
class DrawGridView {
  public:
    /// All of it.
    virtual void onColumnsChanged() = 0;
    /// Which rows there are, which of them are hidden, and what is in the cells.
    virtual void onCellsChanged() = 0;

  protected:
    ~DrawGridView() = default;
};

/// A grid without its looks: columns, rows, groups and selection, and the events to the plug-in.
/// The plug-in has it as `IDrawGrid`; a toolkit shows it in a view and calls here for what the user
/// does. Both toolkits of the station have this one, so they can't differ in it.
///
/// Contents are not kept: a view asks with `askCell`, and only for rows that `isShown`. What the
/// user may do in a cell, the view decides by the cell's type.
///
/// Each operation of the user raises one event, in which the plug-in may do anything: rows that
/// were there before may be gone after it. Rows and columns that there aren't throw
/// `OutOfRangeException`.
class DrawGrid final : public Component<Kestrova::Tessel::IDrawGrid, Kestrova::Tessel::IControl> {
  public:
    struct Column {
        std::string title;
        std::string name;
        std::int32_t type = Kestrova::Tessel::CellType::text;
        std::int32_t width = 0;  ///< pixels
        // What the plug-in said beside: kept as it was given, without a meaning here.
        std::int32_t one = 0;
        std::optional<bool> flagA = {};
        std::optional<bool> flagB = {};
    };

    DrawGrid(std::string gridName, FailureSinkPtr failureSink);

    HostResult initialise(std::int32_t rows, std::int32_t columns) override;
    HostResult setColumn(std::int32_t index, RuntimeString* title, std::int32_t cellType,
                         std::int32_t one, std::int32_t width, RuntimeString* name) override;
    HostResult getColumn(std::int32_t index, Kestrova::Tessel::IDrawGridColumn** column) override;
    HostResult endColumns() override;
    HostResult setRowCount(std::int32_t rows) override;
    HostResult refresh() override;
    HostResult getRowCount(std::int32_t* rows) override;
    HostResult isRowSelected(std::int32_t row, HostBool* selected) override;

    /// The grid has left its window, and its groups with it.
    void detach();

    /// Null for none; not owned.
    void setView(DrawGridView* newView) { view = newView; }

    const std::vector<Column>& getColumns() const { return columns; }
    /// Sets an attribute of a column; nothing for one that isn't there any more.
    void setFlag(std::int32_t column, std::optional<bool> Column::*flag, bool value);
    /// With the header.
    std::int32_t countRows() const { return static_cast<std::int32_t>(selection.size()); }
    /// Asks for the groups if they are out of date. A view calls it before it asks what is shown.
    void askGroups();
    /// Whether a row is there and not hidden in a folded group.
    bool isShown(std::int32_t row) const;
    /// The group whose head the row is; null if of none.
    CountedRef<DrawGridGroup> groupHeadedBy(std::int32_t row) const { return groups.headedBy(row); }

    CellContent askCell(CellPlace cell);
    std::vector<std::string> askComboItems(CellPlace cell);
    void input(CellPlace cell, const CellInput& what);
    void switchToggle(CellPlace cell, bool checked);
    /// Folds or unfolds the group that the row is head of; nothing if it is of none.
    void toggleGroup(std::int32_t row);
    bool isSelected(std::int32_t row) const;
    /// Replaces the selection.
    void select(const std::vector<std::int32_t>& rows);

  private:
    void requireCell(CellPlace cell) const;
    void requireRow(std::int32_t row) const;
    void requireColumn(std::int32_t column) const;
    void resize(std::int32_t rows);
    /// Hidden rows aren't selected.
    void dropHiddenSelection();
    template <typename Change>
    void notify(Change change);

    DrawGridView* view = nullptr;
    std::vector<Column> columns;
    std::vector<bool> selection = {false};  ///< of each row; the header's stays false
    DrawGridGroups groups;
    bool groupsAreDue = true;
};

}  // namespace station
