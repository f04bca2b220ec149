#include "tests/support/headless_rig.h"

#include <fmt/format.h>

using station::CellContent;
using station::DrawGrid;
using station::ToolkitTimer;
namespace CellType = Kestrova::Tessel::CellType;

class HeadlessRig::Timer final : public ToolkitTimer {
  public:
    Timer(std::shared_ptr<Clock> windowClock, station::FailureSinkPtr failureSink)
        : ToolkitTimer(std::move(failureSink)), clock(std::move(windowClock)) {
        clock->timers.push_back(this);
        restart();
    }

    std::uint64_t getDue() const { return due; }
    void tickNow() {
        restart();
        raiseTick();
    }

  private:
    ~Timer() override { std::erase(clock->timers, this); }

    void restart() override { due = clock->now + getInterval(); }

    const std::shared_ptr<Clock> clock;
    std::uint64_t due = 0;  ///< milliseconds
};

class HeadlessRig::Window final : public station::ToolkitWindow {
  public:
    Window(std::shared_ptr<Clock> windowClock, station::FailureSinkPtr failureSink)
        : ToolkitWindow(std::move(failureSink)), clock(std::move(windowClock)) {}

  private:
    void onContentChanged() override {}
    CountedRef<ToolkitTimer> makeTimer() override {
        return CountedRef<ToolkitTimer>::adopt(new Timer(clock, sink));
    }

    const std::shared_ptr<Clock> clock;
};

HeadlessRig::HeadlessRig()
    : open(makeObject<Window>(clock, std::make_shared<const station::FailureSink>(
                                         [list = failures](const station::HandlerFailure& failure) {
                                             list->push_back(
                                                 static_cast<std::uint32_t>(failure.code));
                                         }))) {}

void HeadlessRig::closeWindow() {
    if (const auto closing = std::exchange(open, {}); closing) {
        closing->close();
    }
}

CountedRef<DrawGrid> HeadlessRig::find(const std::string& grid) const {
    const auto* const content = open ? open->getContent() : nullptr;
    const auto* const found = content != nullptr ? content->find(grid) : nullptr;
    return found != nullptr ? found->grid : CountedRef<DrawGrid>();
}

std::vector<std::string> HeadlessRig::titles(const std::string& grid) const {
    std::vector<std::string> titles;
    for (const auto& column : find(grid)->getColumns()) {
        titles.push_back(column.title);
    }
    return titles;
}

HeadlessRig::Rows HeadlessRig::look(const std::string& grid) const {
    Rows rows;
    const auto shown = find(grid);
    if (!shown) {
        return rows;
    }
    shown->askGroups();
    // A handler may change the grid while it is asked.
    for (std::int32_t row = 1; row < shown->countRows(); ++row) {
        for (std::int32_t column = 0;
             row < shown->countRows() && shown->isShown(row) &&
             column < static_cast<std::int32_t>(shown->getColumns().size());
             ++column) {
            rows[row].push_back(shown->askCell({row, column}));
        }
    }
    return rows;
}

std::vector<std::int32_t> HeadlessRig::shownRows(const std::string& grid) const {
    std::vector<std::int32_t> shown;
    for (const auto& [row, cells] : look(grid)) {
        shown.push_back(row);
    }
    return shown;
}

std::optional<CellContent> HeadlessRig::look(const Cell& cell) const {
    const auto shown = find(cell.grid);
    if (shown) {
        shown->askGroups();
    }
    return shown && shown->isShown(cell.row) && cell.column >= 0 &&
                   cell.column < static_cast<std::int32_t>(shown->getColumns().size())
               ? std::optional(shown->askCell({cell.row, cell.column}))
               : std::nullopt;
}

bool HeadlessRig::input(const Cell& cell, std::initializer_list<std::int32_t> types,
                        const station::CellInput& what) const {
    const auto content = look(cell);
    if (!content || std::find(types.begin(), types.end(), content->type) == types.end()) {
        return false;
    }
    if (content->type == CellType::toggle) {
        find(cell.grid)->switchToggle({cell.row, cell.column}, !content->checked);
    } else {
        find(cell.grid)->input({cell.row, cell.column}, what);
    }
    return true;
}

std::string HeadlessRig::read(const Cell& cell) const {
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
            const auto group = find(cell.grid)->groupHeadedBy(cell.row);
            return !content->expander || !group ? "" : group->isExpanded() ? "-" : "+";
        }
        default:
            return content->text;
    }
}

std::vector<std::string> HeadlessRig::offers(const Cell& cell) const {
    const auto content = look(cell);
    return content && content->type == CellType::comboBox
               ? find(cell.grid)->askComboItems({cell.row, cell.column})
               : std::vector<std::string>();
}

bool HeadlessRig::press(const std::string& button) const {
    const auto* const content = open->getContent();
    const auto* const found = content != nullptr ? content->find(button) : nullptr;
    if (found == nullptr || !found->button) {
        return false;
    }
    const auto pressed = found->button;
    pressed->press();
    return true;
}

bool HeadlessRig::type(const Cell& cell, const std::string& text) const {
    return input(cell, {CellType::editText, CellType::editNumber}, {text, 0, 0});
}

bool HeadlessRig::pick(const Cell& cell, const std::string& item) const {
    const auto items = offers(cell);
    const auto found = std::find(items.begin(), items.end(), item);
    const auto index = static_cast<std::int32_t>(found - items.begin());
    return found != items.end() && input(cell, {CellType::comboBox}, {item, 0, index});
}

bool HeadlessRig::toggle(const Cell& cell) const {
    return input(cell, {CellType::toggle}, {});
}

bool HeadlessRig::setColor(const Cell& cell, std::uint32_t color) const {
    return input(cell, {CellType::color}, {"", color, 0});
}

bool HeadlessRig::fold(const std::string& grid, std::int32_t row) const {
    const auto rows = look(grid);
    const auto found = rows.find(row);
    const bool isHead = found != rows.end() &&
                        std::any_of(found->second.begin(), found->second.end(), [](const auto& c) {
                            return c.type == CellType::groupExpander && c.expander;
                        });
    if (isHead) {
        find(grid)->toggleGroup(row);
    }
    return isHead;
}

bool HeadlessRig::select(const std::string& grid, const std::vector<std::int32_t>& rows) const {
    find(grid)->select(rows);
    return true;
}

void HeadlessRig::passTime(std::uint32_t milliseconds) {
    const auto during = clock;
    const std::uint64_t end = during->now + milliseconds;
    while (true) {
        const auto first = std::min_element(
            during->timers.begin(), during->timers.end(),
            [](const auto* one, const auto* other) { return one->getDue() < other->getDue(); });
        if (first == during->timers.end() || (*first)->getDue() > end) {
            break;
        }
        const CountedRef<Timer> timer(*first);
        during->now = timer->getDue();
        timer->tickNow();
    }
    during->now = end;
}
