#include "station/toolkit/headless/headless_user.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>

namespace station {

namespace CellType = Kestrova::Tessel::CellType;

namespace {

std::string textOfAll(const std::vector<HandlerFailure>& failures) {
    std::string text;
    for (const HandlerFailure& failure : failures) {
        text += (text.empty() ? "" : "; ") + failure.text();
    }
    return text;
}

void tellFailures(HeadlessWindow& window) {
    auto failures = window.takeFailures();
    if (!failures.empty()) {
        throw PluginHandlerError(std::move(failures));
    }
}

const char* describe(std::int32_t cellType) {
    switch (cellType) {
        case CellType::editText:
            return "a text to type";
        case CellType::editNumber:
            return "a number to type";
        case CellType::toggle:
            return "a switch";
        case CellType::color:
            return "a colour";
        case CellType::comboBox:
            return "a combo box";
        case CellType::groupExpander:
            return "the fold of a group";
        default:
            return "only shown";
    }
}

}  // namespace

PluginHandlerError::PluginHandlerError(std::vector<HandlerFailure> failed)
    : UserError(textOfAll(failed)), failures(std::move(failed)) {}

std::shared_ptr<GridScreen> GridUser::screen() const {
    auto found = window.findScreen(name);
    if (!found) {
        throw UserError(fmt::format("the window has no grid \"{}\"", name));
    }
    return found;
}

std::vector<std::string> GridUser::titles() const {
    std::vector<std::string> result;
    const auto shown = screen();
    for (const auto& column : shown->getGrid().getColumns()) {
        result.push_back(column.title);
    }
    return result;
}

std::vector<std::int32_t> GridUser::rows() const {
    auto shown = screen()->shownRows();
    tellFailures(window);
    return shown;
}

std::int32_t GridUser::columnOf(const std::string& title) const {
    const auto all = titles();
    const auto found = std::find(all.begin(), all.end(), title);
    if (found == all.end()) {
        throw UserError(
            fmt::format("there is no column \"{}\"; there are: {}", title, fmt::join(all, ", ")));
    }
    return static_cast<std::int32_t>(found - all.begin());
}

void GridUser::requireRow(std::int32_t row) const {
    const auto shown = rows();
    if (std::find(shown.begin(), shown.end(), row) == shown.end()) {
        throw UserError(shown.empty() ? fmt::format("there is no row {}: the grid is empty", row)
                                      : fmt::format("there is no row {}; there are: {}", row,
                                                    fmt::join(shown, ", ")));
    }
}

CellContent GridUser::look(std::int32_t row, const std::string& title) const {
    requireRow(row);
    return screen()->cell({row, columnOf(title)});
}

std::string GridUser::read(std::int32_t row, const std::string& title) const {
    const CellContent content = look(row, title);
    switch (content.type) {
        case CellType::number:
        case CellType::editNumber:
            return numberText(content.number);
        case CellType::color:
            return fmt::format("{:06X}", content.color);
        case CellType::groupExpander: {
            const auto group = screen()->getGrid().groupHeadedBy(row);
            return !content.expander || !group ? "" : group->isExpanded() ? "-" : "+";
        }
        default:
            return content.text;
    }
}

std::vector<std::string> GridUser::readRow(std::int32_t row) const {
    std::vector<std::string> texts;
    for (const std::string& title : titles()) {
        texts.push_back(read(row, title));
    }
    return texts;
}

CellPlace GridUser::require(std::int32_t row, const std::string& title, const char* action,
                            std::initializer_list<std::int32_t> types) const {
    const std::int32_t type = look(row, title).type;
    if (std::find(types.begin(), types.end(), type) == types.end()) {
        throw UserError(fmt::format("row {}, column \"{}\" of \"{}\" can't be {}: it is {}", row,
                                    title, name, action, describe(type)));
    }
    return {row, columnOf(title)};
}

std::vector<std::string> GridUser::offers(std::int32_t row, const std::string& title) const {
    const CellPlace cell = require(row, title, "opened", {CellType::comboBox});
    auto items = screen()->getGrid().askComboItems(cell);
    tellFailures(window);
    return items;
}

void GridUser::type(std::int32_t row, const std::string& title, const std::string& text) const {
    const CellPlace cell =
        require(row, title, "typed into", {CellType::editText, CellType::editNumber});
    screen()->getGrid().input(cell, {text, 0, 0});
    tellFailures(window);
}

void GridUser::pick(std::int32_t row, const std::string& title, const std::string& item) const {
    const CellPlace cell = require(row, title, "picked from", {CellType::comboBox});
    const auto items = offers(row, title);
    const auto found = std::find(items.begin(), items.end(), item);
    if (found == items.end()) {
        throw UserError(fmt::format("row {}, column \"{}\" offers no \"{}\"; it offers: {}", row,
                                    title, item, fmt::join(items, ", ")));
    }
    const auto index = static_cast<std::int32_t>(found - items.begin());
    screen()->getGrid().input(cell, {item, 0, index});
    tellFailures(window);
}

void GridUser::toggle(std::int32_t row, const std::string& title) const {
    const CellPlace cell = require(row, title, "switched", {CellType::toggle});
    screen()->getGrid().switchToggle(cell, !look(row, title).checked);
    tellFailures(window);
}

void GridUser::setColor(std::int32_t row, const std::string& title, std::uint32_t color) const {
    constexpr std::uint32_t white = 0xFFFFFF;
    if (color > white) {
        throw UserError(fmt::format("{:X} is no colour: there are 000000 to FFFFFF", color));
    }
    const CellPlace cell = require(row, title, "coloured", {CellType::color});
    screen()->getGrid().input(cell, {"", color, 0});
    tellFailures(window);
}

void GridUser::fold(std::int32_t row) const {
    requireRow(row);
    const auto shown = screen();
    const auto& columns = shown->getGrid().getColumns();
    for (std::int32_t column = 0; column < static_cast<std::int32_t>(columns.size()); ++column) {
        const CellContent& content = shown->cell({row, column});
        if (content.type == CellType::groupExpander && content.expander) {
            shown->getGrid().toggleGroup(row);
            tellFailures(window);
            return;
        }
    }
    throw UserError(fmt::format("row {} of \"{}\" can't be folded: it heads no group", row, name));
}

void GridUser::select(const std::vector<std::int32_t>& selectedRows) const {
    for (const std::int32_t row : selectedRows) {
        requireRow(row);
    }
    screen()->getGrid().select(selectedRows);
}

GridUser HeadlessUser::grid(const std::string& gridName) const {
    return {window, gridName};
}

void HeadlessUser::press(const std::string& buttonName) const {
    const WindowElement* const content = window.getContent();
    const WindowElement* const found = content != nullptr ? content->find(buttonName) : nullptr;
    if (found == nullptr || !found->button) {
        throw UserError(fmt::format("the window has no button \"{}\"", buttonName));
    }
    CountedRef<IconButton>(found->button)->press();
    tellFailures(window);
}

void HeadlessUser::wait(std::uint32_t milliseconds) const {
    window.passTime(milliseconds);
    tellFailures(window);
}

}  // namespace station
