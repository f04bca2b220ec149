#include "tests/support/headless_window.h"

#include <fmt/format.h>

#include <algorithm>

namespace station {

/// Ticks when the window's time passes.
class HeadlessTimer final : public ToolkitTimer {
  public:
    HeadlessTimer(std::shared_ptr<HeadlessWindow::Clock> windowClock, FailureSinkPtr failureSink)
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
    ~HeadlessTimer() override { std::erase(clock->timers, this); }

    void restart() override { due = clock->now + getInterval(); }

    const std::shared_ptr<HeadlessWindow::Clock> clock;
    std::uint64_t due = 0;  ///< milliseconds
};

GridScreen::GridScreen(CountedRef<DrawGrid> shownGrid) : grid(std::move(shownGrid)) {
    grid->setView(this);
}

GridScreen::~GridScreen() {
    grid->setView(nullptr);
}

void GridScreen::look() {
    if (!stale) {
        return;
    }
    stale = false;
    rows.clear();
    grid->askGroups();
    for (std::int32_t row = 1; row < grid->countRows(); ++row) {
        if (!grid->isShown(row)) {
            continue;
        }
        std::vector<CellContent> cells;
        // A handler may change the grid while it is asked.
        for (std::int32_t column = 0; row < grid->countRows() &&
                                      column < static_cast<std::int32_t>(grid->getColumns().size());
             ++column) {
            cells.push_back(grid->askCell({row, column}));
        }
        rows.emplace(row, std::move(cells));
    }
}

std::vector<std::int32_t> GridScreen::shownRows() {
    look();
    std::vector<std::int32_t> shown;
    for (const auto& [row, cells] : rows) {
        shown.push_back(row);
    }
    return shown;
}

const CellContent& GridScreen::cell(CellPlace place) {
    look();
    const auto found = rows.find(place.row);
    if (found == rows.end() || place.column < 0 ||
        static_cast<std::size_t>(place.column) >= found->second.size()) {
        throw Kestrova::RT::Core::OutOfRangeException(
            fmt::format("no cell is shown at row {}, column {}", place.row, place.column));
    }
    return found->second[static_cast<std::size_t>(place.column)];
}

CountedRef<HeadlessWindow> HeadlessWindow::make() {
    return CountedRef<HeadlessWindow>::adopt(
        new HeadlessWindow(std::make_shared<std::vector<HandlerFailure>>()));
}

HeadlessWindow::HeadlessWindow(std::shared_ptr<Failures> failureList)
    : ToolkitWindow(std::make_shared<const FailureSink>(
          [failureList](const HandlerFailure& failure) { failureList->push_back(failure); })),
      failures(std::move(failureList)),
      clock(std::make_shared<Clock>()) {}

void HeadlessWindow::onContentChanged() {
    screens.clear();
    if (const WindowElement* const root = getContent(); root != nullptr) {
        addScreens(*root);
    }
}

void HeadlessWindow::addScreens(const WindowElement& element) {
    if (element.grid) {
        screens.emplace(element.name, std::make_shared<GridScreen>(element.grid));
    }
    for (const WindowElement& child : element.children) {
        addScreens(child);
    }
}

std::shared_ptr<GridScreen> HeadlessWindow::findScreen(const std::string& gridName) const {
    const auto found = screens.find(gridName);
    return found != screens.end() ? found->second : nullptr;
}

CountedRef<ToolkitTimer> HeadlessWindow::makeTimer() {
    return CountedRef<ToolkitTimer>::adopt(new HeadlessTimer(clock, sink));
}

void HeadlessWindow::passTime(std::uint32_t milliseconds) {
    const CountedRef<HeadlessWindow> self(this);
    const std::uint64_t end = clock->now + milliseconds;
    while (true) {
        const auto first = std::min_element(
            clock->timers.begin(), clock->timers.end(),
            [](const auto* one, const auto* other) { return one->getDue() < other->getDue(); });
        if (first == clock->timers.end() || (*first)->getDue() > end) {
            break;
        }
        const CountedRef<HeadlessTimer> timer(*first);
        clock->now = timer->getDue();
        timer->tickNow();
    }
    clock->now = end;
}

}  // namespace station
