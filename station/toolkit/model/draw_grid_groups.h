#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "host/toolkit_grid.h"
#include "station/toolkit/model/component.h"

namespace station {

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

    // These throw what `IDrawGridSetGroupsArgs` tells.
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

}  // namespace station
