#pragma once

#include <cstdint>

#include "host/toolkit.h"

namespace Kestrova::Tessel {

class IDrawGridColumn;
class IDrawGridGroup;

/// What a cell shows and what the user can do with it. The column has a type; a cell may have
/// another one (`IDrawGridCellPropsArgs::setCellType`). The numbers are the toolkit's own.
///
/// "Input" is the event `IDrawGrid::cellInput`. After it, as after an action, the cell is asked for
/// again: what it shows is what the plug-in has made of it.
namespace CellType {
inline constexpr std::int32_t text = 1;        ///< shows `setText`
inline constexpr std::int32_t editText = 2;    ///< the same; a text typed is input as it is
inline constexpr std::int32_t number = 3;      ///< shows `setNumber`, without needless decimals
inline constexpr std::int32_t editNumber = 4;  ///< the same; typed text is input, number or not
inline constexpr std::int32_t toggle = 6;      ///< shows `setChecked` and `setText`; an action
inline constexpr std::int32_t color = 7;       ///< filled with `setColor`; a chosen one is input
inline constexpr std::int32_t comboBox = 8;    ///< shows `setText`; a picked item is input
inline constexpr std::int32_t groupExpander = 12;  ///< folds the row's group, if `setExpander` is 1
}  // namespace CellType

/// A table whose cells are asked for by event. It keeps no contents: each time that it shows a cell
/// it asks what is in it.
///
/// It is described once, in this order: `initialise`, `setColumn` for each column, the columns'
/// attributes, `endColumns`. Rows are counted from 0, which is the header: it shows the columns'
/// titles and is never asked for. So `setRowCount(3)` gives two rows of cells.
///
/// The user can select any number of rows but the header, change columns' widths, and do in a cell
/// what its type allows. A row that is in no group is always shown; a group is a row with the rows
/// that were added to it, which are hidden while it is folded. A hidden row isn't asked for, and
/// its selection is lost.
///
/// Rows and columns that there aren't make an operation fail with `OutOfRangeException`.
class IDrawGrid : public IControl {
  public:
    static constexpr InterfaceId id{
        0xBC5C6625, 0x9A14, 0x407F, {0xA0, 0xBD, 0xE3, 0x2E, 0x83, 0x26, 0x5F, 0x03}};

    // The event slots with their arguments. The others can be subscribed to and are never raised.

    /// What does the cell show? Asked for each cell that is to be shown, after the groups.
    /// `IDrawGridCellPropsArgs`
    static constexpr std::int32_t cellProps = 2;
    /// What can be picked? Asked when the user opens a combo box. `IDrawGridComboItemsArgs`
    static constexpr std::int32_t comboItems = 3;
    /// May be raised for a cell whose value changes by itself, and need not be.
    /// `IDrawGridLiveValueArgs`
    static constexpr std::int32_t liveValue = 4;
    /// The user has switched a toggle. `IDrawGridCellActionEventArgs`
    static constexpr std::int32_t cellAction = 6;
    /// The user has typed, picked or chosen something. `IDrawGridCellInputArgs`
    static constexpr std::int32_t cellInput = 8;
    /// Which groups are there? Asked before the first cell is shown and after each `setRowCount`,
    /// and not for a `refresh`; may be asked at once or when the rows are next shown.
    /// `IDrawGridSetGroupsArgs`
    static constexpr std::int32_t setGroups = 13;
    static constexpr std::int32_t slotCount = 13;

    /// `OutOfRangeException` for negative counts, and for no row: there is always a header.
    virtual HostResult initialise(std::int32_t rowCount, std::int32_t columnCount) = 0;
    /// `InvalidValueException` for a cell type that there isn't. The meaning of `one` is open; it
    /// is always 1. `width` in pixels. `name` is not shown.
    virtual HostResult setColumn(std::int32_t index, RuntimeString* title, std::int32_t cellType,
                                 std::int32_t one, std::int32_t width, RuntimeString* name) = 0;
    virtual HostResult getColumn(std::int32_t index, IDrawGridColumn** column) = 0;
    virtual HostResult endColumns() = 0;
    /// With the header. The selection stays where the count is what it was, and is empty otherwise;
    /// an edit in progress is given up if its row is gone.
    virtual HostResult setRowCount(std::int32_t rowCount) = 0;
    /// Asks again for all cells that can be seen. What the user is about, a selection, an edit in
    /// progress, an open combo box, a folded group, the place scrolled to, stays as it is.
    virtual HostResult refresh() = 0;
    /// With the header.
    virtual HostResult getRowCount(std::int32_t* rowCount) = 0;
    /// Never true for the header.
    virtual HostResult isRowSelected(std::int32_t row, HostBool* selected) = 0;

  protected:
    ~IDrawGrid() = default;
};

/// A column of a grid, with no events of its own.
class IDrawGridColumn : public IComponent {
  public:
    static constexpr InterfaceId id{
        0x693D5094, 0xED54, 0x4CA1, {0xA1, 0xB4, 0xC7, 0xC2, 0xC4, 0x42, 0x3F, 0x61}};
    static constexpr std::int32_t slotCount = 0;

    /// Two attributes whose meaning is open: a toolkit accepts them.
    virtual HostResult setFlagA(HostBool flag) = 0;
    virtual HostResult setFlagB(HostBool flag) = 0;

