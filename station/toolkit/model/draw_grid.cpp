#include "station/toolkit/model/draw_grid.h"

#include <fmt/format.h>

#include <algorithm>

namespace station {

using Kestrova::Tessel::IDrawGridColumn;
namespace CellType = Kestrova::Tessel::CellType;
namespace Core = Kestrova::RT::Core;

namespace {

/// The attributes have no meaning here and are kept.
class ColumnObject final : public Component<IDrawGridColumn> {
  public:
    ColumnObject(CountedRef<DrawGrid> ofGrid, std::int32_t ofColumn, FailureSinkPtr failureSink)
        : Component("column", std::move(failureSink)), grid(std::move(ofGrid)), column(ofColumn) {}
    HostResult setFlagA(HostBool flag) override { return set(&DrawGrid::Column::flagA, flag); }
    HostResult setFlagB(HostBool flag) override { return set(&DrawGrid::Column::flagB, flag); }

  private:
    HostResult set(std::optional<bool> DrawGrid::Column::*flag, HostBool value) {
        grid->setFlag(column, flag, isTrue(value));
        return HostCode::success;
    }

    const CountedRef<DrawGrid> grid;
    const std::int32_t column;
};

void requireRowFrom(std::int32_t first, std::int32_t row, std::int32_t rowCount) {
    if (row < first || row >= rowCount) {
        throw Core::OutOfRangeException(
            fmt::format("there is no row {}, the last is {}", row, rowCount - 1));
    }
}

}  // namespace

std::string numberText(double number) {
    return fmt::format("{}", number);
}

void requireCellType(std::int32_t type) {
    constexpr std::int32_t types[] = {
        CellType::text,   CellType::editText, CellType::number,   CellType::editNumber,
        CellType::toggle, CellType::color,    CellType::comboBox, CellType::groupExpander};
    if (std::find(std::begin(types), std::end(types), type) == std::end(types)) {
        throw Core::InvalidValueException(fmt::format("there is no cell type {}", type));
    }
}

void DrawGridGroups::take(std::int32_t row, std::size_t group) {
    requireRowFrom(1, row, rowCount);
    if (!groupOfRow.try_emplace(row, group).second) {
        throw Core::AlreadyExistsException(fmt::format("row {} is in a group already", row));
    }
}

std::size_t DrawGridGroups::find(const std::string& name) const {
    const auto found = std::find_if(groups.begin(), groups.end(),
                                    [&](const auto& group) { return group->label() == name; });
    return static_cast<std::size_t>(found - groups.begin());
}

CountedRef<DrawGridGroup> DrawGridGroups::addGroup(const std::string& name, std::int32_t row,
                                                   bool expanded) {
    if (find(name) < groups.size()) {
        throw Core::AlreadyExistsException("there is a group \"" + name + "\" already");
    }
    take(row, groups.size());
    groups.push_back(makeObject<DrawGridGroup>(name, row, expanded, sink));
    return groups.back();
}

void DrawGridGroups::addRow(const std::string& groupName, std::int32_t row) {
    const std::size_t group = find(groupName);
    if (group == groups.size()) {
        throw Core::NotFoundException("there is no group \"" + groupName + "\"");
    }
    take(row, group);
}

CountedRef<DrawGridGroup> DrawGridGroups::headedBy(std::int32_t row) const {
    const auto found = groupOfRow.find(row);
    const bool isHead = found != groupOfRow.end() && groups[found->second]->getRow() == row;
    return isHead ? groups[found->second] : nullptr;
}

bool DrawGridGroups::isHidden(std::int32_t row) const {
    const auto found = groupOfRow.find(row);
    return found != groupOfRow.end() && groups[found->second]->getRow() != row &&
           !groups[found->second]->isExpanded();
}

void DrawGridGroups::detach() {
    for (const auto& group : groups) {
        group->detach();
    }
}

DrawGrid::DrawGrid(std::string gridName, FailureSinkPtr failureSink)
    : Component(std::move(gridName), std::move(failureSink)) {}

template <typename Change>
void DrawGrid::notify(Change change) {
    if (view != nullptr) {
        (view->*change)();
    }
}

void DrawGrid::requireRow(std::int32_t row) const {
    requireRowFrom(0, row, countRows());
}

void DrawGrid::requireColumn(std::int32_t column) const {
    if (column < 0 || static_cast<std::size_t>(column) >= columns.size()) {
        throw Core::OutOfRangeException(
            fmt::format("there is no column {}, there are {}", column, columns.size()));
    }
}

void DrawGrid::requireCell(CellPlace cell) const {
    requireColumn(cell.column);
    if (cell.row == 0) {
        throw Core::OutOfRangeException("row 0 is the header");
    }
    requireRow(cell.row);
}

void DrawGrid::resize(std::int32_t rows) {
    if (rows < 1) {
        throw Core::OutOfRangeException(
            fmt::format("a grid can't have {} rows: the header is one", rows));
    }
    if (rows != countRows()) {
        selection.assign(static_cast<std::size_t>(rows), false);
    }
    groupsAreDue = true;
}

HostResult DrawGrid::initialise(std::int32_t rows, std::int32_t count) {
    return toolkitCall([&] {
        if (count < 0) {
            throw Core::OutOfRangeException(fmt::format("a grid can't have {} columns", count));
        }
        resize(rows);
        selection.assign(selection.size(), false);
        columns.assign(static_cast<std::size_t>(count), {});
        notify(&DrawGridView::onColumnsChanged);
    });
}

HostResult DrawGrid::setColumn(std::int32_t index, RuntimeString* title, std::int32_t cellType,
                               std::int32_t one, std::int32_t width, RuntimeString* columnName) {
    return toolkitCall([&] {
        requireColumn(index);
        requireCellType(cellType);
        columns[static_cast<std::size_t>(index)] = {textOf(title), textOf(columnName), cellType,
                                                    width, one};
    });
}

HostResult DrawGrid::getColumn(std::int32_t index, IDrawGridColumn** column) {
    return toolkitCall([&] {
        requireColumn(index);
        *column = makeObject<ColumnObject>(CountedRef<DrawGrid>(this), index, sink).detach();
    });
}

void DrawGrid::setFlag(std::int32_t column, std::optional<bool> Column::*flag, bool value) {
    if (static_cast<std::size_t>(column) < columns.size()) {
        columns[static_cast<std::size_t>(column)].*flag = value;
    }
}

HostResult DrawGrid::endColumns() {
    return toolkitCall([&] { notify(&DrawGridView::onColumnsChanged); });
}

HostResult DrawGrid::setRowCount(std::int32_t rows) {
    return toolkitCall([&] {
        resize(rows);
        notify(&DrawGridView::onCellsChanged);
    });
}

HostResult DrawGrid::refresh() {
    return toolkitCall([&] { notify(&DrawGridView::onCellsChanged); });
}

HostResult DrawGrid::getRowCount(std::int32_t* rows) {
    *rows = countRows();
    return HostCode::success;
}

HostResult DrawGrid::isRowSelected(std::int32_t row, HostBool* selected) {
    return toolkitCall([&] {
        requireRow(row);
        *selected = toHostBool(isSelected(row));
    });
}

void DrawGrid::detach() {
    groups.detach();
    Component::detach();
}

void DrawGrid::askGroups() {
    if (!groupsAreDue) {
        return;
    }
    groupsAreDue = false;
    const auto args = makeObject<SetGroupsArgs>(DrawGridGroups(countRows(), sink));
    raise(setGroups, "groups", args.get());
    groups.detach();
    groups = std::move(args->groups);
    dropHiddenSelection();
}

bool DrawGrid::isShown(std::int32_t row) const {
    return row >= 1 && row < countRows() && !groups.isHidden(row);
}

CellContent DrawGrid::askCell(CellPlace cell) {
    requireCell(cell);
    const auto args =
        makeObject<CellPropsArgs>(cell, columns[static_cast<std::size_t>(cell.column)].type);
    raise(cellProps, "cell", args.get());
    return args->content;
}

std::vector<std::string> DrawGrid::askComboItems(CellPlace cell) {
    requireCell(cell);
    const auto args = makeObject<ComboItemsArgs>(cell);
    raise(comboItems, "combo box", args.get());
    return args->items;
}

void DrawGrid::input(CellPlace cell, const CellInput& what) {
    requireCell(cell);
    const CountedRef<DrawGrid> self(this);
    const auto args = makeObject<CellInputArgs>(cell, what);
    raise(cellInput, "input", args.get());
    notify(&DrawGridView::onCellsChanged);
}

void DrawGrid::switchToggle(CellPlace cell, bool checked) {
    requireCell(cell);
    const CountedRef<DrawGrid> self(this);
    const auto args = makeObject<CellActionArgs>(cell, checked);
    raise(cellAction, "toggle", args.get());
    notify(&DrawGridView::onCellsChanged);
}

void DrawGrid::toggleGroup(std::int32_t row) {
    const CountedRef<DrawGrid> self(this);
    if (const auto group = groups.headedBy(row)) {
        group->toggle();
        dropHiddenSelection();
        notify(&DrawGridView::onCellsChanged);
    }
}

bool DrawGrid::isSelected(std::int32_t row) const {
    return row >= 0 && row < countRows() && selection[static_cast<std::size_t>(row)];
}

void DrawGrid::select(const std::vector<std::int32_t>& rows) {
    for (const std::int32_t row : rows) {
        requireRow(row);
    }
    selection.assign(selection.size(), false);
    for (const std::int32_t row : rows) {
        selection[static_cast<std::size_t>(row)] = isShown(row);
    }
}

void DrawGrid::dropHiddenSelection() {
    for (std::int32_t row = 0; row < countRows(); ++row) {
        if (groups.isHidden(row)) {
            selection[static_cast<std::size_t>(row)] = false;
        }
    }
}

}  // namespace station
