#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/toolkit_grid.h"
#include "station/toolkit/model/component.h"

/// The arguments of a grid's events. Each has its content to itself: what is given after the event
/// goes nowhere.
namespace station {

struct CellPlace {
    std::int32_t row = 0;  ///< 0 is the header
    std::int32_t column = 0;
};

/// What a cell shows, as the plug-in has answered.
struct CellContent {
    std::int32_t type = 0;  ///< of `CellType`
    std::string text;
    double number = 0.0;
    bool checked = false;
    std::uint32_t color = 0;  ///< 0x00RRGGBB
    bool expander = false;

    friend bool operator==(const CellContent&, const CellContent&) = default;
};

/// What the user has put into a cell.
struct CellInput {
    std::string text;
    std::uint32_t color = 0;
    std::int32_t selectedIndex = 0;
};

/// A number as a cell shows it.
std::string numberText(double number);
/// Throws `InvalidValueException` if there is no such cell type.
void requireCellType(std::int32_t type);

/// A row with those that are hidden while it is folded.
class DrawGridGroup final : public Component<Kestrova::Tessel::IDrawGridGroup> {
  public:
    DrawGridGroup(std::string groupName, std::int32_t headRow, bool isExpanded,
                  FailureSinkPtr failureSink)
        : Component(std::move(groupName), std::move(failureSink)),
          row(headRow),
          expanded(isExpanded) {}

    HostResult getName(RuntimeString** result) override {
        return toolkitCall([&] { *result = makeText(name).detach(); });
    }

    std::int32_t getRow() const { return row; }
    bool isExpanded() const { return expanded; }
    void toggle() {
        expanded = !expanded;
        raise(expansionChanged, "expansion", nullptr);
    }

  private:
    const std::int32_t row;
    bool expanded;
};

/// The groups of a grid, as the plug-in gives them in one event.
class DrawGridGroups {
  public:
    DrawGridGroups() = default;
    DrawGridGroups(std::int32_t gridRowCount, FailureSinkPtr failureSink)
        : rowCount(gridRowCount), sink(std::move(failureSink)) {}

    // These throw as `IDrawGridSetGroupsArgs` says.
    CountedRef<DrawGridGroup> addGroup(const std::string& name, std::int32_t row, bool expanded);
    void addRow(const std::string& groupName, std::int32_t row);

    /// The group that the row is head of; null if of none.
    CountedRef<DrawGridGroup> headedBy(std::int32_t row) const;
    /// Whether the row is in a folded group, and not as its head.
    bool isHidden(std::int32_t row) const;
    /// The groups have left the grid.
    void detach();

  private:
    /// Its place; the number of groups if there is none.
    std::size_t find(const std::string& name) const;
    void take(std::int32_t row, std::size_t group);

    std::int32_t rowCount = 0;
    FailureSinkPtr sink;
    std::vector<CountedRef<DrawGridGroup>> groups;
    std::map<std::int32_t, std::size_t> groupOfRow;  ///< place in `groups`, of heads too
};

template <typename Interface>
class DrawGridArgs : public Implements<Interface, Kestrova::Tessel::IDrawGridEventArgs,
                                       Kestrova::Tessel::IEventArgs> {
  public:
    explicit DrawGridArgs(CellPlace ofCell) : place(ofCell) {}

    HostResult getRow(std::int32_t* row) override {
        *row = place.row;
        return HostCode::success;
    }
    HostResult getColumn(std::int32_t* column) override {
        *column = place.column;
        return HostCode::success;
    }

  private:
    const CellPlace place;
};

class CellPropsArgs final : public DrawGridArgs<Kestrova::Tessel::IDrawGridCellPropsArgs> {
  public:
    CellPropsArgs(CellPlace ofCell, std::int32_t columnType) : DrawGridArgs(ofCell) {
        content.type = columnType;
    }

    HostResult setText(RuntimeString* text) override {
        return toolkitCall([&] { content.text = textOf(text); });
    }
    HostResult setNumber(double number) override { return put(content.number, number); }
    HostResult setCellType(std::int32_t type) override {
        return toolkitCall([&] {
            requireCellType(type);
            content.type = type;
        });
    }
    HostResult setChecked(HostBool checked) override {
        return put(content.checked, isTrue(checked));
    }
    HostResult setColor(std::uint32_t color) override { return put(content.color, color); }
    HostResult setExpander(std::int32_t flag) override { return put(content.expander, flag != 0); }

    CellContent content;

  private:
    template <typename T>
    static HostResult put(T& field, T value) {
        field = value;
        return HostCode::success;
    }
};

class ComboItemsArgs final : public DrawGridArgs<Kestrova::Tessel::IDrawGridComboItemsArgs> {
  public:
    using DrawGridArgs::DrawGridArgs;

    HostResult addItem(RuntimeString* text) override {
        return toolkitCall([&] { items.push_back(textOf(text)); });
    }

    std::vector<std::string> items;
};

class CellActionArgs final : public DrawGridArgs<Kestrova::Tessel::IDrawGridCellActionEventArgs> {
  public:
    CellActionArgs(CellPlace ofCell, bool isChecked) : DrawGridArgs(ofCell), checked(isChecked) {}

    HostResult getChecked(HostBool* result) override {
        *result = toHostBool(checked);
        return HostCode::success;
    }

  private:
    const bool checked;
};

class CellInputArgs final : public DrawGridArgs<Kestrova::Tessel::IDrawGridCellInputArgs> {
  public:
    CellInputArgs(CellPlace ofCell, CellInput whatCame)
        : DrawGridArgs(ofCell), input(std::move(whatCame)) {}

    HostResult getText(RuntimeString** text) override {
        return toolkitCall([&] { *text = makeText(input.text).detach(); });
    }
    HostResult getColor(std::uint32_t* color) override {
        *color = input.color;
        return HostCode::success;
    }
    HostResult getSelectedIndex(std::int32_t* index) override {
        *index = input.selectedIndex;
        return HostCode::success;
    }

  private:
    const CellInput input;
};

class SetGroupsArgs final : public DrawGridArgs<Kestrova::Tessel::IDrawGridSetGroupsArgs> {
  public:
    explicit SetGroupsArgs(DrawGridGroups empty)
        : DrawGridArgs(CellPlace()), groups(std::move(empty)) {}

    HostResult addGroup(RuntimeString* name, std::int32_t row, HostBool expanded,
                        Kestrova::Tessel::IDrawGridGroup** group) override {
        return toolkitCall(
            [&] { *group = groups.addGroup(textOf(name), row, isTrue(expanded)).detach(); });
    }
    HostResult addRow(RuntimeString* groupName, std::int32_t row) override {
        return toolkitCall([&] { groups.addRow(textOf(groupName), row); });
    }

    DrawGridGroups groups;
};

}  // namespace station