  protected:
    ~IDrawGridColumn() = default;
};

/// A group of rows, made by `IDrawGridSetGroupsArgs::addGroup`.
class IDrawGridGroup : public IComponent {
  public:
    static constexpr InterfaceId id{
        0x4CA16D09, 0xC8DF, 0x4666, {0xB2, 0x49, 0x8B, 0x12, 0xF9, 0x19, 0xA3, 0xE4}};
    /// The user has folded or unfolded the group; raised once for each such change and for no
    /// other. No argument.
    static constexpr std::int32_t expansionChanged = 1;
    static constexpr std::int32_t slotCount = 1;

    virtual HostResult getName(RuntimeString** name) = 0;

  protected:
    ~IDrawGridGroup() = default;
};

/// What all events of a grid say: the cell. Row and column are 0 in an event about the whole grid.
class IDrawGridEventArgs : public IEventArgs {
  public:
    static constexpr InterfaceId id{
        0x5381B3BF, 0xF895, 0x4A97, {0x86, 0x62, 0xF5, 0xCE, 0xEE, 0x51, 0xDB, 0xCD}};

    virtual HostResult getRow(std::int32_t* row) = 0;
    virtual HostResult getColumn(std::int32_t* column) = 0;

  protected:
    ~IDrawGridEventArgs() = default;
};

/// Takes what a cell shows. What isn't set is empty, 0, false; the type is the column's. What the
/// cell's type doesn't show is accepted and not shown.
class IDrawGridCellPropsArgs : public IDrawGridEventArgs {
  public:
    static constexpr InterfaceId id{
        0x3F61ADE7, 0xD917, 0x4F2B, {0xB5, 0xCF, 0x69, 0xD2, 0x91, 0xB6, 0x32, 0xF4}};

    virtual HostResult setText(RuntimeString* text) = 0;
    virtual HostResult setNumber(double number) = 0;
    /// `InvalidValueException` for a type that there isn't.
    virtual HostResult setCellType(std::int32_t cellType) = 0;
    virtual HostResult setChecked(HostBool checked) = 0;
    /// 0x00RRGGBB.
    virtual HostResult setColor(std::uint32_t color) = 0;
    /// 1 for an expander, 0 for none.
    virtual HostResult setExpander(std::int32_t flag) = 0;

  protected:
    ~IDrawGridCellPropsArgs() = default;
};

/// Takes what a combo box offers.
class IDrawGridComboItemsArgs : public IDrawGridEventArgs {
  public:
    static constexpr InterfaceId id{
        0xBF51B99C, 0xBF8C, 0x405B, {0xAF, 0x3E, 0x68, 0xC9, 0x96, 0xD9, 0x48, 0xD8}};

    /// Appends an item; its place, from 0, is what `getSelectedIndex` gives.
    virtual HostResult addItem(RuntimeString* text) = 0;

  protected:
    ~IDrawGridComboItemsArgs() = default;
};

class IDrawGridLiveValueArgs : public IDrawGridEventArgs {
  public:
    static constexpr InterfaceId id{
        0xAB6BC6E5, 0x1AF5, 0x4A15, {0x86, 0x04, 0x49, 0x14, 0xA5, 0x66, 0x66, 0xAD}};

  protected:
    ~IDrawGridLiveValueArgs() = default;
};

/// Says how the user has switched a toggle.
class IDrawGridCellActionEventArgs : public IDrawGridEventArgs {
  public:
    static constexpr InterfaceId id{
        0xB88CE1F5, 0xCE0E, 0x4F8F, {0x95, 0xD9, 0x2F, 0xFC, 0xC5, 0x19, 0x49, 0x8B}};

    virtual HostResult getChecked(HostBool* checked) = 0;

  protected:
    ~IDrawGridCellActionEventArgs() = default;
};

/// Says what the user has put into a cell. What the cell's type doesn't have is empty or 0.
class IDrawGridCellInputArgs : public IDrawGridEventArgs {
  public:
    static constexpr InterfaceId id{
        0xF14B90C8, 0x3A48, 0x4EB2, {0xAF, 0x99, 0x7F, 0x53, 0x65, 0x60, 0x3D, 0x11}};

    /// What was typed, or the item picked.
    virtual HostResult getText(RuntimeString** text) = 0;
    /// 0x00RRGGBB.
    virtual HostResult getColor(std::uint32_t* color) = 0;
    /// The place of the item picked, from 0.
    virtual HostResult getSelectedIndex(std::int32_t* index) = 0;

  protected:
    ~IDrawGridCellInputArgs() = default;
};

/// Takes the grid's groups. Those of before are gone, and what was folded comes back as `expanded`
/// says.
class IDrawGridSetGroupsArgs : public IDrawGridEventArgs {
  public:
    static constexpr InterfaceId id{
        0x5DDC1ED9, 0xCCEC, 0x41E4, {0xB4, 0x84, 0x67, 0x26, 0x04, 0x7F, 0x24, 0x5B}};

    /// A group of that name at that row, which is the one that stays when it is folded.
    /// `AlreadyExistsException` for a name or a row that is taken.
    virtual HostResult addGroup(RuntimeString* name, std::int32_t row, HostBool expanded,
                                IDrawGridGroup** group) = 0;
    /// Puts a row into the group of that name. `NotFoundException` if there is none,
    /// `AlreadyExistsException` for a row that is taken.
    virtual HostResult addRow(RuntimeString* groupName, std::int32_t row) = 0;

  protected:
    ~IDrawGridSetGroupsArgs() = default;
};

}  // namespace Kestrova::Tessel
