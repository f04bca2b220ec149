#include "station/toolkit/model/draw_grid_groups.h"

#include <fmt/format.h>

#include <algorithm>

namespace station {

namespace Core = Kestrova::RT::Core;

void DrawGridGroups::take(std::int32_t row, std::size_t group) {
    if (row < 1 || row >= rowCount) {
        throw Core::OutOfRangeException(
            fmt::format("there is no row {}, the last is {}", row, rowCount - 1));
    }
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

}  // namespace station
