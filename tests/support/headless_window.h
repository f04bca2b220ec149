#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "station/toolkit/model/toolkit_window.h"

namespace station {

class HeadlessTimer;

/// What a grid would show on a screen: the cells as they were when they were last asked for. They
/// are asked for when somebody looks and the grid has said since that they are out of date.
class GridScreen final : public DrawGridView {
  public:
    explicit GridScreen(CountedRef<DrawGrid> shownGrid);
    ~GridScreen();
    GridScreen(const GridScreen&) = delete;
    GridScreen& operator=(const GridScreen&) = delete;

    DrawGrid& getGrid() { return *grid; }
    /// The rows that are shown, without the header.
    std::vector<std::int32_t> shownRows();
    /// Of a row that is shown; throws `OutOfRangeException` for another cell.
    const CellContent& cell(CellPlace place);

    void onColumnsChanged() override { stale = true; }
    void onCellsChanged() override { stale = true; }

  private:
    void look();

    const CountedRef<DrawGrid> grid;
    std::map<std::int32_t, std::vector<CellContent>> rows;  ///< by row
    bool stale = true;
};

/// A window that nobody sees, and a time that passes when told.
///
/// Failures of the plug-in's handlers are kept until they are taken.
class HeadlessWindow final : public ToolkitWindow {
  public:
    static CountedRef<HeadlessWindow> make();

    /// Null for a name that is no grid's. To be kept while one works with it: a handler may end the
    /// window.
    std::shared_ptr<GridScreen> findScreen(const std::string& gridName) const;
    /// Lets the timers tick, in the order of their times. A plug-in that makes timers in a tick
    /// can't hold it up for ever: what is due after `milliseconds` waits.
    void passTime(std::uint32_t milliseconds);
    std::vector<HandlerFailure> takeFailures() { return std::exchange(*failures, {}); }

  private:
    using Failures = std::vector<HandlerFailure>;

    explicit HeadlessWindow(std::shared_ptr<Failures> failureList);

    void onContentChanged() override;
    CountedRef<ToolkitTimer> makeTimer() override;
    void addScreens(const WindowElement& element);

    /// The time, and the timers that there are, which leave by themselves.
    struct Clock {
        std::uint64_t now = 0;  ///< milliseconds
        std::vector<HeadlessTimer*> timers;
    };
    friend class HeadlessTimer;

    const std::shared_ptr<Failures> failures;
    const std::shared_ptr<Clock> clock;
    std::map<std::string, std::shared_ptr<GridScreen>> screens;  ///< by the grid's name
};

}  // namespace station
