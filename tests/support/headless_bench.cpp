#include "tests/support/headless_bench.h"

#include <fmt/format.h>

using station::CellContent;
using station::CellPlace;
using station::GridScreen;
namespace CellType = Kestrova::Tessel::CellType;

template <typename Action>
auto HeadlessBench::run(const Action& action) const {
    const auto during = open;
    const auto keep = [&] {
        for (const auto& failure : during->takeFailures()) {
            failures.push_back(static_cast<std::uint32_t>(failure.code));
        }
    };
    if constexpr (std::is_void_v<std::invoke_result_t<Action>>) {
        action();
        keep();
    } else {
        auto answer = action();
        keep();
        return answer;
    }
}

void HeadlessBench::closeWindow() {
    if (open) {
        const auto closing = std::exchange(open, {});
        closing->close();
    }
}

std::vector<std::string> HeadlessBench::titles(const std::string& grid) const {
    std::vector<std::string> titles;
    for (const auto& column : open->findScreen(grid)->getGrid().getColumns()) {
        titles.push_back(column.title);
    }
    return titles;
}

std::vector<std::int32_t> HeadlessBench::shownRows(const std::string& grid) const {
    const auto screen = open->findScreen(grid);
    return run([&] { return screen ? screen->shownRows() : std::vector<std::int32_t>(); });
}

std::optional<CellContent> HeadlessBench::look(const Cell& cell) const {
    const auto rows = shownRows(cell.grid);
    if (std::find(rows.begin(), rows.end(), cell.row) == rows.end()) {
        return {};
    }
    return open->findScreen(cell.grid)->cell({cell.row, cell.column});
}

bool HeadlessBench::isOfType(const Cell& cell, std::initializer_list<std::int32_t> types) const {
    const auto content = look(cell);
    return content && std::find(types.begin(), types.end(), content->type) != types.end();
}

std::string HeadlessBench::read(const Cell& cell) const {
    const auto content = look(cell);
    if (!content) {
        return "no such cell";
    }
    switch (content->type) {
        case CellType::number:
        case CellType::editNumber:
            return station::numberText(content->number);
        case CellType::color:
            return fmt::format("{:06X}", content->color);
        case CellType::groupExpander: {
            const auto group = open->findScreen(cell.grid)->getGrid().groupHeadedBy(cell.row);
            return !content->expander || !group ? "" : group->isExpanded() ? "-" : "+";
        }
        default:
            return content->text;
    }
}

std::vector<std::string> HeadlessBench::offers(const Cell& cell) const {
    if (!isOfType(cell, {CellType::comboBox})) {
        return {};
    }
    const auto screen = open->findScreen(cell.grid);
    return run([&] { return screen->getGrid().askComboItems({cell.row, cell.column}); });
}

bool HeadlessBench::press(const std::string& button) const {
    const auto* const content = open->getContent();
    const auto* const found = content != nullptr ? content->find(button) : nullptr;
    if (found == nullptr || !found->button) {
        return false;
    }
    const CountedRef<station::IconButton> pressed(found->button);
    run([&] { pressed->press(); });
    return true;
}

bool HeadlessBench::type(const Cell& cell, const std::string& text) const {
    const bool isTyped = isOfType(cell, {CellType::editText, CellType::editNumber});
    if (isTyped) {
        const auto screen = open->findScreen(cell.grid);
        run([&] { screen->getGrid().input({cell.row, cell.column}, {text, 0, 0}); });
    }
    return isTyped;
}

bool HeadlessBench::pick(const Cell& cell, const std::string& item) const {
    const auto items = offers(cell);
    const auto found = std::find(items.begin(), items.end(), item);
    if (found == items.end()) {
        return false;
    }
    const auto screen = open->findScreen(cell.grid);
    const auto index = static_cast<std::int32_t>(found - items.begin());
    run([&] { screen->getGrid().input({cell.row, cell.column}, {item, 0, index}); });
    return true;
}

bool HeadlessBench::toggle(const Cell& cell) const {
    const bool isSwitch = isOfType(cell, {CellType::toggle});
    if (isSwitch) {
        const auto screen = open->findScreen(cell.grid);
        const bool on = !look(cell)->checked;
        run([&] { screen->getGrid().switchToggle({cell.row, cell.column}, on); });
    }
    return isSwitch;
}

bool HeadlessBench::setColor(const Cell& cell, std::uint32_t color) const {
    const bool isColored = isOfType(cell, {CellType::color});
    if (isColored) {
        const auto screen = open->findScreen(cell.grid);
        run([&] { screen->getGrid().input({cell.row, cell.column}, {"", color, 0}); });
    }
    return isColored;
}

bool HeadlessBench::fold(const std::string& grid, std::int32_t row) const {
    const auto screen = open->findScreen(grid);
    const auto columns = static_cast<std::int32_t>(screen->getGrid().getColumns().size());
    for (std::int32_t column = 0; column < columns; ++column) {
        const auto content = look({grid, row, column});
        if (content && content->type == CellType::groupExpander && content->expander) {
            run([&] { screen->getGrid().toggleGroup(row); });
            return true;
        }
    }
    return false;
}

bool HeadlessBench::select(const std::string& grid, const std::vector<std::int32_t>& rows) const {
    open->findScreen(grid)->getGrid().select(rows);
    return true;
}

void HeadlessBench::passTime(std::uint32_t milliseconds) {
    run([&] { open->passTime(milliseconds); });
}
